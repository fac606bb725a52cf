// The static leases of a network follow it to its new subnet. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

// Moves the static leases of network `rndidx` (1-8) from the file named after its old address to the
// one named after its new address, each with its host part in the new subnet. Addresses in host order.
// Returns 0, or -1 (the old file is then still there).
int hbs_lease_subnet4_changed(uint32_t rndidx, uint32_t old_address, uint32_t new_address,
                              uint32_t prefix_length);
