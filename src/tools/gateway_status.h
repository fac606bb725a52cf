// How the daemon and its database are, as numbers.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tools/audit.h"
#include "tools/database.h"
#include "tools/session.h"

struct head_count {
    size_t clients = 0, online = 0;
};

struct pool_use {
    const char *name;
    size_t used, size;
};

// What the daemon has counted since it began, see base/counters.h.
struct daemon_count {
    const char *name;
    const char *help;
    uint32_t value;
};

struct gateway_status {
    bool running = false;
    pid_t pid = 0;                // 0: not known
    std::string version;          // of the daemon; empty: not known
    std::optional<double> uptime; // seconds
    std::optional<bool> routed;   // none: nobody told
    bool hangs = false;           // asked for its mode, the daemon did not answer in time
    std::string why_unknown;      // the mode, when nobody told it
    head_count all;
    std::map<unsigned, head_count> networks;
    std::map<std::string, head_count> adapters;
    std::vector<pool_use> pools;
    std::vector<daemon_count> counts;         // empty: this user may not see them
    std::optional<hbs_client> next_displaced; // by the client that finds the pool full
};

// All of it: asks the kernel and the daemon, too.
gateway_status read_status(const session &run, const database &db);

// All but the mode, which only the daemon knows: what costs it nothing.
gateway_status seen_status(const session &run, const database &db);

// The mode, and whether the daemon tells it at all.
void ask_mode(const session &run, gateway_status &status);

// The part of it that the database and the files tell.
gateway_status status_of(const database &db, const std::vector<sighting> &static_leases);

// The client that has been off line longest of those that nothing protects, a static lease in the DHCP
// servers' files among it; otherwise the first with neither MAC nor address; none when all are protected.
std::optional<hbs_client> next_displaced(const std::vector<hbs_client> &clients,
                                         const std::vector<sighting> &static_leases);
