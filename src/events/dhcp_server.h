// The event that the DHCP server of one network was (re)started.
#pragma once

#include <cstdint>

// group is an rndidx (from 1); start 0 does nothing. Re-validates every client against the network's
// pool and static leases. Caller holds hbs_list_mutex.
void hbs_handle_dhcp_server(uint32_t group, uint32_t start);
