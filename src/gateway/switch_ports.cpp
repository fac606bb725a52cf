#include "gateway/switch_ports.h"

#include <cstring>

#include <extswt.h>
#include <hbs_db.h>
#include <l2switch.h>
#include <nvm.h>

#include "base/log.h"
#include "base/probe_queue.h"
#include "base/text.h"

namespace {

constexpr uint32_t HOST_PORT = 0x80; // the host processor's own port
constexpr uint8_t COMBINED_WIFI_BOARD = 24;

struct port_adapter {
    uint32_t mask;
    uint8_t adapter;
};

constexpr port_adapter PORT_ADAPTERS[] = {
    {0x01, HBS_ADAPTER_WIFI}, {0x20, HBS_ADAPTER_WIFI}, {0x40, HBS_ADAPTER_WIFI},
    {0x02, HBS_ADAPTER_MOCA}, {0x08, HBS_ADAPTER_MOCA}, {0x04, HBS_ADAPTER_ETHERNET},
};

uint8_t adapter_of_mask(uint32_t mask) {
    for (const port_adapter &row : PORT_ADAPTERS)
        if (row.mask == mask)
            return row.adapter;
    return HBS_ADAPTER_UNKNOWN;
}

bool is_combined_wifi(uint32_t mask) {
    return NVM_GetByte(NVM_BYTE_BOARD_MODE) == COMBINED_WIFI_BOARD &&
           (mask == 0xC0 || mask == 0xA0 || mask == 0xE0);
}

// Adapter that one entry's mask speaks for; `so_far` when it speaks for none.
uint8_t adapter_of_entry(uint32_t mask, const char *mac_text, uint8_t so_far) {
    if (mask == HOST_PORT) {
        HBS_LOG(HBS_INFO, "HOSTBASE: mac is on learnt on ARM port - ignore : %s", mac_text);
        return so_far;
    }
    const uint8_t adapter = adapter_of_mask(mask & ~HOST_PORT);
    if (adapter != HBS_ADAPTER_UNKNOWN)
        return adapter;
    if (is_combined_wifi(mask))
        return HBS_ADAPTER_WIFI;
    HBS_LOG(HBS_INFO, "HOSTBASE: mac is on multiple ports in l2switch : %02x", mask);
    return so_far;
}

// The answer comes later, if at all, and is waited for elsewhere.
void ask_later(const uint8_t *mac) {
    hbs_probe probe{};
    probe.kind = HBS_PROBE_PLACE;
    memcpy(probe.mac, mac, sizeof probe.mac);
    (void)hbs_probe_post(&probe);
}

} // namespace

uint32_t hbs_ext_switch_port_of(const uint8_t *mac) {
    if (mac == nullptr)
        return 0;
    uint16_t hit = 0;
    uint32_t port = 0;
    (void)extSwitchSearchMac(mac, &hit, &port);
    return hit != 0 ? port : 0;
}

int decide_if_by_ExtSwPort(const uint8_t *mac) {
    if (mac == nullptr)
        return 1;
    uint16_t hit = 0;
    uint32_t port = 0;
    (void)extSwitchSearchMac(mac, &hit, &port);
    const int result = hit != 0 && port >= 1 && port <= EXTSWT_PORTS ? 1 : 0;
    HBS_LOG(HBS_INFO, "HOSTBASE: decide_if_by_ExtSwPort - if:%d, swPort:%d, hit:%d", result,
            static_cast<int>(port), hit);
    return result;
}

uint8_t hbs_adapter_from_l2switch(const uint8_t *mac) {
    if (mac == nullptr)
        return HBS_ADAPTER_ETHERNET;
    const hbs_mac_text mac_text = hbs_mac_to_text(mac);
    static l2switch_table table; // 5 KB, too much for a small thread stack; callers hold hbs_list_mutex
    table = {};
    if (L2SWITCH_GetUcastMacs(&table, mac_text.text) < 0) {
        ask_later(mac);
        return HBS_ADAPTER_UNKNOWN;
    }
    uint8_t adapter = HBS_ADAPTER_UNKNOWN;
    for (uint16_t i = 0; i < table.count && i < L2SWITCH_MAX_MACS; ++i)
        if (memcmp(table.entry[i].mac, mac, HBS_MAC_SIZE) == 0)
            adapter = adapter_of_entry(table.entry[i].port_mask, mac_text.text, adapter);
    return adapter;
}

uint8_t hbs_adapter_of(const uint8_t *mac) {
    return decide_if_by_ExtSwPort(mac) != 0 ? HBS_ADAPTER_ETHERNET : hbs_adapter_from_l2switch(mac);
}
