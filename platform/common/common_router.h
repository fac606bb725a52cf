// What the router database holds of each LAN network.
#pragma once

#include <cstddef>
#include <cstdint>

#include <rnddb.h>

constexpr size_t COMMON_ROUTER_OTHERS = 16;

struct common_router_subnet {
    int family;
    uint32_t length; // of the prefix, at most 32 or 128
    uint8_t address[16];
};

struct common_router_entry {
    rnddb_params params;
    bool has_lease_time;
    int routed;
    size_t others; // subnets besides those that `params` has
    common_router_subnet other[COMMON_ROUTER_OTHERS];
};

struct common_router_table {
    bool usable;
    size_t count; // in ascending rndidx
    common_router_entry entry[RNDDB_MAX_ENTRIES];
};

// Supplied by the platform: makes a fresh table what the daemon's calls see, where another thread does not
// keep it so already. Returns 0 when it is usable, else an error number.
int common_router_refresh();

// Makes a table what the daemon's calls see from now on. Any thread.
void common_router_replace(const common_router_table *table);

// Whether they see one.
bool common_router_is_usable();
