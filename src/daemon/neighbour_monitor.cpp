#include "daemon/neighbour_monitor.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/log.h"
#include "base/netlink.h"
#include "base/scope.h"
#include "daemon/neighbour_message.h"

// Room for some thousands of notifications; the default holds 256.
static constexpr int receive_buffer_size = 4 << 20;

static constexpr size_t buffer_limit = 8192;

static size_t buffer_size() {
    return std::min(static_cast<size_t>(sysconf(_SC_PAGESIZE)), buffer_limit);
}

static void handle_neigh(hbs_netlink_bytes message, void *) {
    hbs_handle_neigh_message(message.data, message.size);
}

// Notifications that the kernel could not queue on a socket, so far.
static uint32_t drops_of(int socket) {
    uint32_t information[SK_MEMINFO_VARS] = {};
    socklen_t length = sizeof(information);
    (void)getsockopt(socket, SOL_SOCKET, SO_MEMINFO, information, &length);
    return information[SK_MEMINFO_DROPS];
}

// An overflow must not become a receive error, which would end the thread: drops_of tells of it.
static void prepare(int socket) {
    const int size = receive_buffer_size;
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0)
        (void)setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)); // as far as the system allows
    const int on = 1;
    (void)setsockopt(socket, SOL_NETLINK, NETLINK_NO_ENOBUFS, &on, sizeof(on));
}

static bool queue_is_empty(int socket) {
    pollfd queue = {socket, POLLIN, 0};
    return poll(&queue, 1, 0) == 0;
}

// Reads both tables once the socket had to drop notifications. What is queued is older than the tables, so
// it is handled first. A table that cannot be read is tried again after the next notification.
static void make_up_for_drops(int socket, uint32_t *known_drops) {
    const uint32_t drops = drops_of(socket);
    if (drops == *known_drops || !queue_is_empty(socket))
        return;
    HBS_LOG(HBS_ALERT, "HOSTBASE: nl_listen_thread: %u neighbour events lost - reading the neighbour tables",
            drops - *known_drops);
    const bool read_ipv4 = hbs_netlink_dump_neighbours(AF_INET, handle_neigh, nullptr);
    if (!hbs_netlink_dump_neighbours(AF_INET6, handle_neigh, nullptr) || !read_ipv4) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: nl_listen_thread: cannot read the neighbour tables");
        return;
    }
    *known_drops = drops;
}

static void listen(int socket) {
    alignas(nlmsghdr) uint8_t buffer[buffer_limit];
    const size_t size = buffer_size();
    uint32_t known_drops = 0;
    for (;;) {
        ssize_t result = hbs_netlink_receive(socket, buffer, size, -1);
        if (result > 0)
            result = hbs_netlink_walk({buffer, static_cast<size_t>(result)}, handle_neigh, nullptr);
        if (result < 0)
            perror("error");
        if (result <= 0)
            return;
        make_up_for_drops(socket, &known_drops);
    }
}

void *nl_listen_thread(void *) {
    const int socket = hbs_netlink_open();
    if (socket < 0) {
        perror("mnl_socket_open failed.");
        return nullptr;
    }
    hbs_at_exit end([socket] { (void)close(socket); });
    prepare(socket);
    if (!hbs_netlink_bind(socket, RTMGRP_NEIGH)) {
        perror("mnl_socket_bind failed");
        return nullptr;
    }
    listen(socket);
    return nullptr;
}
