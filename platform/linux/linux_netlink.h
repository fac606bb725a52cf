// Questions to the kernel by routing netlink.
#pragma once

#include "base/netlink.h"

// What is asked under the daemon's lock: all answers together are waited for no longer than this, counted
// anew once LINUX_ROUND_MS have passed since the first. One event may need several answers, and no hold of
// the lock lasts a round.
constexpr int64_t LINUX_PATIENCE_MS = 40;
constexpr int64_t LINUX_ROUND_MS = 200;

struct linux_patience {
    int64_t began_ms; // the round, CLOCK_MONOTONIC
    int64_t spent_ms;
};

// How much of it is left at a moment, and what is spent of it.
int64_t linux_patience_left(linux_patience *patience, int64_t now_ms);
void linux_patience_spend(linux_patience *patience, int64_t spent_ms);

int64_t linux_now_ms(); // CLOCK_MONOTONIC

// Sends a request (its header filled but for the acknowledgement flag and the sequence) and visits the data
// messages of the answer. Returns whether the answer came to its end within patience_ms; errno says why not.
bool linux_ask(nlmsghdr *request, int patience_ms, hbs_netlink_visit visit, void *context);

// The same for questions under the daemon's lock: with ETIMEDOUT at once when there is no patience left.
bool linux_ask_soon(nlmsghdr *request, hbs_netlink_visit visit, void *context);

// A number in an attribute, 0 when it is not there or has another size.
uint32_t linux_u32(hbs_netlink_bytes bytes);
