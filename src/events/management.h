// What users set on purpose. Callers hold hbs_list_mutex. Results: 0, or -1 when refused.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// kind 1 site, 2 service. comment may be empty, never null.
int hbs_api_set_trust(int kind, bool enable, const char *comment, hbs_client *client);
int hbs_api_trust_by_mac(int kind, bool enable, const uint8_t mac[6], const char *comment);
int hbs_api_trust_by_ipv4(int kind, bool enable, const uint8_t ipv4[4], const char *comment);
int hbs_api_trust_by_ipv6(int kind, bool enable, const uint8_t ipv6[16], const char *comment);

// address: 4 bytes for AF_INET, 16 for AF_INET6, network order. Texts may be empty, never null.
struct hbs_static_lease_request {
    int family;
    uint8_t nwidx;
    uint8_t address[16];
    uint8_t mac[6];
    const char *comment;
    const char *host;
};
int hbs_api_set_static_lease(const hbs_static_lease_request *request);
int hbs_api_clr_static_lease(int family, const uint8_t *address);
int hbs_api_set_internal_lease(int family, const uint8_t *address, const uint8_t mac[6]);

int hbs_api_set_comment_host(hbs_client *client, const char *comment, const char *host);

struct hbs_filter_request {
    uint8_t type; // HBS_LIST_WHITE or HBS_LIST_BLACK
    uint8_t mac[6];
    uint32_t value[6]; // rule values 1-6
    const char *comment;
    const char *description;
    const char *keyword_list;
    const char *domain_list;
    uint32_t filter_word;
};
int hbs_api_set_mac_filter(const hbs_filter_request *request);
int hbs_api_clr_mac_filter(const hbs_filter_request *request); // type, mac and values 1-3 only

// mode 0 bridge: the database is emptied and events are ignored; else routed. Returns 0.
int hbs_set_route_mode(uint8_t mode);
