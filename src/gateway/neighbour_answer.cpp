#include "gateway/neighbour_answer.h"

#include <cstring>
#include <sys/socket.h>

#include "base/log.h"
#include "base/netlink.h"

namespace {

bool is_match(const hbs_neighbour *entry, int family, const uint8_t *address) {
    const size_t size = family == AF_INET ? 4 : 16;
    const hbs_netlink_bytes destination = entry->attributes[NDA_DST];
    return entry->header.ndm_family == family && destination.data != nullptr &&
           entry->attributes[NDA_LLADDR].data != nullptr && (entry->header.ndm_state & NUD_REACHABLE) != 0 &&
           destination.size == size && memcmp(destination.data, address, size) == 0;
}

int take_lladdr(hbs_netlink_bytes lladdr, uint8_t *mac_out) {
    if (lladdr.size != 6) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Found matched neighbor entry with wrong length of lladdr (%d)",
                static_cast<int>(lladdr.size));
        return -1;
    }
    memcpy(mac_out, lladdr.data, 6);
    return 0;
}

} // namespace

bool hbs_is_answer(const uint8_t *bytes, size_t length, uint32_t sequence, uint32_t port) {
    hbs_netlink_bytes rest = {bytes, length};
    hbs_netlink_message message;
    return hbs_netlink_next(&rest, &message) && message.head.nlmsg_seq == sequence &&
           message.head.nlmsg_pid == port;
}

int hbs_find_lladdr(const uint8_t *bytes, size_t length, uint32_t sequence, int family,
                    const uint8_t *address, uint8_t *mac_out) {
    hbs_netlink_bytes rest = {bytes, length};
    hbs_netlink_message message;
    while (hbs_netlink_next(&rest, &message)) {
        const uint16_t type = message.head.nlmsg_type;
        if (message.head.nlmsg_seq != sequence)
            continue;
        if (type == NLMSG_DONE || type == NLMSG_ERROR)
            return -1;
        hbs_neighbour entry;
        if (type == RTM_NEWNEIGH && hbs_netlink_neighbour(message.whole, &entry) &&
            is_match(&entry, family, address))
            return take_lladdr(entry.attributes[NDA_LLADDR], mac_out);
    }
    return -1;
}
