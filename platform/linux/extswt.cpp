// The ports of all LAN bridges are the ports of one switch; Wi-Fi devices are none.
#include <extswt.h>

#include "linux_fdb.h"
#include "linux_watch.h"

int EXTSWT_RegisterLinkStatusCb(extswt_link_cb callback) {
    if (callback == nullptr || !linux_watch_start())
        return -1;
    linux_watch_on_links(callback);
    return 0;
}

int extSwitchSearchMac(const uint8_t mac[6], uint16_t *hit, uint32_t *port) {
    if (hit == nullptr || port == nullptr)
        return -1;
    *hit = 0;
    *port = 0;
    linux_fdb_entry entry = {};
    const int found = mac != nullptr ? linux_fdb_find(mac, &entry) : -1;
    if (found != 1)
        return found;
    *port = linux_watch_port_of(entry.port);
    *hit = *port != 0 ? 1 : 0;
    return 0;
}
