// The persistent user configuration, /nvram/8/userconf: lines of key, "=", value, ";".
#pragma once

#include <cstddef>

// Keys, to which ".N" is appended: N = 200 + group.
constexpr const char *HBS_USERCONF_LAN_ADDRESS = "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5";
constexpr const char *HBS_USERCONF_RANGE_11 = "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.11";
constexpr const char *HBS_USERCONF_RANGE_13 = "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.13";

// Value of the first line that contains `key` (plain substring): the text between its first "=" and
// its first ";". value [out] terminated inside size. Returns 1 found, 0 not.
int hbs_getPersistentUserSettings(const char *key, const char *file, char *value, size_t size);

// Whether there is such a file; most gateways have none, and then it names nothing.
bool hbs_userconf_is_there();

// Address value of object `key`.`instance`, as dotted text. Returns 1 found, 0 not.
int hbs_userconf_address(const char *key, int instance, char text[16]);
