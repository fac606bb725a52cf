// Watches the DHCP servers' notification files with inotify and has each changed one dealt with.
#pragma once

#include <cstdint>

constexpr const char *HBS_DHCPV4_NOTICES = "/var/tmp/udhcpd.delta";
constexpr const char *HBS_DHCPV6_NOTICES = "/var/lib/dibbler/server-notify.log";
constexpr const char *HBS_FILE_WATCH_PID = "/var/tmp/file_watch_thread.pid"; // the watchdog reads it

// A table of these ends with an entry whose path is null.
struct hbs_watch_entry {
    const char *path;
    int32_t wd; // watch descriptor; -1 = not watched
    uint32_t mask;
    void (*handler)(const char *path);
};

// Writes the identity of the calling thread, "pid:%d tid:%d", for the watchdog.
void hbs_file_watch_identify();

// Empties every file of the table (up to the first entry without path or handler) and watches it; what
// was written between the two is dealt with at once. Returns the inotify descriptor, or -1 when no file
// is watched (logged).
int hbs_file_watch_open(hbs_watch_entry *table);

// Reads once from the descriptor (waiting for an event) and calls the handlers of what happened. A file
// that was deleted or replaced is created when it is missing, watched again, and dealt with as it is;
// after an overflow of the kernel's queue every file is dealt with.
void hbs_file_watch_read(int descriptor, hbs_watch_entry *table);

// Thread entry; the argument is ignored. Returns null, and only when no file can be watched.
void *file_watch_thread(void *argument);
