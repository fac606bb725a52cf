#include "daemon/neighbour_message.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <netif.h>

#include "base/log.h"
#include "base/text.h"
#include "events/neighbours.h"
#include "events/presence.h"

bool hbs_is_wan_ifindex(int ifindex) {
    return NETIF_IsOutward(ifindex) != 0;
}

namespace {

// Length of an address of a family, 0 for a family that is neither IPv4 nor IPv6.
size_t address_length(int family) {
    if (family == AF_INET)
        return 4;
    return family == AF_INET6 ? 16 : 0;
}

// With a link-layer address every state has its line in the log.
void handle_with_lladdr(const ndmsg *header, const uint8_t *lladdr, const uint8_t *address,
                        const char *text) {
    const int family = header->ndm_family;
    switch (header->ndm_state) {
    case NUD_REACHABLE:
        HBS_LOG(HBS_INFO, "HOSTBASE: handle_neigh: Reachable - Address is: %s", text);
        (void)hbs_handle_neigh_reachable(lladdr, header->ndm_ifindex, family, address);
        return;
    case NUD_STALE:
        HBS_LOG(HBS_INFO, "HOSTBASE: handle_neigh: Stale - Address is: %s", text);
        (void)hbs_handle_neigh_stale(lladdr, header->ndm_ifindex, family, address);
        return;
    case NUD_DELAY:
    case NUD_FAILED:
        HBS_LOG(HBS_INFO, "HOSTBASE: handle_neigh: Delay/Fail (0x%02x)- Address is: %s", header->ndm_state,
                text);
        (void)hbs_handle_neigh_gone(lladdr, header->ndm_ifindex, family, address);
        return;
    default:
        HBS_LOG(HBS_INFO, "HOSTBASE: handle_neigh: Other (0x%02x) - Address is: %s", header->ndm_state, text);
        return;
    }
}

} // namespace

bool hbs_neighbour_is_sound(const hbs_neighbour *entry) {
    if (hbs_is_wan_ifindex(entry->header.ndm_ifindex))
        return false;
    const hbs_netlink_bytes address = entry->attributes[NDA_DST];
    const hbs_netlink_bytes lladdr = entry->attributes[NDA_LLADDR];
    const size_t expected = address_length(entry->header.ndm_family);
    return address.data != nullptr && expected != 0 && address.size == expected &&
           (lladdr.data == nullptr || lladdr.size == 6);
}

void hbs_tell_neighbour(const ndmsg *header, const uint8_t *lladdr, const uint8_t *address) {
    const hbs_addr_text text =
        header->ndm_family == AF_INET ? hbs_ipv4_to_text(address) : hbs_ipv6_to_text(address);
    if (lladdr != nullptr) {
        handle_with_lladdr(header, lladdr, address, text.text);
    } else if (header->ndm_state == NUD_FAILED) {
        HBS_LOG(HBS_INFO, "HOSTBASE: handle_neigh: Delay/Fail - Address is: %s", text.text);
        (void)hbs_handle_neigh_gone(nullptr, header->ndm_ifindex, header->ndm_family, address);
    }
}

namespace {

// An entry of a bridge's forwarding table that a frame made, not a person or the bridge itself.
bool is_learned(const hbs_neighbour *entry) {
    constexpr unsigned MADE = NUD_PERMANENT | NUD_NOARP;
    return entry->header.ndm_family == AF_BRIDGE && (entry->header.ndm_state & MADE) == 0 &&
           entry->attributes[NDA_LLADDR].size == 6;
}

} // namespace

void hbs_handle_neigh_message(const uint8_t *message, size_t length) {
    nlmsghdr head;
    if (length < sizeof(head))
        return;
    memcpy(&head, message, sizeof(head));
    if (head.nlmsg_type >= NLMSG_NOOP && head.nlmsg_type <= NLMSG_DONE)
        return;
    if (head.nlmsg_type != RTM_NEWNEIGH && head.nlmsg_type != RTM_DELNEIGH) {
        printf("Unknown message: %08x %08x %08x\n", head.nlmsg_len, head.nlmsg_type, head.nlmsg_flags);
        return;
    }
    if (head.nlmsg_len < sizeof(head)) {
        fprintf(stderr, "BUG: wrong nlmsg len %d\n",
                static_cast<int>(head.nlmsg_len) - static_cast<int>(sizeof(head)));
        return;
    }
    hbs_neighbour entry;
    if (!hbs_netlink_neighbour({message, std::min<size_t>(head.nlmsg_len, length)}, &entry))
        return;
    if (head.nlmsg_type == RTM_NEWNEIGH && is_learned(&entry))
        hbs_presence_heard(entry.attributes[NDA_LLADDR].data, entry.header.ndm_ifindex);
    if (hbs_neighbour_is_sound(&entry))
        hbs_tell_neighbour(&entry.header, entry.attributes[NDA_LLADDR].data, entry.attributes[NDA_DST].data);
}
