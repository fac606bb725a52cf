#include "daemon/neighbour_monitor.h"

#if HBS_NETLINK

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/log.h"
#include "base/scope.h"
#include "daemon/neighbour_message.h"

// Room for some thousands of notifications; the default holds 256.
static constexpr int receive_buffer_size = 4 << 20;

static constexpr size_t buffer_limit = 8192;

static size_t buffer_size() {
    return std::min(static_cast<size_t>(sysconf(_SC_PAGESIZE)), buffer_limit);
}

static int handle_neigh(const nlmsghdr *message, void *) {
    hbs_handle_neigh_message(reinterpret_cast<const uint8_t *>(message), message->nlmsg_len);
    return MNL_CB_OK;
}

// Notifications that the kernel could not queue on a socket, so far.
static uint32_t drops_of(mnl_socket *socket) {
    uint32_t information[SK_MEMINFO_VARS] = {};
    socklen_t length = sizeof(information);
    (void)getsockopt(mnl_socket_get_fd(socket), SOL_SOCKET, SO_MEMINFO, information, &length);
    return information[SK_MEMINFO_DROPS];
}

// An overflow must not become a receive error, which would end the thread: drops_of tells of it.
static void prepare(mnl_socket *socket) {
    const int descriptor = mnl_socket_get_fd(socket);
    const int size = receive_buffer_size;
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        (void)setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &size,
                         sizeof(size)); // as far as the system allows
    }
    int on = 1;
    (void)mnl_socket_setsockopt(socket, NETLINK_NO_ENOBUFS, &on, sizeof(on));
}

static bool request_table(mnl_socket *socket, int family) {
    char buffer[NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ndmsg))] __attribute__((aligned(NLMSG_ALIGNTO))) = {};
    nlmsghdr *request = mnl_nlmsg_put_header(buffer);
    request->nlmsg_type = RTM_GETNEIGH;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    auto *header = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
    header->ndm_family = static_cast<uint8_t>(family);
    return mnl_socket_sendto(socket, request, request->nlmsg_len) >= 0;
}

// Puts every entry of one table through handle_neigh. Returns whether the table was read to its end.
static bool read_table(int family) {
    mnl_socket *socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (socket == nullptr)
        return false;
    hbs_at_exit close([socket] { (void)mnl_socket_close(socket); });
    if (mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) != 0 || !request_table(socket, family))
        return false;
    alignas(nlmsghdr) char buffer[buffer_limit];
    int result = MNL_CB_OK;
    while (result > MNL_CB_STOP) {
        const ssize_t length = mnl_socket_recvfrom(socket, buffer, sizeof(buffer));
        if (length < 0 && errno == EINTR)
            continue;
        result = length > 0 ? mnl_cb_run(buffer, static_cast<size_t>(length), 0, 0, handle_neigh, nullptr)
                            : MNL_CB_ERROR;
    }
    return result == MNL_CB_STOP;
}

static bool queue_is_empty(mnl_socket *socket) {
    pollfd queue = {mnl_socket_get_fd(socket), POLLIN, 0};
    return poll(&queue, 1, 0) == 0;
}

// Reads both tables once the socket had to drop notifications. What is queued is older than the tables, so
// it is handled first. A table that cannot be read is tried again after the next notification.
static void make_up_for_drops(mnl_socket *socket, uint32_t *known_drops) {
    const uint32_t drops = drops_of(socket);
    if (drops == *known_drops || !queue_is_empty(socket))
        return;
    HBS_LOG(HBS_ALERT, "HOSTBASE: nl_listen_thread: %u neighbour events lost - reading the neighbour tables",
            drops - *known_drops);
    const bool read_ipv4 = read_table(AF_INET);
    if (!read_table(AF_INET6) || !read_ipv4) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: nl_listen_thread: cannot read the neighbour tables");
        return;
    }
    *known_drops = drops;
}

static void listen(mnl_socket *socket) {
    alignas(nlmsghdr) char buffer[buffer_limit];
    const size_t size = buffer_size();
    uint32_t known_drops = 0;
    for (;;) {
        ssize_t result = mnl_socket_recvfrom(socket, buffer, size);
        if (result < 0 && errno == EINTR)
            continue;
        if (result > 0)
            result = mnl_cb_run(buffer, static_cast<size_t>(result), 0, 0, handle_neigh, nullptr);
        if (result < 0)
            perror("error");
        if (result <= 0)
            return;
        make_up_for_drops(socket, &known_drops);
    }
}

void *nl_listen_thread(void *) {
    mnl_socket *socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (socket == nullptr) {
        perror("mnl_socket_open failed.");
        return nullptr;
    }
    hbs_at_exit close([socket] { (void)mnl_socket_close(socket); });
    prepare(socket);
    if (mnl_socket_bind(socket, RTMGRP_NEIGH, MNL_SOCKET_AUTOPID) < 0) {
        perror("mnl_socket_bind failed");
        return nullptr;
    }
    listen(socket);
    return nullptr;
}

#endif
