// The published database as one agreed look.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <hbs_db.h>

#include "tools/session.h"

struct database {
    std::vector<hbs_client> clients; // each list in its own order
    std::vector<hbs_ip_entry> ip;
    std::vector<hbs_if_entry> interfaces;
    std::vector<hbs_ip_entry> dhcp;
    std::vector<hbs_rule_entry> rules;
    std::vector<hbs_pri_entry> primary;
};

// Why the database could not be read: a HOSTBASE_* result and its text.
struct database_error : std::runtime_error {
    int result;
    explicit database_error(int result);
};

// What a run ends with that fails by it.
exit_status status_of(const database_error &error);

// Throws database_error.
database read_database();

// Clients that a person may mean: by MAC, by any of their addresses, or by host or device name
// (letters of either case).
std::vector<hbs_client> matching_clients(const database &db, const std::string &key);

// The client that an index entry refers to by its offset; null when it is not published.
const hbs_client *client_at(const database &db, uint32_t dbpos);
