#include "daemon/file_watch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/locked_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "base/scratch_file.h"
#include "events/lease_notices.h"

namespace {

// Mode of a notification file that is made here, cut by the umask: a DHCP server may run as another user.
constexpr mode_t NOTICES_MODE = 0666;

// Beside the table's events: the name may have come to mean another file, or none. A symbolic link is not
// followed.
constexpr uint32_t NAME_EVENTS = IN_ATTRIB | IN_MOVE_SELF;

bool read_dhcpv4_notices(const char *path) {
    return hbs_dhcpv4_notices_read(path, hbs_handle_dhcpv4_notice);
}

bool read_dhcpv6_notices(const char *path) {
    return hbs_dhcpv6_notices_read(path, hbs_handle_dhcpv6_notice);
}

hbs_watch_entry watch_table[] = {
    {HBS_DHCPV4_NOTICES, -1, IN_CLOSE_WRITE, read_dhcpv4_notices},
    {HBS_DHCPV6_NOTICES, -1, IN_CLOSE_WRITE, read_dhcpv6_notices},
    {nullptr, -1, 0, nullptr},
};

bool in_use(const hbs_watch_entry *entry) {
    return entry->path != nullptr && entry->handler != nullptr;
}

} // namespace

void hbs_file_watch_identify() {
    FILE *file = hbs_scratch_make(HBS_FILE_WATCH_PID);
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error creating " HBS_FILE_WATCH_PID);
        return;
    }
    (void)fprintf(file, "pid:%d tid:%d", static_cast<int>(getpid()), static_cast<int>(syscall(SYS_gettid)));
    (void)fclose(file);
}

namespace {

void empty_file(const char *path) {
    const int file = hbs_locked_descriptor(path, O_WRONLY | O_CREAT, NOTICES_MODE, hbs_lock::exclusive);
    if (file == -1 || ftruncate(file, 0) != 0)
        HBS_LOG(HBS_ERROR, "HOSTBASE: error creating/truncating file(%s) for inotify: %s", path,
                strerror(errno));
    else
        HBS_LOG(HBS_INFO, "HOSTBASE: creating/truncating file for inotify: %s", path);
    if (file != -1)
        (void)close(file);
}

void retry_later(hbs_watch_entry *entry) {
    entry->retry = true;
    entry->retry_at = hbs_monotonic_milliseconds() + HBS_WATCH_RETRY;
}

void handle(hbs_watch_entry *entry) {
    if (!entry->handler(entry->path))
        retry_later(entry);
}

// Watches what bears the entry's name. Returns whether it is watched now.
bool add_watch(int descriptor, hbs_watch_entry *entry) {
    entry->wd = inotify_add_watch(descriptor, entry->path, entry->mask | NAME_EVENTS | IN_DONT_FOLLOW);
    if (entry->wd == -1)
        retry_later(entry);
    return entry->wd != -1;
}

// Watches an entry's file and deals with what it holds already. Returns whether it is watched now.
bool watch_file(int descriptor, hbs_watch_entry *entry) {
    if (!add_watch(descriptor, entry)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error adding inotify watch on %s with mask %x: %s", entry->path,
                entry->mask, strerror(errno));
        return false;
    }
    handle(entry);
    return true;
}

} // namespace

int hbs_file_watch_open(hbs_watch_entry *table) {
    const int descriptor = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
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

namespace {

// Not emptied: it may be new, and hold something.
void make_missing(const hbs_watch_entry *entry) {
    const int file = hbs_plain_open(entry->path, O_WRONLY | O_CREAT, NOTICES_MODE);
    if (file != -1)
        (void)close(file);
}

// The kernel drops a watch together with the file that it was on.
void watch_again(int descriptor, hbs_watch_entry *entry) {
    HBS_LOG(HBS_INFO, "HOSTBASE: watched file %s was removed or replaced - watch it again", entry->path);
    make_missing(entry);
    (void)watch_file(descriptor, entry);
}

// A file that is open somewhere lives on without its name, and would be watched for nothing.
void check_name(int descriptor, hbs_watch_entry *entry) {
    const int32_t old = entry->wd;
    if (inotify_add_watch(descriptor, entry->path, entry->mask | NAME_EVENTS | IN_DONT_FOLLOW) == old)
        return;
    (void)inotify_rm_watch(descriptor, old);
    watch_again(descriptor, entry);
}

void handle_event(int descriptor, hbs_watch_entry *entry, uint32_t mask) {
    if ((mask & IN_IGNORED) != 0)
        watch_again(descriptor, entry);
    else if ((mask & NAME_EVENTS) != 0)
        check_name(descriptor, entry);
    else if ((mask & entry->mask) != 0 && !entry->retry) // else it is the close of the try that failed
        handle(entry);
}

void dispatch_event(int descriptor, hbs_watch_entry *table, const inotify_event *event) {
    const bool overflow = (event->mask & IN_Q_OVERFLOW) != 0;
    if (overflow)
        HBS_LOG(HBS_ERROR, "HOSTBASE: inotify queue overflow - look at every watched file");
    for (hbs_watch_entry *entry = table; in_use(entry); entry++) {
        if (overflow) {
            handle(entry);
        } else if (entry->wd == event->wd) {
            handle_event(descriptor, entry, event->mask);
            return;
        }
    }
}

// Milliseconds until an entry's retry is due; 0 when it is.
int until_retry(const hbs_watch_entry *entry) {
    return static_cast<int>(std::max<int64_t>(entry->retry_at - hbs_monotonic_milliseconds(), 0));
}

// How long to wait for an event, as poll takes it: -1 while no retry is pending.
int patience(const hbs_watch_entry *table) {
    int wait = -1;
    for (const hbs_watch_entry *entry = table; in_use(entry); entry++)
        if (entry->retry && (wait == -1 || until_retry(entry) < wait))
            wait = until_retry(entry);
    return wait;
}

// A file that is not watched may be there again, with its directory; that it still is not is not logged
// again.
void retry(int descriptor, hbs_watch_entry *entry) {
    entry->retry = false;
    if (entry->wd == -1) {
        make_missing(entry);
        if (!add_watch(descriptor, entry))
            return;
        HBS_LOG(HBS_INFO, "HOSTBASE: file %s is there again and watched", entry->path);
    }
    handle(entry);
}

void do_retries(int descriptor, hbs_watch_entry *table) {
    for (hbs_watch_entry *entry = table; in_use(entry); entry++)
        if (entry->retry && until_retry(entry) == 0)
            retry(descriptor, entry);
}

} // namespace

void hbs_file_watch_read(int descriptor, hbs_watch_entry *table) {
    pollfd ready = {descriptor, POLLIN, 0};
    (void)poll(&ready, 1, patience(table));
    char buffer[4096];
    const ssize_t count = read(descriptor, buffer, sizeof(buffer));
    inotify_event event;
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(event)) <= count;
         at += static_cast<ssize_t>(sizeof(event) + event.len)) {
        memcpy(&event, buffer + at, sizeof(event));
        dispatch_event(descriptor, table, &event);
    }
    do_retries(descriptor, table);
}

void *file_watch_thread(void *) {
    hbs_file_watch_identify();
    const int descriptor = hbs_file_watch_open(watch_table);
    if (descriptor < 0)
        return nullptr;
    for (;;)
        hbs_file_watch_read(descriptor, watch_table);
}
