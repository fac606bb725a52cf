// Seeds the kernel's neighbour table with the global address that a client's link-local address implies, once
// the device answered for it.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "base/probe_queue.h"

// Callers hold hbs_list_mutex.
void hbs_seed_ipv6_neighbor(hbs_client *client);

// Has the device asked for the address. prefix: the network's first 8 address bytes. Callers hold
// hbs_list_mutex.
void hbs_ipv6_probe_and_add(const hbs_client *client, const uint8_t prefix[8]);

// The action of HBS_PROBE_SEED: adds the neighbour when the probe prints anything and the client still has
// the link-local address. Takes hbs_list_mutex, holds it while no program runs.
void hbs_probe_seed(const hbs_probe *probe, bool in_time);
