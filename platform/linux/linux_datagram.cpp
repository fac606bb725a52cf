#include "linux_datagram.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

bool linux_datagram_send(const char *path, const char *text, size_t length, unsigned seconds) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t size = strlen(path);
    if (size == 0 || size >= sizeof address.sun_path)
        return false;
    memcpy(address.sun_path, path, size);
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    const timeval patience = {static_cast<time_t>(seconds), 0};
    const bool waits =
        seconds != 0 && setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) == 0;
    const auto whole = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
    const bool sent = sendto(fd, text, length, MSG_NOSIGNAL | (waits ? 0 : MSG_DONTWAIT),
                             reinterpret_cast<sockaddr *>(&address), whole) >= 0;
    (void)close(fd);
    return sent;
}
