// Internal layer-2 switch: its table of learned addresses, from the file of values.
#include <cstring>

#include <l2switch.h>

#include "host_values.h"

namespace {

// MAC address of a line "l2switch.mac.MAC"; false for any other line.
bool learned_mac(const host_entry *entry, uint8_t mac[6]) {
    const char *text = host_key_after(entry, "l2switch.mac.");
    return text != nullptr && common_text_to_mac(text, mac);
}

unsigned rows_of(const uint8_t wanted[6]) {
    const host_entry *entry = nullptr;
    unsigned rows = 0;
    for (size_t i = 0; (entry = host_entry_at(i)) != nullptr; i++) {
        uint8_t mac[6];
        rows += learned_mac(entry, mac) && memcmp(mac, wanted, 6) == 0;
    }
    return rows;
}

// All learned addresses in the file's order; those of other devices only as far as there is room.
bool fill(l2switch_table *table, const uint8_t wanted[6]) {
    unsigned asked_for = rows_of(wanted);
    if (asked_for > L2SWITCH_MAX_MACS)
        return false;
    unsigned others = L2SWITCH_MAX_MACS - asked_for;
    const host_entry *entry = nullptr;
    for (size_t i = 0; (entry = host_entry_at(i)) != nullptr; i++) {
        l2switch_entry row = {};
        if (!learned_mac(entry, row.mac))
            continue;
        if (!common_text_to_u32(entry->value, &row.port_mask))
            return false;
        bool is_other = memcmp(row.mac, wanted, 6) != 0;
        if (is_other && others == 0)
            continue;
        others -= is_other;
        table->entry[table->count++] = row;
    }
    return true;
}

} // namespace

int L2SWITCH_GetUcastMacs(l2switch_table *table, const char *mac_text) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("L2SWITCH_GetUcastMacs", &result))
        return result;
    uint8_t wanted[6];
    l2switch_table found = {};
    if (table == nullptr || !common_text_to_mac(mac_text, wanted) || !fill(&found, wanted))
        return -1;
    *table = found;
    return found.count;
}
