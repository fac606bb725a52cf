// Watches the DHCP servers' notification files with inotify and has each changed one dealt with.
#pragma once

#include <cstdint>

// What could not be read or watched is tried again after this long.
constexpr int HBS_WATCH_RETRY = 1000; // milliseconds

// A table of these ends with an entry whose path is null.
struct hbs_watch_entry {
    const char *path;
    int32_t wd; // watch descriptor; -1 = not watched
    uint32_t mask;
    bool (*handler)(const char *path); // false: the file has to be looked at again
    int64_t retry_at = 0;              // monotonic milliseconds; counts while `retry` is set
    bool retry = false;                // not watched, or its handler asked for another look
};

// Writes the identity of the calling thread, "pid:%d tid:%d", for the watchdog.
void hbs_file_watch_identify();

// Empties every file of the table (up to the first entry without path or handler) and watches it; what
// was written between the two is dealt with at once. Returns the inotify descriptor, or -1 when no file
// is watched (logged).
int hbs_file_watch_open(hbs_watch_entry *table);

// Waits for an event or for the time of a retry, and deals with what happened. A file that was deleted or
// replaced is created when it is missing, watched again, and dealt with as it is; where its directory is
// gone, that is tried again until it is there. After an overflow of the kernel's queue every file is dealt
// with.
void hbs_file_watch_read(int descriptor, hbs_watch_entry *table);

// Thread entry; the argument is ignored. Returns null, and only when no file can be watched.
void *file_watch_thread(void *argument);
