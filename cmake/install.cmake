# Where everything goes that is installed, and which Debian package it is in.
include(CMakePackageConfigHelpers)

# The platform library is the daemon's alone: it lies beside no public one.
set(private_libraries ${CMAKE_INSTALL_LIBDIR}/gw_hostbase)
file(RELATIVE_PATH from_daemon /${CMAKE_INSTALL_SBINDIR} /${private_libraries})
set_target_properties(gw_hostbase PROPERTIES INSTALL_RPATH "$ORIGIN/${from_daemon}")
install(TARGETS gw_hostbase RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
if(HBS_SHARED_PLATFORM)
    install(TARGETS hbs_platform LIBRARY DESTINATION ${private_libraries} COMPONENT daemon)
endif()
install(FILES packaging/gw_hostbase.service DESTINATION lib/systemd/system COMPONENT daemon)
install(FILES packaging/gw_hostbase.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)
install(FILES platform/host/gateway.conf.example docs/platform.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT daemon)

set(public_headers include/hbs_db.h include/hbs_msg.h include/hostbase_query.h)
install(TARGETS hbs_query_shared EXPORT hbs_query
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT query NAMELINK_COMPONENT query-dev)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT query-dev)
install(FILES packaging/hostbase_query.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT query-dev)
file(RELATIVE_PATH from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" from_pkgconfig ${from_pkgconfig})
configure_file(packaging/hbs_query.pc.in packaging/hbs_query.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/hbs_query.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT query-dev)
set(cmake_package ${CMAKE_INSTALL_LIBDIR}/cmake/hbs_query)
install(EXPORT hbs_query FILE hbs_query-config.cmake NAMESPACE hbs:: DESTINATION ${cmake_package}
        COMPONENT query-dev)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/hbs_query-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/hbs_query-config-version.cmake DESTINATION ${cmake_package}
        COMPONENT query-dev)

if(HBS_TOOLS)
    install(TARGETS hbsctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES packaging/hbsctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()

# cpack -G DEB in the build directory: one package for each component.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL daemon query query-dev)
if(HBS_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The gw_hostbase maintainers <maintainers@users.noreply.c-seed-90faaf7a.example>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME gw-hostbase-host)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
set(CPACK_DEBIAN_QUERY_PACKAGE_NAME libhbs-query1)
set(CPACK_DEBIAN_QUERY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_NAME libhbs-query-dev)
set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_DEPENDS "libhbs-query1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME hbsctl)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION "database of a gateway's LAN clients, on the simulated gateway
 gw_hostbase keeps a record for every device on the LAN, in shared memory. This build runs on the host
 platform, which stands in for a gateway's own libraries.")
set(CPACK_COMPONENT_QUERY_DESCRIPTION "reader library of gw_hostbase's client database")
set(CPACK_COMPONENT_QUERY-DEV_DESCRIPTION "headers for readers of gw_hostbase's client database")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command line of gw_hostbase, the database of LAN clients")
include(CPack)
