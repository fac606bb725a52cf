// What the kernel says of one device.
#pragma once

#include "base/netlink.h"
#include "tools/explain.h"

// Fills in the neighbour entries of a client's MAC and addresses and the bridges' entries of its MAC.
void ask_kernel(explanation &known);

// The parsers: none for an entry of another device.
std::optional<neighbour_entry> neighbour_of(const hbs_netlink_bytes &message, const hbs_client &client);
std::optional<forwarding_entry> forwarding_of(const hbs_netlink_bytes &message, const hbs_client &client);
