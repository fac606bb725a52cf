// The published copies of clients: whose a slot is, and clients written into their slots. A slot and a
// working copy hold the same record; a type of its own keeps one from being taken for the other. Internal to
// the store. Callers hold hbs_list_mutex, and what writes a slot or a list is called with the semaphore held:
// whose a slot is, and which are on the list, is kept in process memory.
#pragma once

#include <cstdint>

#include <hbs_db.h>

struct hbs_slot {
    hbs_client record;
};
static_assert(sizeof(hbs_slot) == sizeof(hbs_client), "a slot is an element of the client pool");

// Walk the client list in order; null at the end.
const hbs_slot *hbs_slot_first();
const hbs_slot *hbs_slot_after(const hbs_slot *slot);

// The first slot on the list with that MAC, or null.
const hbs_slot *hbs_slot_of_mac(const uint8_t mac[6]);

// The slot of a working copy: the one at its dbpos, while that is on the list and noted as the copy's own.
// Null when there is none, so a stale dbpos never reaches a slot that another client has got since.
const hbs_slot *hbs_slot_of(const hbs_client *client);

// A slot to be written to, within the hold that it was asked for in.
hbs_slot *hbs_slot_edit(const hbs_slot *slot);

// The working copy that a slot was published from, or null. The note is kept in process memory; giving the
// slot back forgets it. owner null = none; slot null = nothing.
hbs_client *hbs_slot_owner(const hbs_slot *slot);
void hbs_slot_set_owner(const hbs_slot *slot, hbs_client *owner);

// The reference that index entries bear: the offset of the client's slot. 0 when there is none on the list, a
// stale dbpos included.
uint32_t hbs_slot_reference(const hbs_slot *slot);
uint32_t hbs_reference_of(const hbs_client *client);

// Whether a reference is the offset of a slot on the client list.
bool hbs_reference_is_published(uint32_t dbpos);

// Copies a working copy into its own slot, or into a free one that becomes its own. Returns whether there
// was one.
bool hbs_slot_publish(hbs_client *client);

// Copies a working copy into its own slot. Returns whether it has one.
bool hbs_slot_refresh(const hbs_client *client);

// Makes a slot that is on no list a client's own, as the last of the client list.
void hbs_slot_give_to(const hbs_slot *slot, hbs_client *client);

// Takes a slot off the list; its note stays until it is given back or to another.
void hbs_slot_unlink(const hbs_slot *slot);

// Returns a slot that is on no list to the pool.
void hbs_slot_give_back(const hbs_slot *slot);

// Returns every slot to the pool.
void hbs_slots_clear();
