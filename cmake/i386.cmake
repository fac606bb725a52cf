# 32-bit x86, which this machine runs natively, netlink included. The cross compiler's own C library is used at
# run time too, so that no foreign architecture has to be added to the system.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(HBS_I386_LIBRARIES /usr/i686-linux-gnu/lib)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=${HBS_I386_LIBRARIES}/ld-linux.so.2 -Wl,-rpath,${HBS_I386_LIBRARIES}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath,${HBS_I386_LIBRARIES}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
