// The two instance-numbered lists of the segment, interface index and primary index, with the maps of the
// instances in use.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "store/instance_map.h"
#include "store/slots.h"

constexpr int HBS_NETWORKS = 8;

// Add a client's entry, unless it has one. Nothing is added for a client that is not published. The primary
// entry is for clients of network 0 (nwidx 0 or 8) only.
void hbs_file_update_if_idx(const hbs_client *client);
void hbs_file_update_pri_idx(const hbs_client *client);

// Remove a client's entry and release its instance. The interface instance is released in the network that
// the entry's own key names, and a primary entry goes whatever network the client is on by then.
void hbs_file_remove_if_entry(const hbs_slot *slot);
void hbs_file_remove_pri_idx(const hbs_slot *slot);

// For the dump: the map of a network (0-7) and of the primary index, and the kept count of primary entries.
hbs_instance_map hbs_rnd_map(int network);
hbs_instance_map hbs_pri_map();
uint32_t hbs_pri_count();

// Returns the elements of both lists to their pools and clears the maps and the count.
void hbs_instance_index_clear();
