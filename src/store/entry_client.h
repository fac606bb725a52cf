// Which client an index entry is for. Internal to the store; callers hold the semaphore.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// The reference that the entries of a client bear: the offset of its published slot. client is a working
// copy or a slot. 0 when it has no slot of its own on the client list, a stale dbpos included.
uint32_t hbs_reference_of(const hbs_client *client);

// Whether a reference is the offset of a slot on the client list.
bool hbs_reference_is_published(uint32_t dbpos);
