#include "store/slots.h"

#include <cstddef>
#include <cstring>

#include "store/pools.h"

namespace {

hbs_client *owners[HBS_MAX_CLIENTS];

const hbs_slot *as_slot(const void *element) {
    return static_cast<const hbs_slot *>(element);
}

// Where the note of a slot's owner is kept; null for what is no slot.
hbs_client **note_of(const hbs_slot *slot) {
    const int number = hbs_pool_number(hbs_pool::clients, slot);
    return number < 0 ? nullptr : &owners[number];
}

// Everything behind the two link words, which each copy has its own of. memmove: optimised for size, a memcpy
// of a known length is made word by word in place.
void write_slot(const hbs_slot *slot, const hbs_client *client) {
    constexpr size_t links = offsetof(hbs_client, dbpos);
    memmove(reinterpret_cast<uint8_t *>(hbs_slot_edit(slot)) + links,
            reinterpret_cast<const uint8_t *>(client) + links, sizeof slot->record - links);
}

} // namespace

hbs_slot *hbs_slot_edit(const hbs_slot *slot) {
    return static_cast<hbs_slot *>(hbs_pool_edit(hbs_pool::clients, slot));
}

const hbs_slot *hbs_slot_first() {
    return as_slot(hbs_list_first(hbs_pool::clients));
}

const hbs_slot *hbs_slot_after(const hbs_slot *slot) {
    return as_slot(hbs_list_next(hbs_pool::clients, slot));
}

const hbs_slot *hbs_slot_of_mac(const uint8_t mac[6]) {
    return as_slot(hbs_list_find(hbs_pool::clients, offsetof(hbs_client, mac), mac, sizeof hbs_client::mac));
}

const hbs_slot *hbs_slot_of(const hbs_client *client) {
    if (client == nullptr)
        return nullptr;
    const hbs_slot *slot = as_slot(hbs_pool_element(hbs_pool::clients, client->dbpos));
    return hbs_list_holds(hbs_pool::clients, slot) && hbs_slot_owner(slot) == client ? slot : nullptr;
}

hbs_client *hbs_slot_owner(const hbs_slot *slot) {
    hbs_client *const *note = note_of(slot);
    return note == nullptr ? nullptr : *note;
}

void hbs_slot_set_owner(const hbs_slot *slot, hbs_client *owner) {
    if (hbs_client **note = note_of(slot))
        *note = owner;
}

uint32_t hbs_slot_reference(const hbs_slot *slot) {
    return hbs_list_holds(hbs_pool::clients, slot) ? hbs_pool_offset(slot) : HBS_DBPOS_NONE;
}

uint32_t hbs_reference_of(const hbs_client *client) {
    return hbs_slot_reference(hbs_slot_of(client));
}

bool hbs_reference_is_published(uint32_t dbpos) {
    return hbs_list_holds(hbs_pool::clients, hbs_pool_element(hbs_pool::clients, dbpos));
}

bool hbs_slot_refresh(const hbs_client *client) {
    const hbs_slot *own = hbs_slot_of(client);
    if (own == nullptr)
        return false;
    write_slot(own, client);
    return true;
}

bool hbs_slot_publish(hbs_client *client) {
    if (hbs_slot_refresh(client))
        return true;
    const hbs_slot *slot = as_slot(hbs_pool_take(hbs_pool::clients));
    if (slot == nullptr)
        return false;
    hbs_slot_give_to(slot, client);
    return true;
}

void hbs_slot_give_to(const hbs_slot *slot, hbs_client *client) {
    client->dbpos = hbs_pool_offset(slot);
    write_slot(slot, client);
    hbs_slot_set_owner(slot, client);
    hbs_list_link(hbs_pool::clients, slot, nullptr);
}

void hbs_slot_unlink(const hbs_slot *slot) {
    hbs_list_unlink(hbs_pool::clients, slot);
}

void hbs_slot_give_back(const hbs_slot *slot) {
    hbs_slot_set_owner(slot, nullptr);
    hbs_pool_give(hbs_pool::clients, slot);
}

void hbs_slots_clear() {
    memset(owners, 0, sizeof owners);
    hbs_pool_give_all(hbs_pool::clients);
}
