// Questions to the kernel by routing netlink.
#pragma once

#include "base/netlink.h"

// Nothing that is asked under the daemon's lock is waited for longer than 50 ms; one event may need two
// searches.
constexpr int LINUX_PATIENCE_MS = 20;

int64_t linux_now_ms(); // CLOCK_MONOTONIC

// Sends a request (its header filled but for the acknowledgement flag and the sequence) and visits the data
// messages of the answer. Returns whether the answer came to its end within patience_ms; errno says why not.
bool linux_ask(nlmsghdr *request, int patience_ms, hbs_netlink_visit visit, void *context);

// A number in an attribute, 0 when it is not there or has another size.
uint32_t linux_u32(hbs_netlink_bytes bytes);
