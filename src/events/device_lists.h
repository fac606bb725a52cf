// The white and the black list with their rules. Callers hold hbs_list_mutex. Results: 0, also when
// nothing could be kept in files (logged), or -1 when refused.
#pragma once

#include <cstdint>

struct hbs_filter_request {
    uint8_t type; // HBS_LIST_WHITE or HBS_LIST_BLACK
    uint8_t mac[6];
    uint32_t value[6]; // rule values 1-6
    const char *comment;
    const char *description;
    const char *keyword_list;
    const char *domain_list;
    uint32_t filter_word;
    uint32_t rule_word; // of the rule commands
};
// -1 for a type that is no list, but the device is known by then and has the texts: kept.
int hbs_api_set_mac_filter(const hbs_filter_request *request);
int hbs_api_clr_mac_filter(const hbs_filter_request *request); // type, mac and values 1-3 only

// A rule of a device, list membership untouched. Returns whether the device is known, whatever becomes of the
// rule file.
bool hbs_api_set_rule(const hbs_filter_request *request);
bool hbs_api_clr_rule(const hbs_filter_request *request); // type, mac and values 1-3 only
