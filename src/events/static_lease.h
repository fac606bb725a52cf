// The addresses that users fix. Callers hold hbs_list_mutex. Setting and
// clearing wait for the DHCP server's locks on its files, seconds at the worst (HBS_LOCK_PATIENCE).
#pragma once

#include <cstdint>

// address: 4 bytes for AF_INET, 16 for AF_INET6, network order. Texts may be empty, never null.
struct hbs_static_lease_request {
    int family;
    uint8_t nwidx;
    uint8_t address[16];
    uint8_t mac[6];
    const char *comment;
    const char *host;
};
// 0, also when nothing could be kept in files (logged), or -1 when refused.
int hbs_api_set_static_lease(const hbs_static_lease_request *request);

// Always 0, whatever was found: who asks has nothing else to do.
int hbs_api_clr_static_lease(int family, const uint8_t *address);
int hbs_api_set_internal_lease(int family, const uint8_t *address, const uint8_t mac[6]);
