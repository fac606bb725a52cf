// Files shared with the DHCP servers: opened and held under flock until closed.
#pragma once

#include <cstdio>

enum class hbs_lock { shared, exclusive };

// Opens `path` with the stdio mode and takes the lock (waiting for it). Returns the stream, or null
// when it cannot be opened or locked (errno says why). fclose releases the lock.
// After an exclusive lock was waited for, the stream is of the file that bears the name now: a file
// that was replaced meanwhile is opened again.
FILE *hbs_locked_open(const char *path, const char *mode, hbs_lock lock);
