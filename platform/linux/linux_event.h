// An event about a LAN host as one line of JSON.
#pragma once

#include <cstdint>

#include "common_text.h"

// payload: as the TR-069 agent gets it. The line is not finished. Bytes of texts that are not printable ASCII
// are written as \u00XX.
void linux_event_write(common_line *line, const uint8_t *payload, uint64_t number);
