// The kernel's neighbour table.
#pragma once

#include <cstdint>

#include "base/netlink.h"

// Whether a device has an address that it answered for of late, or that the kernel is asking it for just now;
// also when the table could not be read.
bool linux_neighbour_answers(const uint8_t mac[6]);

// Looks at one message of the kernel's. Returns whether it is such an entry of that MAC.
bool linux_neighbour_match(hbs_netlink_bytes message, const uint8_t mac[6]);

// Has the kernel ask for an address as if it had something to send there. Waits for nothing.
// device: the kernel's index, 0 = none, which does nothing.
void linux_neighbour_use(int device, int family, const uint8_t *address);
