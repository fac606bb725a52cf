// One message of the kernel about a neighbour, from its bytes to the handler of its state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/netlink.h"

// Whether a kernel interface index is that of the gateway's own WAN, MTA or eRouter interface, whose
// neighbours are never clients.
bool hbs_is_wan_ifindex(int ifindex);

// message: a netlink message with its header, `length` bytes of it there (at most what the header says is
// read); no alignment needed. What is no neighbour message is printed or passed over, and what is cut
// short or has an address of a wrong length never reaches a handler.
void hbs_handle_neigh_message(const uint8_t *message, size_t length);

// Whether an entry has an address of its family and at most one MAC, and is not on one of the gateway's own
// outward interfaces.
bool hbs_neighbour_is_sound(const hbs_neighbour *entry);

// What is sound goes, with its line in the log, to the handler of its state. lladdr null = none.
void hbs_tell_neighbour(const ndmsg *header, const uint8_t *lladdr, const uint8_t *address);
