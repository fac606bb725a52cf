#include "linux_static.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <hbs_db.h>

#include "common_thread.h"
#include "linux_conf.h"
#include "linux_log.h"

namespace {

constexpr const char *directory = HBS_PERSISTENT_DIR "/dhcpd";
constexpr uint32_t changes = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_MOVE_SELF;
constexpr const char *server = "dnsmasq";
constexpr const char *processes_of_unit = "/sys/fs/cgroup/system.slice/dnsmasq.service/cgroup.procs";
constexpr int retry_ms = 1000;

enum class answer { no, yes, unknown }; // unknown: to be asked again

bool has_its_name(FILE *comm) {
    char name[16] = "";
    return fscanf(comm, "%15s", name) == 1 && strcmp(name, server) == 0;
}

// What a file that cannot be opened says: one that is there may be opened a second later.
answer without_file() {
    return errno == EMFILE || errno == ENFILE || errno == ENOMEM ? answer::unknown : answer::no;
}

answer is_of_unit(pid_t pid) {
    FILE *processes = fopen(processes_of_unit, "re");
    if (processes == nullptr)
        return without_file();
    int listed = 0;
    while (listed != pid && fscanf(processes, "%d", &listed) == 1) {}
    (void)fclose(processes);
    return listed == pid ? answer::yes : answer::no;
}

// A process number may be another program's by now. Where the processes of other users are hidden, the
// service manager's list of its processes says so.
answer is_server(pid_t pid) {
    char path[64];
    (void)snprintf(path, sizeof path, "/proc/%d/comm", static_cast<int>(pid));
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return without_file() == answer::unknown ? answer::unknown : is_of_unit(pid);
    const bool is = has_its_name(file);
    (void)fclose(file);
    return is ? answer::yes : answer::no;
}

// 0 = there is none, so that no server runs; -1 = there is one that says nothing yet.
pid_t server_of(const char *pid_file) {
    FILE *file = fopen(pid_file, "re");
    if (file == nullptr)
        return errno == ENOENT ? 0 : -1;
    int pid = 0;
    const bool read = fscanf(file, "%d", &pid) == 1 && pid > 1;
    (void)fclose(file);
    return read ? pid : -1;
}

// Returns whether nothing is left to be done. A server that does not run reads the file when it starts.
bool have_it_read(const char *pid_file) {
    const pid_t pid = server_of(pid_file);
    const answer is = pid > 0 ? is_server(pid) : answer::unknown;
    if (pid <= 0 || is == answer::unknown)
        return pid == 0;
    if (is == answer::no)
        linux_log(3, "%s names process %d, which is not known to be dnsmasq", pid_file, pid);
    else if (kill(pid, SIGHUP) != 0)
        linux_log(3, "dnsmasq (%d) cannot be told of static leases: %s", pid, strerror(errno));
    return true;
}

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
            told = have_it_read(conf->dhcp_pid);
        queue = wait_for_change(queue, queue < 0 || hosts == linux_hosts::failed || !told);
    }
}

void *have_leases_told(void *) {
    while (!have_it_read(linux_settings()->dhcp_pid))
        (void)poll(nullptr, 0, retry_ms);
    return nullptr;
}

} // namespace

void linux_static_start() {
    const bool writes = linux_settings()->dhcp_hosts[0] != '\0';
    (void)common_thread_start(writes ? follow : have_leases_told);
}
