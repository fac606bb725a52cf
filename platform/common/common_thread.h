// Threads of the platform's own.
#pragma once

#include <cstddef>

// Of each of them, in bytes: what it calls, and the link callback of the daemon behind it, has to fit.
constexpr size_t COMMON_THREAD_STACK = 262144;

// Starts one that nobody waits for. Signals stay with the threads of the program. Returns whether it runs.
bool common_thread_start(void *(*entry)(void *));
