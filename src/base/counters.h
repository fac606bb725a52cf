// How often things happened since the daemon began. The counts stand in the file of the daemon's lock, where
// hbsctl reads them, and which version counts, without asking the daemon.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t HBS_COUNTS_VERSION_SIZE = 32;

enum hbs_counter {
    HBS_COUNT_DATAGRAMS,    // taken from the command socket
    HBS_COUNT_AGENT_EVENTS, // handed to the TR-069 agent
    HBS_COUNT_LOST,         // neighbour events that the kernel had no room for
    HBS_COUNT_WAITS,        // for a reader that held the semaphore
    HBS_COUNT_TAKEOVERS,    // of the semaphore, from a reader that did not give it back
    HBS_COUNTERS
};

// What the file holds, in the host's order. The counts wrap.
struct hbs_counts {
    uint32_t count[HBS_COUNTERS];
    char version[HBS_COUNTS_VERSION_SIZE]; // of the daemon, with a NUL
};

// Any thread may count.
void hbs_count(hbs_counter what, uint32_t times = 1);

// From now on the counts stand in this file, which may be closed, and begin at 0. Returns false, and counts
// nowhere that others see, when there is no room for it.
bool hbs_counters_share(int file, const char *version);
