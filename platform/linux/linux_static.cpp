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
constexpr uint32_t changes = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr const char *server = "dnsmasq";
constexpr const char *processes_of_unit = "/sys/fs/cgroup/system.slice/dnsmasq.service/cgroup.procs";
constexpr int retry_ms = 1000;

bool has_its_name(FILE *comm) {
    char name[16] = "";
    return fscanf(comm, "%15s", name) == 1 && strcmp(name, server) == 0;
}

bool is_of_unit(pid_t pid) {
    FILE *processes = fopen(processes_of_unit, "re");
    int listed = 0;
    while (processes != nullptr && listed != pid && fscanf(processes, "%d", &listed) == 1) {}
    if (processes != nullptr)
        (void)fclose(processes);
    return listed == pid;
}

// A process number may be another program's by now. Where the processes of other users are hidden, the
// service manager's list of its processes says so.
bool is_server(pid_t pid) {
    char path[64];
    (void)snprintf(path, sizeof path, "/proc/%d/comm", static_cast<int>(pid));
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return is_of_unit(pid);
    const bool is = has_its_name(file);
    (void)fclose(file);
    return is;
}

void have_it_read(const char *pid_file) {
    FILE *file = fopen(pid_file, "re");
    if (file == nullptr)
        return; // it reads the file when it starts
    int pid = 0;
    const bool read = fscanf(file, "%d", &pid) == 1;
    (void)fclose(file);
    if (!read || pid <= 1)
        return;
    if (!is_server(pid))
        linux_log(3, "%s names process %d, which is not known to be dnsmasq", pid_file, pid);
    else if (kill(pid, SIGHUP) != 0)
        linux_log(3, "dnsmasq (%d) cannot be told of static leases: %s", pid, strerror(errno));
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

// Until something changes, or until it is to be tried again.
void wait_for_change(int queue, bool again) {
    alignas(inotify_event) char events[4096];
    pollfd waiting = {queue, POLLIN, 0};
    if (poll(&waiting, 1, again ? retry_ms : -1) > 0)
        (void)!read(queue, events, sizeof events);
}

void *follow(void *) {
    const linux_conf *conf = linux_settings();
    (void)linux_hosts_write(directory, conf->dhcp_hosts);
    have_it_read(conf->dhcp_pid); // and tell all its leases, which the daemon may not know
    for (int queue = -1;;) {
        if (queue < 0)
            queue = open_queue();
        // What changed before the watch is seen at its first turn.
        const linux_hosts hosts = linux_hosts_write(directory, conf->dhcp_hosts);
        if (hosts == linux_hosts::changed)
            have_it_read(conf->dhcp_pid);
        wait_for_change(queue, queue < 0 || hosts == linux_hosts::failed);
    }
}

void *have_leases_told(void *) {
    have_it_read(linux_settings()->dhcp_pid);
    return nullptr;
}

} // namespace

void linux_static_start() {
    const bool writes = linux_settings()->dhcp_hosts[0] != '\0';
    (void)common_thread_start(writes ? follow : have_leases_told);
}
