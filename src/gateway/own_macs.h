// The gateway's own range of MAC addresses, which never make a client.
#pragma once

#include <cstdint>

// Inclusive range as 48-bit numbers, byte 0 most significant; both 0 until it was computed.
extern uint64_t hbs_internal_mac_low;
extern uint64_t hbs_internal_mac_high;

// Computes the range from the gateway's base MAC address: base - 2 to base + 14.
void hostbase_set_internal_mac_range();

// The LAN-client test: false for a MAC in the range, and for six zero bytes, which are no address. A null
// MAC passes: an event may name none.
bool hbs_mac_is_lan_client(const uint8_t *mac);
