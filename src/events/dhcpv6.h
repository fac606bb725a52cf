// DHCPv6 leases, and the link-local identity of clients. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "files/lease.h"

// What the kernel's neighbour table says of a link-local address.
struct hbs_dhcpv6_neighbour {
    bool known;
    uint8_t mac[6];
};

// Asks the kernel whose the link-local address of a lease is, when no client has it and the lease counts. To
// be called before the lease is handled, without hbs_list_mutex: the answer may take a while.
hbs_dhcpv6_neighbour hbs_ask_dhcpv6_neighbour(const uint8_t ll[16], const uint8_t ipv6[16]);

// A link-local address of zeros is none (missing, or could not be read): the global one names the client
// then. A message with neither is dropped with a log line.

// neighbour: of the lease's link-local address. Cuts the lease's host name in place. Returns the client, or
// null.
hbs_client *hbs_handle_dhcpv6_lease(hbs_dhcpv6_lease *lease, const hbs_dhcpv6_neighbour *neighbour);

// mac may be null. Returns the client found, its IPv6 addresses emptied, or null. Not published here.
hbs_client *hbs_handle_dhcpv6_release(const uint8_t *mac, const uint8_t ll[16], const uint8_t ipv6[16]);

// A link-local neighbour; mac may be null. Returns the client, or null.
hbs_client *hbs_handle_ipv6_ll_neighbor(const uint8_t *mac, const uint8_t ll[16]);
