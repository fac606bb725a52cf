// Tables of the index lists, each in its own order.
#pragma once

#include <string>

#include "tools/database.h"
#include "tools/text_table.h"

// The address in the key of an IP index entry (with a length word) or of a DHCP-option entry
// (without); empty when the key has neither form.
std::string key_address(const hbs_ip_entry &entry, bool has_length);

// 0 when the key has no second word.
uint32_t rule_instance(const hbs_rule_entry &rule);

text_table ip_table(const database &db, const std::vector<hbs_ip_entry> &entries, bool has_length);
text_table interface_table(const database &db);
text_table primary_table(const database &db);
text_table rule_table(const database &db);
