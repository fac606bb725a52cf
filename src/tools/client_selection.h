// Which clients are shown, and in which order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <hbs_db.h>

struct client_selection {
    bool online = false, offline = false; // neither: both
    std::vector<uint32_t> networks;       // none: all
    std::vector<std::string> adapters;    // none: all
    std::string sort = "network";         // one of sort_keys()
    bool reverse = false;
};

// "network" (then by address), "ip", "name", "mac", "seen" (what went on or off line last comes first).
const std::vector<std::string> &sort_keys();

bool is_wanted(const hbs_client &client, const client_selection &how);
bool comes_before(const hbs_client &left, const hbs_client &right, const client_selection &how);

// Those that are wanted, in order.
std::vector<hbs_client> selected(std::vector<hbs_client> clients, const client_selection &how);
