// The whole neighbour tables, for what notifications did not bring.
#pragma once

#include <cstdint>

// Reads both tables and tells the handlers what is new in them, oldest change first: of what changed after
// since_ms (hbs_monotonic_milliseconds; up to there no notification was lost) a device's last address of each
// kind, as its record holds one of each. Returns false, having told nothing, when a table cannot be read to
// its end.
bool hbs_read_neighbour_tables(int64_t since_ms);

// The same for one device.
bool hbs_read_neighbours_of(const uint8_t mac[6], int64_t since_ms);
