// One-shot look into the kernel's neighbour table.
#pragma once

#include <cstdint>

// MAC of a reachable neighbour entry. family AF_INET or AF_INET6; address 4 or 16 bytes, network order.
// Returns 0 and fills mac_out (6 bytes), or -1 (mac_out untouched), within 200 ms whatever the kernel does.
// Takes no lock and may run on any thread.
int hbs_query_neigh_lladdr(int family, const uint8_t *address, uint8_t *mac_out);
