#include "gateway/neighbour_query.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <sys/socket.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/netlink.h"
#include "base/scope.h"
#include "gateway/neighbour_answer.h"

namespace {

constexpr size_t ANSWER_SIZE = 8192;
constexpr int PATIENCE_MS = 200;

std::atomic<uint8_t> neigh_query_seq; // incremented before every query

// Differs from query to query, and is never 0 as in a notification.
uint32_t next_sequence() {
    const uint8_t number = ++neigh_query_seq;
    return (static_cast<uint32_t>(time(nullptr)) << 8 | number) | 1u << 31;
}

// The first datagram of the answer. The notifications before it are passed over, also those that found no
// room (ENOBUFS). Returns its length, or -1.
ssize_t receive_answer(int socket, uint32_t sequence, uint8_t *answer, size_t size) {
    const uint32_t port = hbs_netlink_port(socket);
    const int64_t start = hbs_monotonic_milliseconds();
    for (int left = PATIENCE_MS; left > 0;) {
        const ssize_t length = hbs_netlink_receive(socket, answer, size, left);
        if (length < 0 && errno != ENOBUFS)
            return -1;
        if (length > 0 && hbs_is_answer(answer, static_cast<size_t>(length), sequence, port))
            return length;
        left = PATIENCE_MS - static_cast<int>(hbs_monotonic_milliseconds() - start);
    }
    return -1;
}

} // namespace

int hbs_query_neigh_lladdr(int family, const uint8_t *address, uint8_t *mac_out) {
    if ((family != AF_INET && family != AF_INET6) || address == nullptr || mac_out == nullptr)
        return -1;
    const int socket = hbs_netlink_open();
    if (socket < 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Cannot open netlink socket for querying neighbor entries");
        return -1;
    }
    hbs_at_exit end([socket] { (void)close(socket); });
    if (!hbs_netlink_bind(socket, RTMGRP_NEIGH)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Cannot bind netlink socket for querying neighbor entries");
        return -1;
    }
    const uint32_t sequence = next_sequence();
    if (!hbs_netlink_request_neighbours(socket, family, sequence)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to send neighbor query to netlink socket");
        return -1;
    }
    // One datagram only: the neighbour tables of a home LAN are small, and the caller is not held up longer.
    alignas(nlmsghdr) uint8_t answer[ANSWER_SIZE];
    const ssize_t length = receive_answer(socket, sequence, answer, sizeof answer);
    if (length < 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Error happens upon recv from neighbor netlink socket (ret:%d)",
                static_cast<int>(length));
        return -1;
    }
    return hbs_find_lladdr(answer, static_cast<size_t>(length), sequence, family, address, mac_out);
}
