// When a client's leases began and end. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>
#include <ctime>

#include <hbs_db.h>

// Stores the system uptime in lease_start_uptime.
void hbs_set_start_time(hbs_client *client);

// Lease of `seconds` from now: dates and lease timer; 0 does nothing.
void hbs_lease_set(hbs_client *client, uint32_t seconds);

// DHCPv6 lease end, absolute seconds since the epoch (deliberately unlike the IPv4 case); 0 sets no date.
void hbs_leasev6_set(hbs_client *client, time_t end);

void hbs_clear_lease_end(hbs_client *client);
void hbs_clear_lease_v6_end(hbs_client *client);
