// One entry of the neighbour table from its bytes.
#include <cstring>
#include <sys/socket.h>

#include "linux_neighbours.h"
#include "linux_netlink.h"

bool linux_neighbour_match(hbs_netlink_bytes message, const uint8_t mac[6]) {
    constexpr unsigned lively = NUD_REACHABLE | NUD_DELAY | NUD_PROBE;
    hbs_neighbour entry;
    if (!hbs_netlink_neighbour(message, &entry) || (entry.header.ndm_state & lively) == 0 ||
        (entry.header.ndm_family != AF_INET && entry.header.ndm_family != AF_INET6))
        return false;
    const hbs_netlink_bytes lladdr = entry.attributes[NDA_LLADDR];
    return lladdr.size == 6 && memcmp(lladdr.data, mac, 6) == 0;
}
