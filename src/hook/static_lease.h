// The static leases that the daemon has told dnsmasq of.
#pragma once

#include <cstdint>

// Whether a file of dnsmasq's hosts has the line "MAC,ADDRESS". dnsmasq itself does not say it when it tells
// a lease again.
bool hbs_hosts_have(const char *path, const uint8_t mac[6], const uint8_t ipv4[4]);

// The same of the file that the daemon keeps: where the settings name it, else at its usual place.
bool hbs_is_static_lease(const char *settings, const uint8_t mac[6], const uint8_t ipv4[4]);
