// What the daemon remembers in files: rules, static leases, clients, trusted devices.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/audit.h"
#include "tools/requests.h"

// One rule of a rule file.
struct filed_rule {
    uint8_t list; // HBS_LIST_WHITE or HBS_LIST_BLACK
    std::string mac;
    rule_values rule;
};

struct settings_files {
    std::vector<sighting> leases; // the static ones
    std::vector<filed_rule> rules;
    size_t remembered = 0; // clients in the file of remembered clients
    size_t trusted = 0;    // devices in the file of trusted devices
};

// A file that is not there holds nothing. Throws std::runtime_error for one that cannot be read.
settings_files read_settings_files();

// The parser of one rule file, which skips what is no rule.
std::vector<filed_rule> parse_rule_file(const std::string &text, uint8_t list);
