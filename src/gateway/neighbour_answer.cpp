#include "gateway/neighbour_answer.h"

#include <cstring>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "base/log.h"

namespace {

constexpr size_t MIN_NEIGHBOUR = NLMSG_HDRLEN + sizeof(ndmsg); // 28

struct attribute {
    const uint8_t *data; // null = absent
    size_t length;
};

struct neighbour {
    ndmsg header;
    attribute destination;
    attribute lladdr;
};

size_t align(size_t length) {
    return (length + 3) & ~size_t{3};
}

void parse_attributes(const uint8_t *bytes, size_t length, neighbour *out) {
    while (length >= sizeof(nlattr)) {
        nlattr head;
        memcpy(&head, bytes, sizeof head);
        if (head.nla_len < sizeof head || head.nla_len > length)
            return;
        const attribute found = {bytes + sizeof head, head.nla_len - sizeof head};
        const int type = head.nla_type & NLA_TYPE_MASK;
        if (type == NDA_DST)
            out->destination = found;
        else if (type == NDA_LLADDR)
            out->lladdr = found;
        const size_t step = align(head.nla_len);
        if (step >= length)
            return;
        bytes += step;
        length -= step;
    }
}

bool is_match(const neighbour *entry, int family, const uint8_t *address) {
    const size_t size = family == AF_INET ? 4 : 16;
    return entry->header.ndm_family == family && entry->destination.data != nullptr &&
           entry->lladdr.data != nullptr && (entry->header.ndm_state & NUD_REACHABLE) != 0 &&
           entry->destination.length == size && memcmp(entry->destination.data, address, size) == 0;
}

int take_lladdr(const neighbour *entry, uint8_t *mac_out) {
    if (entry->lladdr.length != 6) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Found matched neighbor entry with wrong length of lladdr (%d)",
                static_cast<int>(entry->lladdr.length));
        return -1;
    }
    memcpy(mac_out, entry->lladdr.data, 6);
    return 0;
}

} // namespace

int hbs_find_lladdr(const uint8_t *bytes, size_t length, uint32_t sequence, int family,
                    const uint8_t *address, uint8_t *mac_out) {
    while (length >= NLMSG_HDRLEN) {
        nlmsghdr head;
        memcpy(&head, bytes, sizeof head);
        if (head.nlmsg_len < NLMSG_HDRLEN || head.nlmsg_len > length)
            return -1;
        if (head.nlmsg_seq == sequence) {
            if (head.nlmsg_type == NLMSG_DONE || head.nlmsg_type == NLMSG_ERROR)
                return -1;
            if (head.nlmsg_type == RTM_NEWNEIGH && head.nlmsg_len >= MIN_NEIGHBOUR) {
                neighbour entry{};
                memcpy(&entry.header, bytes + NLMSG_HDRLEN, sizeof entry.header);
                parse_attributes(bytes + MIN_NEIGHBOUR, head.nlmsg_len - MIN_NEIGHBOUR, &entry);
                if (is_match(&entry, family, address))
                    return take_lladdr(&entry, mac_out);
            }
        }
        const size_t step = align(head.nlmsg_len);
        if (step >= length)
            return -1;
        bytes += step;
        length -= step;
    }
    return -1;
}
