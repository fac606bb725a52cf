#include "gateway/neighbour_query.h"

#include <cstring>
#include <ctime>
#include <sys/socket.h>

#include "base/log.h"
#include "gateway/neighbour_answer.h"

#if HBS_NETLINK

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include "base/scope.h"

namespace {

constexpr size_t ANSWER_SIZE = 8192;

uint8_t neigh_query_seq; // incremented before every query; callers hold hbs_list_mutex

// Sends one dump request of a family. Returns its sequence number, or 0 when it could not be sent.
uint32_t send_request(mnl_socket *socket, int family) {
    ++neigh_query_seq;
    alignas(nlmsghdr) char buffer[MNL_NLMSG_HDRLEN + MNL_ALIGN(sizeof(rtgenmsg))];
    nlmsghdr *header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = RTM_GETNEIGH;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP;
    header->nlmsg_seq = (static_cast<uint32_t>(time(nullptr)) << 8 | neigh_query_seq) | 1u << 31;
    auto *request = static_cast<rtgenmsg *>(mnl_nlmsg_put_extra_header(header, sizeof(rtgenmsg)));
    request->rtgen_family = static_cast<unsigned char>(family);
    return mnl_socket_sendto(socket, header, header->nlmsg_len) < 0 ? 0 : header->nlmsg_seq;
}

} // namespace

int hbs_query_neigh_lladdr(int family, const uint8_t *address, uint8_t *mac_out) {
    if ((family != AF_INET && family != AF_INET6) || address == nullptr || mac_out == nullptr)
        return -1;
    mnl_socket *socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (socket == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Cannot open netlink socket for querying neighbor entries");
        return -1;
    }
    hbs_at_exit close([socket] { (void)mnl_socket_close(socket); });
    if (mnl_socket_bind(socket, RTMGRP_NEIGH, MNL_SOCKET_AUTOPID) < 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Cannot bind netlink socket for querying neighbor entries");
        return -1;
    }
    const uint32_t sequence = send_request(socket, family);
    if (sequence == 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to send neighbor query to netlink socket");
        return -1;
    }
    // One datagram only: the neighbour tables of a home LAN are small, and the caller is not held up longer.
    alignas(nlmsghdr) uint8_t answer[ANSWER_SIZE];
    const ssize_t length = mnl_socket_recvfrom(socket, answer, sizeof answer);
    if (length < 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Error happens upon recv from neighbor netlink socket (ret:%d)",
                static_cast<int>(length));
        return -1;
    }
    return hbs_find_lladdr(answer, static_cast<size_t>(length), sequence, family, address, mac_out);
}

#else

// Without netlink there is no neighbour table to look into.
int hbs_query_neigh_lladdr(int, const uint8_t *, uint8_t *) {
    HBS_LOG(HBS_ERROR, "HOSTBASE: Cannot open netlink socket for querying neighbor entries");
    return -1;
}

#endif
