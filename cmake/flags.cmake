# Compiler and linker flags in one place.
find_package(Threads REQUIRED)

# The vendor macros of old C libraries and big files: one ABI of time and files everywhere.
add_compile_definitions(_GNU_SOURCE _FILE_OFFSET_BITS=64)

# Old C libraries wait for a semaphore by the wall clock only.
include(CheckSymbolExists)
set(CMAKE_REQUIRED_DEFINITIONS -D_GNU_SOURCE)
set(CMAKE_REQUIRED_LIBRARIES Threads::Threads)
check_symbol_exists(sem_clockwait semaphore.h HBS_HAVE_SEM_CLOCKWAIT)
unset(CMAKE_REQUIRED_DEFINITIONS)
unset(CMAKE_REQUIRED_LIBRARIES)
add_library(hbs_sem_deadline INTERFACE)
if(HBS_HAVE_SEM_CLOCKWAIT)
    target_compile_definitions(hbs_sem_deadline INTERFACE HBS_SEM_CLOCKWAIT)
endif()

add_library(hbs_warnings INTERFACE)
target_compile_options(hbs_warnings INTERFACE
    -Wall -Wextra -Werror -Wshadow -Wcast-align -Wformat=2 -Wundef -Wvla -Wwrite-strings
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast>
    $<IF:$<CONFIG:Release>,-fstack-protector;--param=ssp-buffer-size=4,-fstack-protector-strong>)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(hbs_warnings INTERFACE -Wno-unknown-warning-option)
endif()
if(HBS_SANITIZE)
    add_compile_options(-fsanitize=${HBS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${HBS_SANITIZE})
    # clang tells the sources of it in another way than by gcc's names.
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND HBS_SANITIZE MATCHES "(address|thread)")
        string(TOUPPER ${CMAKE_MATCH_1} sanitizer)
        add_compile_definitions(__SANITIZE_${sanitizer}__)
    endif()
    # Compares what the C++ runtime knows of a function's type, and nothing of ours is built with that runtime.
    add_compile_options($<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
endif()

# Counted into a file that all processes map, which a process that is killed leaves up to date. Only src/ is counted.
set(HBS_COUNTING)
if(HBS_COVERAGE)
    set(HBS_COUNTING -fprofile-instr-generate -fcoverage-mapping "SHELL:-mllvm -runtime-counter-relocation")
    add_link_options(-fprofile-instr-generate)
endif()

# What may be installed: calls of the C library that check their room, and no table of addresses that can be written while
# the program runs.
option(HBS_FORTIFY "Use the C library's checked functions in optimised builds" ON)
add_library(hbs_hardened INTERFACE)
target_link_options(hbs_hardened INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:-Wl,-z,relro -Wl,-z,now>)
if(HBS_FORTIFY AND NOT HBS_SANITIZE)
    target_compile_options(hbs_hardened INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=2>)
endif()

# What goes into the daemon, the query library and the host platform: C++ without its runtime.
add_library(hbs_no_runtime INTERFACE)
target_link_libraries(hbs_no_runtime INTERFACE hbs_warnings hbs_hardened)
target_compile_options(hbs_no_runtime INTERFACE
    -fvisibility=hidden
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
# A release is small: one pass over the whole program, nothing that nobody calls, no tables for exceptions that no code
# of ours throws, no register for a frame. Stacks are checked in each function that has an array of four bytes or more, not
# in each that passes an address on: some KB less.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-Oz HBS_SMALLEST) # GCC since 12
set(CMAKE_CXX_FLAGS_RELEASE "-Os -DNDEBUG")
if(HBS_SMALLEST)
    set(CMAKE_CXX_FLAGS_RELEASE "-Oz -DNDEBUG")
endif()
set(CMAKE_C_FLAGS_RELEASE ${CMAKE_CXX_FLAGS_RELEASE})
set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
target_compile_options(hbs_no_runtime INTERFACE $<$<CONFIG:Release>:-ffunction-sections -fdata-sections
                       -fno-asynchronous-unwind-tables -fno-unwind-tables -fomit-frame-pointer>)
target_link_options(hbs_no_runtime INTERFACE $<$<CONFIG:Release>:-Wl,--gc-sections>
                    $<$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>:-flto-partition=one>)

# On a PC all calls go through the bound addresses themselves, and the list of what the loader has to move is short
# where the C library reads that form (since 2.36): some KB less.
include(CheckCSourceCompiles)
check_c_source_compiles("
    #include <features.h>
    #if !(defined(__x86_64__) || defined(__i386__)) || !__GLIBC_PREREQ(2, 36)
    #error no
    #endif
    int main(void) { return 0; }" HBS_SHORT_LOADING)
if(HBS_SHORT_LOADING)
    target_compile_options(hbs_no_runtime INTERFACE $<$<CONFIG:Release>:-fno-plt>)
    target_link_options(hbs_no_runtime INTERFACE $<$<CONFIG:Release>:-fno-plt -Wl,-z,pack-relative-relocs>)
endif()

# Links a target with the C driver, so that no C++ runtime library can slip in: a use of one is a
# link error. CMake would add it by itself for a mixed target; an empty list keeps it out.
function(hbs_link_without_runtime target)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
endfunction()
