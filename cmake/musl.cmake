# A static build against a small C library. g++ compiles with its own headers, whose types are laid out
# alike in both libraries on this target; the small library's driver links. Checked functions of the big
# library are left out: the small one does not have them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(HBS_FORTIFY OFF CACHE BOOL "")
