# A static build against a small C library. g++ compiles with its own headers, whose types are laid out
# alike in both libraries on this target; the small library's driver links. Checked functions of the big
# library are left out: the small one does not have them. So is hbsctl: Debian has no C++ runtime for the small one.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
# The big library's headers name fcntl by another name where offsets have 64 bits; here they always have.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,--defsym=fcntl64=fcntl")
set(HBS_FORTIFY OFF CACHE BOOL "")
# What optimises the whole program reads its archives by the compiler's own tools.
set(CMAKE_C_COMPILER_AR gcc-ar)
set(CMAKE_C_COMPILER_RANLIB gcc-ranlib)
set(CMAKE_CXX_COMPILER_AR gcc-ar)
set(CMAKE_CXX_COMPILER_RANLIB gcc-ranlib)
