#include "store/published.h"

#include <cstring>

#include "base/text.h"
#include "store/slots.h"

const hbs_client *hbs_published_of(const hbs_client *client) {
    if (hbs_mac_is_zero(client->mac))
        return nullptr;
    const hbs_slot *slot = hbs_slot_of(client);
    if (slot == nullptr || memcmp(slot->record.mac, client->mac, sizeof client->mac) != 0)
        slot = hbs_slot_of_mac(client->mac);
    return slot == nullptr ? nullptr : &slot->record;
}
