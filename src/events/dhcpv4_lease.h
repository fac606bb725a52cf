// DHCPv4 lease, release and information events. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "files/lease.h"

// Returns the client, or null.
hbs_client *hbs_handle_dhcpv4_lease(const hbs_dhcpv4_lease *lease);

// dynamic and seconds are those of the lease that ends, as its message brings them: a negative `dynamic` or
// less than one second, and nothing happens. Returns the client found, or null.
hbs_client *hbs_handle_dhcpv4_release(const uint8_t mac[6], const uint8_t ipv4[4], int32_t dynamic,
                                      int32_t seconds);

// What the information event hands back for the TR-069 agent.
struct hbs_dhcpv4_identity {
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
};
hbs_client *hbs_handle_dhcpv4_info(const uint8_t mac[6], const uint8_t ipv4[4], int32_t nwidx,
                                   int32_t adapter_type, hbs_dhcpv4_identity *identity);
