// Who made a device, as its MAC tells.
#pragma once

#include <cstdint>
#include <string>

#include "base/paths.h"

// Whether the MAC was made up by the device, as phones do that want to stay unknown.
bool is_random_mac(const uint8_t mac[6]);

// The maker's name; empty for a random MAC, an unknown maker, or where there are no lists.
std::string maker_of(const uint8_t mac[6], const char *directory = HBS_MAKER_LISTS);
