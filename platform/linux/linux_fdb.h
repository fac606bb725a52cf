// The forwarding tables of the LAN bridges.
#pragma once

#include <cstdint>

#include "base/netlink.h"

struct linux_fdb_entry {
    int port;     // kernel index of the bridge's port
    uint32_t age; // since the last frame from the MAC, clock ticks
};

// Where a MAC is learned just now, over all LAN bridges and all their VLANs; the one that was heard of last
// when there are several. Returns 1, 0 when it is in none, -1 when the kernel could not be asked. The
// bridges' own addresses are in none.
int linux_fdb_find(const uint8_t mac[6], linux_fdb_entry *found);

// The same port as far as it is known: where the kernel does not answer in time, what it said last counts.
int linux_fdb_port(const uint8_t mac[6], int *port);

// Asks as well, waits for as long as the kernel takes, and has the answer remembered. Not for callers under
// the daemon's lock. Returns whether there was one.
bool linux_fdb_await(const uint8_t mac[6]);

// The kernel told that the MAC is behind that port now.
void linux_fdb_learned(const uint8_t mac[6], int port); // 0 = nowhere

// Looks at one message of the kernel's. Returns whether it is an entry of that MAC on a port of the bridge.
bool linux_fdb_match(hbs_netlink_bytes message, int bridge, const uint8_t mac[6], linux_fdb_entry *entry);
