#include "linux_netlink.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <unistd.h>

#include "base/scope.h"

namespace {

constexpr size_t datagram_size = 32768; // the kernel fills no further

bool send_request(int socket, nlmsghdr *request) {
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    request->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
    request->nlmsg_seq = 1;
    return sendto(socket, request, request->nlmsg_len, 0, reinterpret_cast<const sockaddr *>(&kernel),
                  sizeof kernel) >= 0;
}

} // namespace

int64_t linux_now_ms() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool linux_ask(nlmsghdr *request, int patience_ms, hbs_netlink_visit visit, void *context) {
    const int socket = hbs_netlink_open();
    if (socket < 0)
        return false;
    hbs_at_exit close_it([socket] { (void)close(socket); });
    if (!hbs_netlink_bind(socket, 0) || !send_request(socket, request))
        return false;
    // The sending itself may have waited for the kernel's lock.
    const int64_t end = linux_now_ms() + patience_ms;
    alignas(nlmsghdr) uint8_t buffer[datagram_size];
    int result = 1;
    while (result > 0) {
        const int64_t left = end - linux_now_ms();
        if (left <= 0) { // there is always more of a table while it is read
            errno = ETIMEDOUT;
            return false;
        }
        const ssize_t length = hbs_netlink_receive(socket, buffer, sizeof buffer, static_cast<int>(left));
        result = length < 0 ? -1 : hbs_netlink_walk({buffer, static_cast<size_t>(length)}, visit, context);
    }
    return result == 0;
}

uint32_t linux_u32(hbs_netlink_bytes bytes) {
    uint32_t number = 0;
    if (bytes.size == sizeof number)
        memcpy(&number, bytes.data, sizeof number);
    return number;
}
