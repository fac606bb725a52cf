// DHCPv4 lease, release and information events. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// Texts are NUL-terminated and never null.
struct hbs_dhcpv4_lease {
    uint8_t mac[6];
    uint8_t ipv4[4]; // network order
    bool dynamic;    // false = static lease
    uint32_t seconds;
    const char *host;
    const char *ifname;
    const char *oui;
    const char *serial_number;
    const char *product_class;
    const char *lease_file;
    int32_t nwidx;        // -1 = to be worked out
    int32_t adapter_type; // -1 = to be worked out
};

// Returns the client, or null.
hbs_client *hbs_handle_dhcpv4_lease(const hbs_dhcpv4_lease *lease);

// a must not be negative and b at least 1, else nothing happens. Returns the client found, or null.
hbs_client *hbs_handle_dhcpv4_release(const uint8_t mac[6], const uint8_t ipv4[4], int32_t a, int32_t b);

// What the information event hands back for the TR-069 agent.
struct hbs_dhcpv4_identity {
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
};
hbs_client *hbs_handle_dhcpv4_info(const uint8_t mac[6], const uint8_t ipv4[4], int32_t nwidx,
                                   int32_t adapter_type, hbs_dhcpv4_identity *identity);
