#include "linux_static.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <hbs_db.h>

#include "common_thread.h"
#include "linux_conf.h"
#include "linux_log.h"
#include "linux_server.h"

namespace {

constexpr const char *directory = HBS_PERSISTENT_DIR "/dhcpd";
constexpr uint32_t changes = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_MOVE_SELF;
constexpr int retry_ms = 1000;

// Said once until it succeeds. Returns -1 when changes are not heard of.
int open_queue() {
    static bool said;
    const int queue = inotify_init1(IN_CLOEXEC);
    const bool heard = queue >= 0 && inotify_add_watch(queue, directory, changes) >= 0;
    if (!heard && !said)
        linux_log(3, "changes of static leases are not heard of at once: %s", strerror(errno));
    if (!heard && queue >= 0)
        (void)close(queue);
    said = !heard;
    return heard ? queue : -1;
}

// Whether the kernel says that the watch is no more: its directory has gone, or has another name.
bool has_ended(const char *events, ssize_t size) {
    inotify_event event;
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof event) <= size;) {
        memcpy(&event, events + at, sizeof event);
        if ((event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0)
            return true;
        at += static_cast<ssize_t>(sizeof event + event.len);
    }
    return false;
}

// Until something changes, or until it is to be tried again. Returns the queue, -1 once it is of no use.
int wait_for_change(int queue, bool again) {
    alignas(inotify_event) char events[4096];
    pollfd waiting = {queue, POLLIN, 0};
    if (poll(&waiting, 1, again ? retry_ms : -1) <= 0 ||
        !has_ended(events, read(queue, events, sizeof events)))
        return queue;
    (void)close(queue);
    return -1;
}

void *follow(void *) {
    const linux_conf *conf = linux_settings();
    (void)linux_hosts_write(directory, conf->dhcp_hosts);
    bool told = false; // first all its leases, which the daemon may not know
    for (int queue = -1;;) {
        if (queue < 0)
            queue = open_queue();
        // What changed before the watch is seen at its first turn.
        const linux_hosts hosts = linux_hosts_write(directory, conf->dhcp_hosts);
        told = told && hosts != linux_hosts::changed;
        if (!told)
            told = linux_server_tell(conf->dhcp_pid);
        queue = wait_for_change(queue, queue < 0 || hosts == linux_hosts::failed || !told);
    }
}

void *have_leases_told(void *) {
    while (!linux_server_tell(linux_settings()->dhcp_pid))
        (void)poll(nullptr, 0, retry_ms);
    return nullptr;
}

} // namespace

void linux_static_start() {
    const bool writes = linux_settings()->dhcp_hosts[0] != '\0';
    (void)common_thread_start(writes ? follow : have_leases_told);
}
