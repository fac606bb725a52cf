// The JSON forms of everything that hbsctl shows.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/database.h"
#include "tools/time_text.h"

using json = nlohmann::ordered_json;

// On the two clocks that a record has times of: the one of presence, and the system's uptime.
struct both_moments {
    moment presence, uptime;
};
both_moments moments_now();

// Absent addresses, dates and texts of addresses are null; other texts are strings, empty when absent.
json client_json(const hbs_client &client, const both_moments &now = moments_now());
json clients_json(const std::vector<hbs_client> &clients,
                  const both_moments &now = moments_now()); // {"clients": [...]}
json indices_json(const database &db);                      // {"ip", "interface", "dhcp", "primary"}
json rules_json(const database &db);                        // {"rules": [...]}

// The text of a document. Bytes that are not UTF-8 become U+FFFD. indent -1: all on one line.
std::string json_text(const json &document, int indent = 2);
