#include "linux_control.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <hbs_db.h>

#include "linux_conf.h"
#include "linux_watch.h"

namespace {

constexpr const char *own_directory = HBS_RUNTIME_DIR "/tmp";
constexpr const char *own_prefix = "hostapd-";

bool fill_address(sockaddr_un *address, const char *directory, const char *before, const char *name) {
    *address = {};
    address->sun_family = AF_UNIX;
    const int length =
        snprintf(address->sun_path, sizeof address->sun_path, "%s/%s%s", directory, before, name);
    return length > 0 && static_cast<size_t>(length) < sizeof address->sun_path;
}

bool own_address(sockaddr_un *address, const char *name, unsigned connection) {
    char before[48];
    (void)snprintf(before, sizeof before, "%s%d-%u-", own_prefix, getpid(), connection);
    return fill_address(address, own_directory, before, name);
}

} // namespace

void linux_control_clean() {
    DIR *folder = opendir(own_directory);
    if (folder == nullptr)
        return;
    while (const dirent *entry = readdir(folder))
        if (strncmp(entry->d_name, own_prefix, strlen(own_prefix)) == 0)
            (void)unlinkat(dirfd(folder), entry->d_name, 0);
    (void)closedir(folder);
}

namespace {

// One that was killed leaves its socket behind.
bool is_served(const sockaddr_un *theirs) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return true; // that cannot be told
    const bool refused = connect(fd, reinterpret_cast<const sockaddr *>(theirs), sizeof *theirs) != 0 &&
                         (errno == ECONNREFUSED || errno == ENOENT);
    (void)close(fd);
    return !refused;
}

} // namespace

bool linux_control_is_there(const char *name) {
    sockaddr_un theirs;
    struct stat file = {};
    return strlen(name) < IFNAMSIZ && fill_address(&theirs, linux_settings()->hostapd, "", name) &&
           stat(theirs.sun_path, &file) == 0 && S_ISSOCK(file.st_mode) && linux_watch_start() &&
           linux_watch_index(name) != 0 && is_served(&theirs);
}

int linux_control_open(const char *name, unsigned connection) {
    sockaddr_un own;
    sockaddr_un theirs;
    if (!own_address(&own, name, connection) || !fill_address(&theirs, linux_settings()->hostapd, "", name))
        return -1;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (bind(fd, reinterpret_cast<sockaddr *>(&own), sizeof own) == 0 &&
        connect(fd, reinterpret_cast<sockaddr *>(&theirs), sizeof theirs) == 0)
        return fd;
    linux_control_close(fd, name, connection);
    return -1;
}

void linux_control_close(int fd, const char *name, unsigned connection) {
    sockaddr_un own;
    (void)close(fd);
    if (own_address(&own, name, connection))
        (void)unlink(own.sun_path);
}

ssize_t linux_control_receive(int fd, char *text, size_t size, int timeout_ms) {
    pollfd waiting = {fd, POLLIN, 0};
    if (poll(&waiting, 1, timeout_ms) != 1)
        return -1;
    const ssize_t length = recv(fd, text, size - 1, MSG_DONTWAIT);
    if (length >= 0)
        text[length] = '\0';
    return length;
}
