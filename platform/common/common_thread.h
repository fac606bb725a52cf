// Threads of the platform's own.
#pragma once

// Starts one that nobody waits for. Signals stay with the threads of the program. Returns whether it runs.
bool common_thread_start(void *(*entry)(void *));
