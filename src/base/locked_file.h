// Files shared with the DHCP servers: opened and held under flock until closed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sys/types.h>

enum class hbs_lock { shared, exclusive };

// Anybody who may read a file may lock it for ever, so a lock is waited for at most this long.
constexpr int64_t HBS_LOCK_PATIENCE = 3000; // milliseconds, CLOCK_MONOTONIC

// Opens a plain file (see plain_file) with the stdio mode "r" or "r+" and takes the lock, waiting for it.
// Returns the stream, or null when it cannot be opened or locked: errno says why, ETIMEDOUT (logged) when
// somebody held the lock too long. fclose releases the lock. After a lock was waited for, the stream is of
// the file that bears the name now: a file that was replaced meanwhile is opened again. Each thread's waits
// share one patience: what it waited is given back at a tenth of the time that passes, so that many locked
// files, or the same one again and again, do not add up. A short wait is always granted.
FILE *hbs_locked_open(const char *path, const char *mode, hbs_lock lock);

// The same as a descriptor, with the flags and the mode of hbs_plain_open. O_TRUNC is not for this.
int hbs_locked_descriptor(const char *path, int flags, mode_t mode, hbs_lock lock);
