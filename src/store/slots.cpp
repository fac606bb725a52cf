#include "store/slots.h"

#include <cstddef>
#include <cstring>

#include "store/pools.h"

// Everything behind the two link words, which each copy has its own of.
static void write_slot(hbs_client *slot, const hbs_client *client) {
    constexpr size_t links = offsetof(hbs_client, dbpos);
    memcpy(reinterpret_cast<uint8_t *>(slot) + links, reinterpret_cast<const uint8_t *>(client) + links,
           sizeof *slot - links);
}

bool hbs_slot_refresh(const hbs_client *client) {
    hbs_client *own = hbs_slot_of(client);
    if (own == nullptr)
        return false;
    write_slot(own, client);
    return true;
}

bool hbs_slot_publish(hbs_client *client) {
    if (hbs_slot_refresh(client))
        return true;
    auto *slot = static_cast<hbs_client *>(hbs_pool_take(hbs_pool::clients));
    if (slot == nullptr)
        return false;
    hbs_slot_give_to(slot, client);
    return true;
}

void hbs_slot_give_to(hbs_client *slot, hbs_client *client) {
    client->dbpos = hbs_pool_offset(slot);
    write_slot(slot, client);
    hbs_slot_set_owner(slot, client);
    hbs_list_link(hbs_pool::clients, slot, nullptr);
}
