#include "linux_static.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <hbs_db.h>

#include "linux_conf.h"
#include "linux_log.h"

namespace {

constexpr const char *directory = HBS_PERSISTENT_DIR "/dhcpd";
constexpr const char *ending = ".static_leases";
constexpr uint32_t changes = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr const char *server = "dnsmasq";
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

// A process number may be another program's by now. What is hidden from this user is trusted: the number
// stands in a file of root's.
bool is_server(pid_t pid) {
    char path[64];
    char name[16] = "";
    (void)snprintf(path, sizeof path, "/proc/%d/comm", static_cast<int>(pid));
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return true;
    const bool read = fscanf(file, "%15s", name) == 1;
    (void)fclose(file);
    return read && strcmp(name, server) == 0;
}

void have_it_read(const char *pid_file) {
    FILE *file = fopen(pid_file, "re");
    if (file == nullptr)
        return; // it reads the file when it starts
    int pid = 0;
    const bool read = fscanf(file, "%d", &pid) == 1;
    (void)fclose(file);
    if (read && pid > 1 && is_server(pid) && kill(pid, SIGHUP) != 0 && errno != ESRCH)
        linux_log(3, "dnsmasq (%d) cannot be told of static leases: %s", pid, strerror(errno));
}

void *follow(void *) {
    const linux_conf *conf = linux_settings();
    const int queue = inotify_init1(IN_CLOEXEC);
    if (queue < 0 || inotify_add_watch(queue, directory, changes) < 0)
        linux_log(3, "changes of static leases are not heard of: %s", strerror(errno));
    alignas(inotify_event) char events[4096];
    do {
        if (write_hosts(conf->dhcp_hosts))
            have_it_read(conf->dhcp_pid);
    } while (queue >= 0 && read(queue, events, sizeof events) > 0);
    return nullptr;
}

} // namespace

void linux_static_start() {
    if (linux_settings()->dhcp_hosts[0] == '\0')
        return;
    sigset_t all;
    sigset_t before;
    pthread_t thread;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    if (pthread_create(&thread, nullptr, follow, nullptr) == 0)
        (void)pthread_detach(thread);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
