// From working copy to published copy and back: commit, removal from the segment, flush. Callers hold
// hbs_list_mutex and do not hold the semaphore.
#pragma once

#include <hbs_db.h>

#include "store/client_end.h"

// Copies a working copy into its slot, or into a fresh one, reclaiming one when the pool is empty (which
// ends another client: see client_end). Sets dbpos. Locks. A slot is a client's own only while the
// process-local note of slot owners says so, so a stale dbpos never overwrites another client.
void hbs_shm_commit(hbs_client *client);

// hbs_shm_commit, then hostbase_update_ip_indicies, in one hold: no reader sees the client without its
// entries. The one way to publish a client that was changed.
void hbs_publish(hbs_client *client);

// Whether readers see the client. Needs hbs_list_mutex only.
bool hbs_is_published(const hbs_client *client);

// The same for a client that is published; another one stays unpublished. Locks.
void hbs_publish_again(hbs_client *client);

// Returns every element of the segment to its pool. Locks.
void hbs_shm_flush();

// Sets hotspot in every published client whose ifname is enabled; working copies are not touched. Locks.
void hbs_shm_mark_hotspot();
