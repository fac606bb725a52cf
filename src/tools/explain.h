// Everything that is known of one device, and why it counts as on line or off line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/audit.h"
#include "tools/json_view.h"
#include "tools/router_settings.h"
#include "tools/session.h"
#include "tools/station.h"

// What the kernel says of a device now. Ages in seconds.
struct neighbour_entry {
    std::string address;
    std::string state; // "reachable", "stale", ...
    std::string interface;
    unsigned age = 0; // since the last change
};

struct forwarding_entry {
    std::string port;
    std::string bridge;
    unsigned vlan = 0; // 0 = none
    unsigned age = 0;  // since the last frame
    bool carrier = false;
};

struct explanation {
    hbs_client client = {};
    std::vector<neighbour_entry> neighbours;
    std::vector<forwarding_entry> forwarding;
    std::vector<station_entry> stations;
    std::vector<sighting> leases;
    router_settings router;
    uint32_t now = 0;         // CLOCK_MONOTONIC seconds
    uint32_t uptime = 0;      // CLOCK_BOOTTIME seconds, which go on while the machine sleeps
    bool kernel_asked = true; // false: nothing is known of the kernel's tables
};

// One sentence: why the device counts as it does.
std::string verdict(const explanation &known);

// What would change that next, a sentence each.
std::vector<std::string> what_would_change_it(const explanation &known);

// What is known to have happened when its presence changed last, as clauses: the database keeps when that
// was, not why. Empty when nothing that is seen now goes back to that moment.
std::vector<std::string> what_came_then(const explanation &known);

text_table explanation_table(const explanation &known);
json explanation_json(const explanation &known);

// The command.
void explain(session &run, const std::string &key);
