// dnsmasq's file of hosts, made of the daemon's files of static leases.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/scope.h"
#include "linux_log.h"
#include "linux_static.h"

namespace {

constexpr const char *ending = ".static_leases";
constexpr mode_t readable = 0644; // dnsmasq is another user

bool failing; // the last try

// Said once until it succeeds. Returns false.
bool complain(const char *path, const char *what) {
    if (!failing)
        linux_log(3, "%s cannot be %s, dnsmasq keeps the static leases that it has: %s", path, what,
                  strerror(errno));
    failing = true;
    return false;
}

bool ends_with(const char *name, const char *end) {
    const size_t length = strlen(name);
    return length >= strlen(end) && strcmp(name + length - strlen(end), end) == 0;
}

// One that has just gone holds none.
bool add_file(const char *path, FILE *hosts) {
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return errno == ENOENT || complain(path, "read");
    hbs_at_exit close([file] { (void)fclose(file); });
    char line[256];
    char hosts_line[64];
    while (fgets(line, sizeof line, file) != nullptr)
        if (linux_static_line(line, hosts_line, sizeof hosts_line))
            (void)fputs(hosts_line, hosts);
    return ferror(file) == 0 || complain(path, "read");
}

bool add_files(const char *directory, FILE *hosts) {
    DIR *folder = opendir(directory);
    if (folder == nullptr)
        return errno == ENOENT || complain(directory, "read");
    hbs_at_exit close([folder] { (void)closedir(folder); });
    errno = 0;
    while (const dirent *entry = readdir(folder)) {
        char path[PATH_MAX];
        (void)snprintf(path, sizeof path, "%s/%s", directory, entry->d_name);
        if (ends_with(path, ending) && !add_file(path, hosts))
            return false;
        errno = 0;
    }
    return errno == 0 || complain(directory, "read");
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

// Returns whether all of it is on the disk.
bool write_beside(const char *directory, const char *beside) {
    FILE *hosts = fopen(beside, "we");
    if (hosts == nullptr)
        return complain(beside, "written");
    const bool read = add_files(directory, hosts);
    const bool prepared = fchmod(fileno(hosts), readable) == 0 && fflush(hosts) == 0 && ferror(hosts) == 0 &&
                          fsync(fileno(hosts)) == 0;
    const bool written = fclose(hosts) == 0 && prepared;
    return read && (written || complain(beside, "written"));
}

} // namespace

linux_hosts linux_hosts_write(const char *directory, const char *path) {
    char beside[PATH_MAX];
    (void)snprintf(beside, sizeof beside, "%s.new", path);
    hbs_at_exit clean([&beside] { (void)unlink(beside); }); // unless it has another name by then
    if (!write_beside(directory, beside))
        return linux_hosts::failed;
    const bool same = same_contents(beside, path);
    if (!same && rename(beside, path) != 0) {
        (void)complain(path, "replaced");
        return linux_hosts::failed;
    }
    failing = false;
    return same ? linux_hosts::same : linux_hosts::changed;
}
