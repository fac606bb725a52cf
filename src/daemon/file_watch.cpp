#include "daemon/file_watch.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/log.h"
#include "daemon/lease_notices.h"

static hbs_watch_entry watch_table[] = {
    {HBS_DHCPV4_NOTICES, -1, IN_CLOSE_WRITE, hbs_watch_dhcpv4_notices},
    {HBS_DHCPV6_NOTICES, -1, IN_CLOSE_WRITE, hbs_watch_dhcpv6_notices},
    {nullptr, -1, 0, nullptr},
};

static bool in_use(const hbs_watch_entry *entry) {
    return entry->path != nullptr && entry->handler != nullptr;
}

void hbs_file_watch_identify() {
    FILE *file = fopen(HBS_FILE_WATCH_PID, "we");
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error creating /var/tmp/file_watch_thread.pid");
        return;
    }
    (void)fprintf(file, "pid:%d tid:%d", static_cast<int>(getpid()), static_cast<int>(syscall(SYS_gettid)));
    (void)fclose(file);
}

static void empty_file(const char *path) {
    FILE *file = fopen(path, "we");
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error creating/truncating file(%s) for inotify: %s", path,
                strerror(errno));
        return;
    }
    (void)flock(fileno(file), LOCK_EX);
    HBS_LOG(HBS_INFO, "HOSTBASE: creating/truncating file for inotify: %s", path);
    (void)flock(fileno(file), LOCK_UN);
    (void)fclose(file);
}

// Watches an entry's file and deals with what it holds already. Returns whether it is watched now.
static bool watch_file(int descriptor, hbs_watch_entry *entry) {
    entry->wd = inotify_add_watch(descriptor, entry->path, entry->mask);
    if (entry->wd < 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error adding inotify watch on %s with mask %x: %s", entry->path,
                entry->mask, strerror(errno));
        return false;
    }
    entry->handler(entry->path);
    return true;
}

int hbs_file_watch_open(hbs_watch_entry *table) {
    const int descriptor = inotify_init1(IN_CLOEXEC);
    if (descriptor < 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error initializing inotify instance: %s", strerror(errno));
        return -1;
    }
    int watches = 0;
    for (hbs_watch_entry *entry = table; in_use(entry); entry++) {
        empty_file(entry->path);
        watches += watch_file(descriptor, entry) ? 1 : 0;
    }
    if (watches == 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: all watchers failed!");
        (void)close(descriptor);
        return -1;
    }
    return descriptor;
}

// The kernel drops a watch together with the file that it was on.
static void watch_again(int descriptor, hbs_watch_entry *entry) {
    HBS_LOG(HBS_INFO, "HOSTBASE: watched file %s was removed or replaced - watch it again", entry->path);
    const int file = open(entry->path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644); // not emptied: it may be new
    if (file >= 0)
        (void)close(file);
    (void)watch_file(descriptor, entry);
}

static void handle_event(int descriptor, hbs_watch_entry *table, const inotify_event *event) {
    const bool overflow = (event->mask & IN_Q_OVERFLOW) != 0;
    if (overflow)
        HBS_LOG(HBS_ERROR, "HOSTBASE: inotify queue overflow - look at every watched file");
    for (hbs_watch_entry *entry = table; in_use(entry); entry++) {
        if (overflow) {
            entry->handler(entry->path);
        } else if (entry->wd == event->wd && (event->mask & IN_IGNORED) != 0) {
            watch_again(descriptor, entry);
            return;
        } else if (entry->wd == event->wd && (event->mask & entry->mask) != 0) {
            entry->handler(entry->path);
            return;
        }
    }
}

void hbs_file_watch_read(int descriptor, hbs_watch_entry *table) {
    char buffer[4096];
    const ssize_t count = read(descriptor, buffer, sizeof(buffer));
    inotify_event event;
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(event)) <= count;
         at += static_cast<ssize_t>(sizeof(event) + event.len)) {
        memcpy(&event, buffer + at, sizeof(event));
        handle_event(descriptor, table, &event);
    }
}

void *file_watch_thread(void *) {
    hbs_file_watch_identify();
    const int descriptor = hbs_file_watch_open(watch_table);
    if (descriptor < 0)
        return nullptr;
    for (;;)
        hbs_file_watch_read(descriptor, watch_table);
}
