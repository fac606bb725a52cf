// What the DHCP servers' notification files tell of, handed to the lease handlers: under hbs_list_mutex, and
// only while the database is ready.
#pragma once

#include "files/dhcpv4_notice.h"
#include "files/dhcpv6_notice.h"

void hbs_handle_dhcpv4_notice(const hbs_dhcpv4_notice *notice);

// Returns whether a lease handler was called and did something.
bool hbs_handle_dhcpv6_notice(hbs_dhcpv6_notice *notice);
