// DHCPv6 leases, and the link-local identity of clients. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>

struct hbs_dhcpv6_lease {
    uint8_t ll[16];
    uint8_t ipv6[16];
    int64_t lease_end; // seconds since the epoch, 0 = static lease; holds both what is unsigned and what is
                       // signed
    char *host;        // cut at its first "." in place
    const char *oui;
    const char *serial_number;
    const char *product_class;
    const char *lease_file;
};

// Returns the client, or null.
hbs_client *hbs_handle_dhcpv6_lease(hbs_dhcpv6_lease *lease);

// mac may be null. Returns the client found, its IPv6 addresses emptied, or null. Not published here.
hbs_client *hbs_handle_dhcpv6_release(const uint8_t *mac, const uint8_t ipv6[16]);

// A link-local neighbour; mac may be null. Returns the client, or null.
hbs_client *hbs_handle_ipv6_ll_neighbor(const uint8_t *mac, const uint8_t ll[16]);
