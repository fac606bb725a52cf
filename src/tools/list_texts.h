// The texts that go with the white or the black list. A request always carries all of them, and the daemon
// takes them all.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/look.h"
#include "tools/objections.h"
#include "tools/requests.h"

// What was given; what was not stays as it is.
struct list_texts {
    std::optional<std::string> description, keywords, domains;
    std::optional<uint32_t> filter_word;
};

bool is_any_given(const list_texts &given);

// Fills the request's texts, those that were not given with what the device has that is on the list
// afterwards. What was left of a list that it is on no more is not brought back.
void put_texts(filter_request &request, const list_texts &given, const look &now);

// Whether the device's mark says that it is on the list.
bool is_marked(const look &now, const mac_bytes &mac, uint8_t list);

// The device's first rule in the list's file: a request that puts a device on a list carries one, and with
// one that is there already it adds none.
std::optional<rule_values> first_rule(const look &now, const mac_bytes &mac, uint8_t list);

// That a device which is on the list without a rule would get one, "0,0,0".
objection to_adding_rule(const look &now, const mac_bytes &mac, uint8_t list);
