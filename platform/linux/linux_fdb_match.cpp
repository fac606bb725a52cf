// One entry of a forwarding table from its bytes.
#include <cstring>
#include <sys/socket.h>

#include "linux_fdb.h"
#include "linux_netlink.h"

bool linux_fdb_match(hbs_netlink_bytes message, int bridge, const uint8_t mac[6], linux_fdb_entry *entry) {
    constexpr size_t headers = NLMSG_HDRLEN + sizeof(ndmsg);
    ndmsg header;
    if (message.size < headers)
        return false;
    memcpy(&header, message.data + NLMSG_HDRLEN, sizeof header);
    if (header.ndm_family != AF_BRIDGE || (header.ndm_state & NUD_PERMANENT) != 0)
        return false;
    hbs_netlink_bytes attribute[NDA_MASTER + 1] = {};
    hbs_netlink_attributes({message.data + headers, message.size - headers}, attribute, NDA_MASTER);
    const hbs_netlink_bytes lladdr = attribute[NDA_LLADDR];
    const hbs_netlink_bytes master = attribute[NDA_MASTER];
    if (lladdr.size != 6 || memcmp(lladdr.data, mac, 6) != 0 ||
        (master.data != nullptr && linux_u32(master) != static_cast<uint32_t>(bridge)))
        return false;
    entry->port = header.ndm_ifindex;
    nda_cacheinfo ages = {};
    if (attribute[NDA_CACHEINFO].size >= sizeof ages)
        memcpy(&ages, attribute[NDA_CACHEINFO].data, sizeof ages);
    entry->age = ages.ndm_updated;
    return true;
}
