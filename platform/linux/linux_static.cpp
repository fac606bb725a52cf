#include "linux_static.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <hbs_db.h>

#include "common_thread.h"
#include "linux_conf.h"
#include "linux_log.h"

namespace {

constexpr const char *directory = HBS_PERSISTENT_DIR "/dhcpd";
constexpr const char *ending = ".static_leases";
constexpr uint32_t changes = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr const char *server = "dnsmasq";
constexpr const char *processes_of_unit = "/sys/fs/cgroup/system.slice/dnsmasq.service/cgroup.procs";
constexpr mode_t readable = 0644; // dnsmasq is another user

bool ends_with(const char *name, const char *end) {
    const size_t length = strlen(name);
    return length >= strlen(end) && strcmp(name + length - strlen(end), end) == 0;
}

void add_file(const char *name, FILE *hosts) {
    char path[PATH_MAX];
    (void)snprintf(path, sizeof path, "%s/%s", directory, name);
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return;
    char line[256];
    char hosts_line[64];
    while (fgets(line, sizeof line, file) != nullptr)
        if (linux_static_line(line, hosts_line, sizeof hosts_line))
            (void)fputs(hosts_line, hosts);
    (void)fclose(file);
}

void add_files(FILE *hosts) {
    DIR *folder = opendir(directory);
    if (folder == nullptr)
        return;
    while (const dirent *entry = readdir(folder))
        if (ends_with(entry->d_name, ending))
            add_file(entry->d_name, hosts);
    (void)closedir(folder);
}

bool same_contents(const char *one, const char *other) {
    FILE *a = fopen(one, "re");
    FILE *b = fopen(other, "re");
    bool same = a != nullptr && b != nullptr;
    for (int byte = 0; same && byte != EOF;) {
        byte = fgetc(a);
        same = byte == fgetc(b);
    }
    if (a != nullptr)
        (void)fclose(a);
    if (b != nullptr)
        (void)fclose(b);
    return same;
}

// Returns whether the file is another now.
bool write_hosts(const char *path) {
    char beside[PATH_MAX];
    (void)snprintf(beside, sizeof beside, "%s.new", path);
    FILE *hosts = fopen(beside, "we");
    if (hosts == nullptr) {
        linux_log(3, "%s cannot be written: %s", beside, strerror(errno));
        return false;
    }
    add_files(hosts);
    const bool prepared =
        fchmod(fileno(hosts), readable) == 0 && fflush(hosts) == 0 && fsync(fileno(hosts)) == 0;
    const bool written = fclose(hosts) == 0 && prepared;
    if (written && !same_contents(beside, path) && rename(beside, path) == 0)
        return true;
    (void)unlink(beside);
    return false;
}

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

void *follow(void *) {
    const linux_conf *conf = linux_settings();
    const bool writes = conf->dhcp_hosts[0] != '\0';
    if (writes)
        (void)write_hosts(conf->dhcp_hosts);
    have_it_read(conf->dhcp_pid); // and tell all its leases, which the daemon may not know
    if (!writes)
        return nullptr;
    const int queue = inotify_init1(IN_CLOEXEC);
    if (queue < 0 || inotify_add_watch(queue, directory, changes) < 0)
        linux_log(3, "changes of static leases are not heard of: %s", strerror(errno));
    alignas(inotify_event) char events[4096];
    // What changed before the watch is seen at its first turn.
    do {
        if (write_hosts(conf->dhcp_hosts))
            have_it_read(conf->dhcp_pid);
    } while (queue >= 0 && read(queue, events, sizeof events) > 0);
    return nullptr;
}

} // namespace

void linux_static_start() {
    (void)common_thread_start(follow);
}
