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
    int device = 0;
    const int found = mac != nullptr ? linux_fdb_port(mac, &device) : -1;
    if (found != 1)
        return found;
    *port = linux_watch_port_of(device);
    *hit = *port != 0 ? 1 : 0;
    return 0;
}
