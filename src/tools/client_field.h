// Every field of a client that can be shown, by its name: the one table that columns, details, changes and
// read-backs share.
#pragma once

#include <string>
#include <vector>

#include <hbs_db.h>

struct client_field {
    const char *name;                        // as a person types it
    const char *title;                       // in running text
    bool setting;                            // a user sets it
    bool event;                              // a change of it is an event of its own
    std::string (*text)(const hbs_client &); // empty: not there
};

const std::vector<client_field> &client_fields();
