#include "linux_netlink.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <pthread.h>
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
    const int64_t end = linux_now_ms() + patience_ms;
    const int socket = hbs_netlink_open();
    if (socket < 0)
        return false;
    hbs_at_exit close_it([socket] { (void)close(socket); });
    if (!hbs_netlink_bind(socket, 0) || !send_request(socket, request))
        return false;
    alignas(nlmsghdr) uint8_t buffer[datagram_size];
    int result = 1;
    while (result > 0) {
        const int64_t left = end - linux_now_ms();
        const ssize_t length =
            hbs_netlink_receive(socket, buffer, sizeof buffer, left > 0 ? static_cast<int>(left) : 0);
        result = length < 0 ? -1 : hbs_netlink_walk({buffer, static_cast<size_t>(length)}, visit, context);
    }
    return result == 0;
}

int64_t linux_patience_left(linux_patience *patience, int64_t now_ms) {
    if (now_ms - patience->began_ms >= LINUX_ROUND_MS)
        *patience = {now_ms, 0};
    return patience->spent_ms < LINUX_PATIENCE_MS ? LINUX_PATIENCE_MS - patience->spent_ms : 0;
}

void linux_patience_spend(linux_patience *patience, int64_t spent_ms) {
    patience->spent_ms += spent_ms;
}

bool linux_ask_soon(nlmsghdr *request, hbs_netlink_visit visit, void *context) {
    static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    static linux_patience patience;
    const int64_t began = linux_now_ms();
    (void)pthread_mutex_lock(&lock);
    const auto left = static_cast<int>(linux_patience_left(&patience, began));
    (void)pthread_mutex_unlock(&lock);
    if (left == 0) {
        errno = ETIMEDOUT;
        return false;
    }
    const bool whole = linux_ask(request, left, visit, context);
    const int error = errno;
    (void)pthread_mutex_lock(&lock);
    linux_patience_spend(&patience, linux_now_ms() - began);
    (void)pthread_mutex_unlock(&lock);
    errno = error;
    return whole;
}

uint32_t linux_u32(hbs_netlink_bytes bytes) {
    uint32_t number = 0;
    if (bytes.size == sizeof number)
        memcpy(&number, bytes.data, sizeof number);
    return number;
}
