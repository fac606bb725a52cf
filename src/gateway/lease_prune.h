// Pruning of the DHCPv4 server's files after a network's pool or subnet was set. Groups are 0-7; a group
// without a file is left alone. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

// Keeps the dynamic leases in [start, end]; addresses in host order.
void hbs_lease_prune_host4(int group, uint32_t start, uint32_t end);

// Keeps the static leases inside address/netmask; host order.
void hbs_lease_prune_static4(int group, uint32_t address, uint32_t netmask);
