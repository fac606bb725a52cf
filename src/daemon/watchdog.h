// Every 30 seconds: is the file watch thread there, and does it do its work? Else the daemon is ended, for
// the process controller to start it anew.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>
#include <pthread.h>

constexpr int HBS_WATCHDOG_SECONDS = 30;

// Ticks in a row that found the thread blocked; the fifth ends the daemon.
extern std::atomic<int32_t> file_watch_block_count;

// Whether the kernel tells where its threads wait, which the tick looks at: some routers' kernels are built
// without. process_root: of the process table.
bool hbs_watchdog_can_look(const char *process_root);

// Arms the timer, replacing one that runs. thread: id of the file watch thread, kept as the timer's value.
// Failures, and a kernel that does not tell where threads wait, are logged; the daemon then runs without a
// watchdog.
void file_watcher_timer_set(const pthread_t *thread);

// One tick; runs on a thread of the timer's own. The value is not used.
void file_watcher_timer_handle(union sigval value);

// The tick, with the places it looks at: file that names the thread, and the root of the process table.
void hbs_watchdog_tick(const char *pid_file, const char *process_root);
