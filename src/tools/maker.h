// Who made a device, as its MAC tells.
#pragma once

#include <cstdint>
#include <string>

// Debian's list (package ieee-data): lines such as "00-22-72   (hex)\t\tNAME".
constexpr const char *oui_list = "/usr/share/ieee-data/oui.txt";

// Whether the MAC was made up by the device, as phones do that want to stay unknown.
bool is_random_mac(const uint8_t mac[6]);

// The maker's name; empty for a random MAC, an unknown maker, or where there is no list.
std::string maker_of(const uint8_t mac[6], const char *list = oui_list);
