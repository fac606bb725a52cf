// What the user set of the devices, as a document that is exported and imported.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/json_view.h"
#include "tools/look.h"
#include "tools/requests.h"

// One device. What is not set is empty, and an import leaves it as it is.
struct device_settings {
    mac_bytes mac = {};
    std::optional<ip_address> static_lease; // makes a client, with its comment and host name
    std::optional<ip_address> internal_lease;
    std::vector<uint32_t> trusted_for; // 1 sites, 2 services
    std::string comment;
    std::optional<std::string> host;                    // only where the user set a text
    std::vector<uint8_t> lists;                         // HBS_LIST_*, on which it is
    std::vector<std::pair<uint8_t, rule_values>> rules; // each on a list
    std::string description, keywords, domains;         // come with a list
    uint32_t filter_word = 0;                           // and this
};

bool is_on_list(const device_settings &device);
bool has_list_texts(const device_settings &device);

// All devices with a MAC of which something is set, in the order of their MACs.
std::vector<device_settings> settings_of(const look &now);

// {"hbsctl_settings": 1, "devices": [...]}
json settings_json(const std::vector<device_settings> &devices);

// Throws request_error for what is no such document.
std::vector<device_settings> parse_settings(const std::string &text);
