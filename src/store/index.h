// The index lists of the segment that clients have entries in, taken together. The lists themselves are in
// ip_index and instance_index.
#pragma once

#include <hbs_db.h>

#include "store/instance_index.h"
#include "store/ip_index.h"
#include "store/slots.h"

// Makes all index entries of one client that it has not; does nothing for one that is not published. Locks.
void hostbase_update_ip_indicies(const hbs_client *client);
void hbs_index_update(const hbs_client *client); // the same inside a caller that holds the semaphore

// Removes the IP, DHCP-option and interface entries of a client, and its primary entry.
void hbs_file_remove_if_idx(const hbs_slot *slot);
void hbs_file_remove_if_idx_locked(const hbs_client *client); // the same; locks

// Returns every element of the four lists to its pool and clears the maps and counts (part of a flush,
// and of the initialisation). The rule index is not touched.
void hbs_index_clear();
