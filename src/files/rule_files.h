// White and black rule files: one line per client, its MAC text and then its rules, each followed by ";".
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_msg.h>

#include "base/paths.h"

// Limits of a line: a longer one stays in the file untouched; a rule behind the thirtieth is loaded, but not
// seen by an edit of its line, and gone after it.
constexpr size_t HBS_RULE_LINE_MAX = 2399;
constexpr int HBS_RULES_PER_LINE = 30;

// A rule: key (written in hexadecimal) and five more values. Equal when the first three are equal.
struct hbs_rule {
    uint32_t value[6];
};

// Path of a list's rule file (HBS_LIST_...), or null for a number that is no list.
constexpr const char *hbs_rule_file_of(uint8_t list) {
    if (list == HBS_LIST_WHITE)
        return HBS_WHITE_RULES;
    return list == HBS_LIST_BLACK ? HBS_BLACK_RULES : nullptr;
}

// Reads one rule file into the rule index; kind 1 white, 2 black. A rule of a MAC without a client is
// dropped. 0, or -1 when the file is missing or cannot be read (logged).
int hbs_nv_load_client_rules(int kind, const char *path);

// Loads the white file, then the black file.
void hbs_nv_load_rules();

// Adds or replaces one rule of a MAC in a file (used for both files). 0, or -1 (logged).
int hbs_nv_update_client_white_rules(const char *path, const uint8_t mac[6], const hbs_rule *rule);

// Removes one rule of a MAC, by its first three values. *rules_left [out]: whether rules of the MAC
// remain in the file, or may remain in one that cannot be read. 0, or -1 when the file could not be read or
// written (logged).
int hbs_nv_clear_client_rules(const char *path, const uint8_t mac[6], const hbs_rule *rule, bool *rules_left);
