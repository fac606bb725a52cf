// The kernel's neighbour table, asked on a thread of the probes: whoever waits for it waits for a bounded
// time.
#pragma once

#include <cstdint>

#include "base/probe_queue.h"

// MAC of a reachable neighbour with this link-local address. Waits for the answer, so callers do not hold
// hbs_list_mutex; at most 150 ms, and after a look-up that took longer the next second has no answers.
// Returns 0 and fills mac_out (6 bytes), or -1 (mac_out untouched). While no probe thread runs (start-up) it
// asks itself.
int hbs_ask_neigh_lladdr(const uint8_t ll[16], uint8_t mac_out[6]);

// The action of HBS_PROBE_NEIGHBOUR.
void hbs_probe_neighbour(const hbs_probe *probe, bool in_time);
