// The rule index of the segment: one entry a rule, instances dense from 1.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// Identity of a rule is (type, mac, p1, p2, p3). p[] are rule parameters p1-p7. All lock.
void hbs_file_update_rule_idx(uint8_t type, const uint8_t mac[6], const uint32_t p[7]);
void hbs_file_remove_rule_idx(uint8_t type, const uint8_t mac[6], uint32_t p1, uint32_t p2, uint32_t p3);

// Replace an entry kept under a TR-069 instance number. The first looks for (type, instance, mac), does
// nothing without one, and replaces it when p1-p3 differ. The second looks for the whole identity and the
// instance, replaces it when p5-p7 differ, and makes a new entry when there is none.
void hbs_file_update_rule_tr69_tod(uint8_t type, const uint8_t mac[6], const uint32_t p[7],
                                   uint32_t instance);
void hbs_file_update_rule_tr69_idx(uint8_t type, const uint8_t mac[6], const uint32_t p[7],
                                   uint32_t instance);

uint32_t hbs_rule_count();

// Returns every rule element to its pool, those that were only unlinked too, and clears the count
// (part of a flush and of the initialisation).
void hbs_rule_index_clear();
