// Changes the kernel's neighbour table, as fast as the kernel takes it.
#pragma once

#include <array>
#include <cstring>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "base/netlink.h"

class KernelNeighbours {
  public:
    explicit KernelNeighbours(std::string interface)
        : interface_(std::move(interface)), socket_(hbs_netlink_open()) {
        (void)hbs_netlink_bind(socket_, 0);
    }
    ~KernelNeighbours() { (void)close(socket_); }
    KernelNeighbours(const KernelNeighbours &) = delete;
    KernelNeighbours &operator=(const KernelNeighbours &) = delete;

    // address: 4 or 16 bytes. Returns whether the kernel took it.
    bool set(const std::string &address, const std::array<uint8_t, 6> &lladdr, uint16_t state) {
        struct {
            nlmsghdr head;
            ndmsg entry;
            char attributes[64];
        } message = {};
        message.head.nlmsg_type = RTM_NEWNEIGH;
        message.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_REPLACE | NLM_F_ACK;
        message.entry.ndm_family = address.size() == 4 ? AF_INET : AF_INET6;
        message.entry.ndm_ifindex = static_cast<int>(if_nametoindex(interface_.c_str()));
        message.entry.ndm_state = state;
        size_t used = put(message.attributes, NDA_DST, address.data(), address.size());
        used += put(message.attributes + used, NDA_LLADDR, lladdr.data(), lladdr.size());
        message.head.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(sizeof(ndmsg)) + used);
        alignas(nlmsghdr) uint8_t answer[1024];
        if (send(socket_, &message, message.head.nlmsg_len, 0) < 0)
            return false;
        const ssize_t length = hbs_netlink_receive(socket_, answer, sizeof(answer), 5000);
        return length > 0 && hbs_netlink_walk({answer, static_cast<size_t>(length)}, ignore, nullptr) == 0;
    }

  private:
    static void ignore(hbs_netlink_bytes, void *) {}

    static size_t put(char *at, uint16_t type, const void *value, size_t size) {
        const rtattr head = {static_cast<uint16_t>(RTA_LENGTH(size)), type};
        memcpy(at, &head, sizeof(head));
        memcpy(at + RTA_LENGTH(0), value, size);
        return RTA_SPACE(size);
    }

    std::string interface_;
    int socket_;
};
