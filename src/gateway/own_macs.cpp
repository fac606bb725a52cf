#include "gateway/own_macs.h"

#include <db.h>

#include "base/text.h"

uint64_t hbs_internal_mac_low;
uint64_t hbs_internal_mac_high;

// Plain 64-bit arithmetic: a base that ends in :00 or :01 borrows from the next byte up.
void hostbase_set_internal_mac_range() {
    (void)DB_RetrieveAccess();
    uint8_t base[6] = {};
    (void)DB_GetArray(DB_ITEM_BASE_MAC, base);
    if (hbs_mac_is_zero(base))
        return; // nothing came
    const uint64_t number = hbs_mac_to_number(base);
    hbs_internal_mac_low = number - 2;
    hbs_internal_mac_high = number + 14;
}

bool hbs_mac_is_lan_client(const uint8_t *mac) {
    if (mac == nullptr)
        return true;
    const uint64_t number = hbs_mac_to_number(mac);
    return number != 0 && (number < hbs_internal_mac_low || number > hbs_internal_mac_high);
}
