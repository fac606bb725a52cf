// Clients written into their slots. Internal to the store; callers hold the semaphore.
#pragma once

#include <hbs_db.h>

// Copies a working copy into its own slot, or into a free one that becomes its own. Returns whether there
// was one.
bool hbs_slot_publish(hbs_client *client);

// Copies a working copy into its own slot. Returns whether it has one.
bool hbs_slot_refresh(const hbs_client *client);

// Makes a slot that is on no list a client's own, as the last of the client list.
void hbs_slot_give_to(hbs_client *slot, hbs_client *client);
