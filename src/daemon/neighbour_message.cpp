#include "daemon/neighbour_message.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "base/log.h"
#include "base/text.h"
#include "events/neighbours.h"

// Highest attribute type that is looked at.
static constexpr int highest_attribute = NDA_PROBES;

struct attribute {
    const uint8_t *bytes; // null = not there
    size_t length;
};

struct neighbour {
    ndmsg header;
    attribute attributes[highest_attribute + 1];
};

bool hbs_is_wan_ifindex(int ifindex) {
    static constexpr const char *names[] = {"wan0", "mta0", "erouter0"};
    static int32_t hbs_wan_ifindex[] = {-1, -1, -1}; // negative = not looked up; 0 = there was none
    bool wan = false;
    for (size_t i = 0; i < std::size(names); i++) {
        if (hbs_wan_ifindex[i] < 0)
            hbs_wan_ifindex[i] = static_cast<int32_t>(if_nametoindex(names[i]));
        wan = wan || hbs_wan_ifindex[i] == ifindex;
    }
    return wan;
}

// Attributes of a higher type are skipped; of a repeated one the last counts. One that is cut short ends
// the list.
static void read_attributes(const uint8_t *bytes, size_t length, neighbour *out) {
    rtattr head;
    while (length >= sizeof(head)) {
        memcpy(&head, bytes, sizeof(head));
        if (head.rta_len < sizeof(head) || head.rta_len > length)
            return;
        const int type = head.rta_type & NLA_TYPE_MASK;
        if (type <= highest_attribute)
            out->attributes[type] = {bytes + sizeof(head), head.rta_len - sizeof(head)};
        const size_t step = std::min<size_t>(RTA_ALIGN(head.rta_len), length);
        bytes += step;
        length -= step;
    }
}

// Length of an address of a family, 0 for a family that is neither IPv4 nor IPv6.
static size_t address_length(int family) {
    if (family == AF_INET)
        return 4;
    return family == AF_INET6 ? 16 : 0;
}

// With a link-layer address every state has its line in the log.
static void handle_with_lladdr(const ndmsg *header, const uint8_t *lladdr, const uint8_t *address,
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

static void handle_neighbour(const neighbour *message) {
    const ndmsg *header = &message->header;
    const attribute address = message->attributes[NDA_DST];
    const attribute lladdr = message->attributes[NDA_LLADDR];
    const size_t expected = address_length(header->ndm_family);
    const bool sound_lladdr = lladdr.bytes == nullptr || lladdr.length == 6;
    if (address.bytes == nullptr || expected == 0 || address.length != expected || !sound_lladdr)
        return;
    const hbs_addr_text text =
        header->ndm_family == AF_INET ? hbs_ipv4_to_text(address.bytes) : hbs_ipv6_to_text(address.bytes);
    if (lladdr.bytes != nullptr) {
        handle_with_lladdr(header, lladdr.bytes, address.bytes, text.text);
    } else if (header->ndm_state == NUD_FAILED) {
        HBS_LOG(HBS_INFO, "HOSTBASE: handle_neigh: Delay/Fail - Address is: %s", text.text);
        (void)hbs_handle_neigh_gone(nullptr, header->ndm_ifindex, header->ndm_family, address.bytes);
    }
}

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
    const size_t payload = std::min<size_t>(head.nlmsg_len, length) - sizeof(head);
    neighbour parsed{};
    if (payload < sizeof(parsed.header))
        return;
    const uint8_t *bytes = message + sizeof(head);
    memcpy(&parsed.header, bytes, sizeof(parsed.header));
    if (hbs_is_wan_ifindex(parsed.header.ndm_ifindex))
        return;
    read_attributes(bytes + sizeof(parsed.header), payload - sizeof(parsed.header), &parsed);
    handle_neighbour(&parsed);
}
