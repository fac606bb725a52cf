#include "store/published.h"

#include "base/text.h"
#include "store/slots.h"

const hbs_client *hbs_published_by_mac(const uint8_t mac[6]) {
    if (hbs_mac_is_zero(mac))
        return nullptr;
    const hbs_slot *slot = hbs_slot_of_mac(mac);
    return slot == nullptr ? nullptr : &slot->record;
}
