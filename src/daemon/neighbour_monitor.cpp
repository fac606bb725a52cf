#include "daemon/neighbour_monitor.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/counters.h"
#include "base/event.h"
#include "base/log.h"
#include "base/netlink.h"
#include "base/scope.h"
#include "daemon/neighbour_message.h"
#include "daemon/neighbour_tables.h"

namespace {

// Room for some thousands of notifications; the default holds 256.
constexpr int RECEIVE_BUFFER_SIZE = 4 << 20;

constexpr size_t BUFFER_LIMIT = 8192;

constexpr int RETRY_MS = 1000;

size_t buffer_size() {
    return std::min(static_cast<size_t>(sysconf(_SC_PAGESIZE)), BUFFER_LIMIT);
}

void handle_neigh(hbs_netlink_bytes message, void *) {
    const hbs_event event;
    hbs_handle_neigh_message(message.data, message.size);
}

// What the thread knows of its socket.
struct monitor {
    int socket;
    bool lost;            // something was lost that is not made up for yet
    uint32_t known_drops; // of which it has been made up for
    int64_t in_step_ms;   // up to here nothing was lost (hbs_monotonic_milliseconds)
};

// Notifications that the kernel could not queue on a socket, so far. Returns whether it counts them.
bool read_drops(int socket, uint32_t *drops) {
    uint32_t information[SK_MEMINFO_VARS] = {};
    socklen_t length = sizeof(information);
    if (getsockopt(socket, SOL_SOCKET, SO_MEMINFO, information, &length) != 0 ||
        length <= SK_MEMINFO_DROPS * sizeof(information[0]))
        return false;
    *drops = information[SK_MEMINFO_DROPS];
    return true;
}

// Where the kernel counts drops, they are not reported as errors besides.
void prepare(const monitor *m) {
    const int size = RECEIVE_BUFFER_SIZE;
    if (setsockopt(m->socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0)
        (void)setsockopt(m->socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)); // as far as allowed
    uint32_t drops = 0;
    if (!read_drops(m->socket, &drops)) {
        HBS_LOG(HBS_ALERT, "HOSTBASE: nl_listen_thread: the kernel does not count lost neighbour events");
        return;
    }
    const int on = 1;
    (void)setsockopt(m->socket, SOL_NETLINK, NETLINK_NO_ENOBUFS, &on, sizeof(on));
}

bool queue_is_empty(int socket) {
    pollfd queue = {socket, POLLIN, 0};
    return poll(&queue, 1, 0) == 0;
}

// Reads both tables once the socket had to drop notifications. What is queued is older than the tables, so
// it is handled first.
void make_up_for_drops(monitor *m) {
    const int64_t now = hbs_monotonic_milliseconds();
    uint32_t drops = m->known_drops;
    (void)read_drops(m->socket, &drops);
    m->lost = m->lost || drops != m->known_drops;
    if (!m->lost) {
        m->in_step_ms = now;
        return;
    }
    if (!queue_is_empty(m->socket))
        return;
    HBS_LOG(HBS_ALERT, "HOSTBASE: nl_listen_thread: %u neighbour events lost - reading the neighbour tables",
            drops - m->known_drops);
    if (!hbs_read_neighbour_tables(m->in_step_ms)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: nl_listen_thread: cannot read the neighbour tables");
        return;
    }
    hbs_count(HBS_COUNT_LOST, drops - m->known_drops);
    m->lost = false;
    m->known_drops = drops;
    m->in_step_ms = now;
}

// Returns whether the thread goes on. Tables that could not be read are tried again when nothing comes.
bool handle_next(monitor *m, uint8_t *buffer, size_t size) {
    ssize_t result = hbs_netlink_receive(m->socket, buffer, size, m->lost ? RETRY_MS : -1);
    if (result < 0 && (errno == ENOBUFS || errno == ETIMEDOUT)) {
        m->lost = true;
        return true;
    }
    if (result > 0)
        result = hbs_netlink_walk({buffer, static_cast<size_t>(result)}, handle_neigh, nullptr);
    if (result < 0)
        perror("error");
    return result > 0;
}

void listen(monitor *m) {
    alignas(nlmsghdr) uint8_t buffer[BUFFER_LIMIT];
    while (handle_next(m, buffer, buffer_size()))
        make_up_for_drops(m);
}

} // namespace

void *nl_listen_thread(void *) {
    const int socket = hbs_netlink_open();
    if (socket < 0) {
        perror("mnl_socket_open failed.");
        return nullptr;
    }
    hbs_at_exit end([socket] { (void)close(socket); });
    monitor m = {socket, false, 0, hbs_monotonic_milliseconds()};
    prepare(&m);
    if (!hbs_netlink_bind(socket, RTMGRP_NEIGH)) {
        perror("mnl_socket_bind failed");
        return nullptr;
    }
    listen(&m);
    return nullptr;
}
