// The devices that users trust. Callers hold hbs_list_mutex. Results: 0, also when
// nothing could be kept in files (logged), or -1 when refused.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// kind 1 site, 2 service. comment may be empty, never null.
int hbs_api_set_trust(int kind, bool enable, const char *comment, hbs_client *client);
int hbs_api_trust_by_mac(int kind, bool enable, const uint8_t mac[6], const char *comment);
int hbs_api_trust_by_ipv4(int kind, bool enable, const uint8_t ipv4[4], const char *comment);
int hbs_api_trust_by_ipv6(int kind, bool enable, const uint8_t ipv6[16], const char *comment);
