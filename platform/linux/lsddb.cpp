// Which LAN an access point's network belongs to: that of the bridge whose port its device is.
#include <lsddb.h>

#include "common_text.h"
#include "linux_watch.h"
#include "linux_wifi.h"

int LSDDB_Read(int, int) {
    return linux_watch_start() ? 0 : -1;
}

int LSDDB_GetDevParams(const lsddb_key *key, lsddb_params *params) {
    uint32_t ssid = 0;
    char device[IFNAMSIZ];
    if (key == nullptr || params == nullptr || key->type != LSDDB_KEY_DEVICE ||
        params->type != LSDDB_RECORD_DEVICE || !common_text_to_u32(key->device, &ssid) ||
        !linux_wifi_device(ssid, device))
        return -1;
    const unsigned lan = linux_watch_lan_of_port(device);
    if (lan == 0)
        return -1;
    params->group = static_cast<int32_t>(lan);
    params->enabled = 1;
    (void)linux_watch_lan_name(lan, params->bridge);
    return 0;
}
