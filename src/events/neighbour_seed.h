// Seeds the kernel's neighbour table with the global address that a client's link-local address implies.
// Runs under hbs_list_mutex; the probe takes up to a second when nobody answers.
#pragma once

#include <cstdint>

#include <hbs_db.h>

void hbs_seed_ipv6_neighbor(hbs_client *client);

// prefix: the network's first 8 address bytes. Adds the neighbour when the probe prints anything.
void hbs_ipv6_probe_and_add(const hbs_client *client, const uint8_t prefix[8]);
