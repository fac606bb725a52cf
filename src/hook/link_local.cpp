#include "hook/link_local.h"

#include <cstring>
#include <sys/socket.h>

#include "base/netlink.h"

namespace {

struct search {
    const uint8_t *mac;
    uint8_t *ll;
    int rank; // of what was found, 0 = nothing
};

// A device may have had other addresses before: how sure it is that it has one now.
int rank_of(uint16_t state) {
    if ((state & NUD_REACHABLE) != 0)
        return 3;
    if ((state & (NUD_DELAY | NUD_PROBE | NUD_PERMANENT)) != 0)
        return 2;
    return (state & NUD_STALE) != 0 ? 1 : 0;
}

void visit(hbs_netlink_bytes message, void *context) {
    auto *asked = static_cast<search *>(context);
    hbs_neighbour entry;
    if (!hbs_netlink_neighbour(message, &entry) || entry.header.ndm_family != AF_INET6)
        return;
    const hbs_netlink_bytes address = entry.attributes[NDA_DST];
    const hbs_netlink_bytes lladdr = entry.attributes[NDA_LLADDR];
    const int rank = rank_of(entry.header.ndm_state);
    if (rank <= asked->rank || address.size != 16 || lladdr.size != 6 ||
        memcmp(lladdr.data, asked->mac, 6) != 0 || address.data[0] != 0xFE ||
        (address.data[1] & 0xC0) != 0x80)
        return;
    memcpy(asked->ll, address.data, 16);
    asked->rank = rank;
}

} // namespace

bool hbs_link_local_of(const uint8_t mac[6], uint8_t ll[16]) {
    search asked = {mac, ll, 0};
    (void)hbs_netlink_dump_neighbours(AF_INET6, visit, &asked);
    return asked.rank != 0;
}
