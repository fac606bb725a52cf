// Questions to the kernel by routing netlink.
#pragma once

#include "base/netlink.h"

int64_t linux_now_ms(); // CLOCK_MONOTONIC

// Sends a request (its header filled but for the acknowledgement flag and the sequence) and visits the data
// messages of the answer. Returns whether the answer came to its end within patience_ms of its first message;
// errno says why not. The kernel may keep the request itself waiting for longer: not for callers under the
// daemon's lock.
bool linux_ask(nlmsghdr *request, int patience_ms, hbs_netlink_visit visit, void *context);

// A number in an attribute, 0 when it is not there or has another size.
uint32_t linux_u32(hbs_netlink_bytes bytes);
