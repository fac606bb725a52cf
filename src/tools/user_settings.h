// What the user set of the devices, as a document that is exported and imported.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/json_view.h"
#include "tools/list_texts.h"
#include "tools/look.h"
#include "tools/requests.h"

// One device. What is not named has no value, and an import leaves it as it is; an empty text removes one.
struct device_settings {
    mac_bytes mac = {};
    std::optional<ip_address> static_lease; // makes a client, with its comment and host name
    uint16_t lease_network = 0;             // of the client that it makes
    std::optional<ip_address> internal_lease;
    std::vector<uint32_t> trusted_for; // 1 sites, 2 services
    std::optional<std::string> comment;
    std::optional<std::string> host;                    // only where the user set a text
    std::vector<uint8_t> lists;                         // HBS_LIST_*, on which it is
    std::vector<std::pair<uint8_t, rule_values>> rules; // each of a list, on which it need not be
    list_texts texts;                                   // come with a list
};

bool is_on_list(const device_settings &device);

// All devices with a MAC of which something is set, in the order of their MACs.
std::vector<device_settings> settings_of(const look &now);

// {"hbsctl_settings": 1, "devices": [...]}. A text that is not UTF-8 stands as its bytes: {"hex": "4bfc"}.
json settings_json(const std::vector<device_settings> &devices);

// Throws request_error for what is no such document.
std::vector<device_settings> parse_settings(const std::string &text);
