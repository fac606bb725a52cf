# Where everything goes that is installed, and which Debian package it is in.
include(CMakePackageConfigHelpers)

# Debian has its manual pages and changelogs compressed, the same bytes each time.
set(compressed)
function(hbs_compressed source)
    get_filename_component(name ${source} NAME)
    set(result ${PROJECT_BINARY_DIR}/packaging/${name}.gz)
    add_custom_command(OUTPUT ${result} COMMAND gzip -9nc ${source} > ${result} DEPENDS ${source} VERBATIM)
    set(compressed ${compressed} ${result} PARENT_SCOPE)
endfunction()
configure_file(packaging/changelog.in packaging/changelog @ONLY)
hbs_compressed(${PROJECT_BINARY_DIR}/packaging/changelog)
foreach(page gw_hostbase.8 hbs-lease-event.8 hbsctl.1 hostbase_query.3)
    hbs_compressed(${PROJECT_SOURCE_DIR}/packaging/${page})
endforeach()
# The layouts are documents already, whose tables a test holds against the headers.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
function(hbs_page_of document name what)
    set(page ${PROJECT_BINARY_DIR}/packaging/${name}.7)
    set(maker ${PROJECT_SOURCE_DIR}/packaging/manual_page)
    add_custom_command(OUTPUT ${page} DEPENDS ${document} ${maker} VERBATIM
                       COMMAND ${Python3_EXECUTABLE} -ISB ${maker} ${name} 7 ${what} < ${document} > ${page})
    hbs_compressed(${page})
    set(compressed ${compressed} PARENT_SCOPE)
endfunction()
hbs_page_of(${PROJECT_SOURCE_DIR}/docs/segment.md hbs_db "the client database of gw_hostbase in shared memory")
hbs_page_of(${PROJECT_SOURCE_DIR}/docs/protocol.md hbs_msg "the datagrams of gw_hostbase's command socket")
add_custom_target(hbs_compressed ALL DEPENDS ${compressed})

# The platform library is the daemon's alone: it lies beside no public one.
set(private_libraries ${CMAKE_INSTALL_LIBDIR}/gw_hostbase)
file(RELATIVE_PATH from_daemon /${CMAKE_INSTALL_SBINDIR} /${private_libraries})
set_target_properties(gw_hostbase PROPERTIES INSTALL_RPATH "$ORIGIN/${from_daemon}")
install(TARGETS gw_hostbase RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
if(HBS_SHARED_PLATFORM)
    install(TARGETS hbs_platform LIBRARY DESTINATION ${private_libraries} COMPONENT daemon)
endif()
install(TARGETS hbs-lease-event RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT daemon)
# A unit and an init script stand in the tree as for /usr: where the daemon is, is known only when it is installed.
function(hbs_install_starter source directory)
    get_filename_component(name ${source} NAME)
    install(PROGRAMS ${source} DESTINATION ${directory} COMPONENT daemon ${ARGN})
    install(CODE "
        set(place \"${CMAKE_INSTALL_SBINDIR}/gw_hostbase\")
        set(starter \"${directory}/${name}\")
        cmake_path(ABSOLUTE_PATH place BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
        cmake_path(ABSOLUTE_PATH starter BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
        file(READ \"\$ENV{DESTDIR}\${starter}\" text)
        string(REPLACE /usr/sbin/gw_hostbase \"\${place}\" text \"\${text}\")
        file(WRITE \"\$ENV{DESTDIR}\${starter}\" \"\${text}\")
    " COMPONENT daemon)
endfunction()
set(as_a_file PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# The plain name is for a daemon that looks at the machine itself; another platform is named.
cmake_path(GET HBS_PLATFORM_DIR FILENAME platform)
set(daemon_package gw-hostbase-${platform})
set(other_daemon gw-hostbase)
if(HBS_PLATFORM_DIR STREQUAL "${PROJECT_SOURCE_DIR}/platform/linux")
    set(daemon_package gw-hostbase)
    set(other_daemon gw-hostbase-host)
    hbs_install_starter(packaging/linux/gw_hostbase.service lib/systemd/system ${as_a_file})
    hbs_install_starter(packaging/linux/gw_hostbase.init ${CMAKE_INSTALL_DOCDIR}/examples)
    install(FILES packaging/linux/gw_hostbase.sysusers RENAME gw_hostbase.conf DESTINATION lib/sysusers.d
            COMPONENT daemon)
    install(FILES docs/linux.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT daemon)
else()
    hbs_install_starter(packaging/gw_hostbase.service lib/systemd/system ${as_a_file})
    install(FILES platform/host/gateway.conf.example docs/platform.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
            COMPONENT daemon)
endif()
install(FILES ${PROJECT_BINARY_DIR}/packaging/gw_hostbase.8.gz ${PROJECT_BINARY_DIR}/packaging/hbs-lease-event.8.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)

set(public_headers include/hbs_db.h include/hbs_msg.h include/hostbase_query.h)
install(TARGETS hbs_query_shared EXPORT hbs_query
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT query NAMELINK_COMPONENT query-dev)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT query-dev)
install(FILES ${PROJECT_BINARY_DIR}/packaging/hostbase_query.3.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT query-dev)
install(FILES ${PROJECT_BINARY_DIR}/packaging/hbs_db.7.gz ${PROJECT_BINARY_DIR}/packaging/hbs_msg.7.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT query-dev)
install(FILES examples/reader.c examples/reader.py DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libhbs-query-dev/examples
        COMPONENT query-dev)
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
    install(FILES packaging/hbsctl.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/hbsctl COMPONENT tools)
    install(FILES packaging/hbsctl.bash RENAME hbsctl
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES packaging/_hbsctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/hbsctl.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()

# cpack -G DEB in the build directory: one package for each component.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Installed as by hand into another root: what is installed then knows its own place.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL daemon query query-dev)
if(HBS_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The gw_hostbase maintainers <maintainers@users.noreply.c-seed-90faaf7a.example>")
# What each package must bring along; no part of an installation by hand.
foreach(part daemon=${daemon_package} query=libhbs-query1 query-dev=libhbs-query-dev tools=hbsctl)
    string(REPLACE "=" ";" names ${part})
    list(GET names 0 component)
    list(GET names 1 package)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
    install(FILES packaging/copyright ${PROJECT_BINARY_DIR}/packaging/changelog.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_QUERY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
# What the daemon runs: killall and ip always, the others to find out names and addresses.
if(platform STREQUAL "linux")
    set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "psmisc, iproute2")
    set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS "ndisc6, nbtscan")
endif()
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/postinst
    ${PROJECT_SOURCE_DIR}/packaging/prerm)
# Only one daemon can be on a machine, and what reads its database is built for the same places.
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONFLICTS ${other_daemon})
set(CPACK_DEBIAN_QUERY_PACKAGE_CONFLICTS ${other_daemon})
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONFLICTS ${other_daemon})
set(CPACK_DEBIAN_QUERY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_QUERY-DEV_PACKAGE_DEPENDS "libhbs-query1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS ieee-data) # the makers' names
set(CPACK_COMPONENT_DAEMON_DESCRIPTION "database of a gateway's LAN clients
gw_hostbase keeps a record for every device on the LAN, in shared memory.")
if(platform STREQUAL "host")
    set(CPACK_COMPONENT_DAEMON_DESCRIPTION "database of a gateway's LAN clients, simulated gateway
gw_hostbase keeps a record for every device on the LAN, in shared memory.
This build runs on the host platform, which stands in for a gateway.")
endif()
set(CPACK_COMPONENT_QUERY_DESCRIPTION "reader library of the LAN client database
Programs read the client database of gw_hostbase through it.")
set(CPACK_COMPONENT_QUERY-DEV_DESCRIPTION "headers for readers of the LAN client database
What is needed to compile programs that read the database of gw_hostbase.")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command line of the LAN client database
hbsctl looks at the clients that gw_hostbase knows, and manages them.")
include(CPack)
