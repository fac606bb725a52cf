// What a MAC without a numbered port was learned on: Wi-Fi, or a wired port beyond the last number.
#include <cstring>

#include <l2switch.h>

#include "common_text.h"
#include "linux_fdb.h"
#include "linux_watch.h"

namespace {

constexpr uint32_t wifi_mask = 0x01;
constexpr uint32_t ethernet_mask = 0x04;

} // namespace

int L2SWITCH_GetUcastMacs(l2switch_table *table, const char *mac_text) {
    uint8_t mac[6];
    int device = 0;
    if (table == nullptr || !common_text_to_mac(mac_text, mac))
        return -1;
    const int found = linux_fdb_port(mac, &device);
    if (found < 0)
        return -1;
    table->count = static_cast<uint16_t>(found);
    if (found == 0)
        return 0;
    table->entry[0] = {};
    memcpy(table->entry[0].mac, mac, sizeof mac);
    table->entry[0].port_mask = linux_watch_is_wifi(device) ? wifi_mask : ethernet_mask;
    return 1;
}
