// One look at everything that a command may change.
#pragma once

#include <string>
#include <vector>

#include "tools/database.h"
#include "tools/lan_networks.h"
#include "tools/settings_files.h"

struct look {
    bool routed = true;
    database db;
    settings_files files;
    std::vector<lan_network> networks;
};

// Throws database_error, daemon_error, and std::runtime_error for a file that cannot be read.
look look_around(const std::string &socket_path, double seconds);

// One thing that is so. The value "yes" says that it is there and has no value of its own.
struct fact {
    std::string what;
    std::string value;
};

// What the facts of two looks differ in; an empty value: it was, or is, not there.
struct change {
    std::string what, before, after;
};

std::vector<change> changes_between(const std::vector<fact> &before, const std::vector<fact> &after);

// "comment of 02:aa:00:00:00:11: changed from 'a' to 'b'"
std::string change_text(const change &one);

// What a user sets of a client that is named by its MAC or by an address, and whether it is there.
std::vector<fact> client_facts(const look &now, const std::string &key);

// The static leases of a MAC and of an address (empty: any).
std::vector<fact> lease_facts(const look &now, const std::string &mac, const std::string &address);

// The rules of a device, in the files and in the table.
std::vector<fact> rule_facts(const look &now, const std::string &mac);

std::vector<fact> operator+(std::vector<fact> left, const std::vector<fact> &right);
