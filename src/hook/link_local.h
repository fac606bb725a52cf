// The kernel's neighbour table by MAC.
#pragma once

#include <cstdint>

// The link-local address that a MAC has, the surest of several, into ll. Returns whether there is one (ll
// untouched).
bool hbs_link_local_of(const uint8_t mac[6], uint8_t ll[16]);
