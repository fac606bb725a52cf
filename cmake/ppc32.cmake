# 32-bit big-endian PowerPC, run under user-mode emulation: the byte order and word size of the gateway.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
