// The reader/writer lock that the SNMP agent library expects of the process that loads it. The daemon
// itself does not use it. C linkage, exported from the executable.
#pragma once

#include <cstdint>
#include <pthread.h>

constexpr int HBS_LOCK_FUNC_SIZE = 256;

// Who holds one of the two mutexes. pid 0, func "none", line 0 when it is free.
struct hbs_lock_holder {
    int32_t pid;
    char func[HBS_LOCK_FUNC_SIZE];
    int32_t line;
};

// Owned and initialised by the library. The writer mutex may be released by another thread than the one
// that took it, so both must be default, non-checking mutexes.
struct hbs_lock_record {
    pthread_mutex_t reader_mutex; // guards `readers` and the reader bookkeeping
    pthread_mutex_t writer_mutex; // held by the first reader for all readers, or by one writer
    int32_t readers;
    hbs_lock_holder reader;
    hbs_lock_holder writer;
};

// Test seam: how long an acquisition waits before it prints who holds the lock, and again after that (10 s).
// Returns what held before.
uint32_t hbs_lock_set_patience(uint32_t milliseconds);

#pragma GCC visibility push(default)
extern "C" {

// All wait for ever, printing who holds and who waits every 10 seconds. They return 0, or -1 when a mutex
// call fails with anything but a time-out. func is NUL-terminated and copied, at most 255 characters.
int reader_lock(hbs_lock_record *lock, int pid, const char *func, int line);
int reader_unlock(hbs_lock_record *lock, int pid, const char *func, int line);
int writer_lock(hbs_lock_record *lock, int pid, const char *func, int line);
int writer_unlock(hbs_lock_record *lock);

// Guards the agent's allocation list, which the memory dump walks.
extern pthread_mutex_t listlock;
}
#pragma GCC visibility pop
