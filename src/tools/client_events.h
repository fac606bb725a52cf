// What changed of the clients from one look to the next.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include <hbs_db.h>

#include "tools/time_text.h"

struct client_event {
    time_t when;
    std::string client;        // as key_of names it
    std::string name;          // of the client, or empty
    std::string field;         // of client_fields(); "client" when it came or went
    std::string before, after; // empty: none
};

// What is known of the time before a look: each client that went on or off line, or came, less than
// `seconds` ago, the oldest first. What was before is not known, and empty.
std::vector<client_event> events_since(const std::vector<hbs_client> &clients, double seconds,
                                       const moment &now);

// Clients are the same when they have the same MAC, or without one the same number.
std::vector<client_event> events_between(const std::vector<hbs_client> &before,
                                         const std::vector<hbs_client> &after, time_t when);
