// The texts that go with the white or the black list. A request always carries all of them, and the daemon
// takes them all.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/database.h"
#include "tools/requests.h"

// What was given; what was not stays as it is.
struct list_texts {
    std::optional<std::string> description, keywords, domains;
    std::optional<uint32_t> filter_word;
};

bool is_any_given(const list_texts &given);

// Fills the request's texts, those that were not given with what the device has that is on the list
// afterwards.
void put_texts(filter_request &request, const list_texts &given, const database &db);
