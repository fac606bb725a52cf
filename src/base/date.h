// Eight-byte DateAndTime fields: year high byte, year low byte, month 1-12, day, hour, minute, second, 0.
#pragma once

#include <cstdint>
#include <ctime>

// Fills a field from local time. All zero means "none", so a date is never all zero.
void hbs_date_from_time(time_t when, uint8_t date[8]);
bool hbs_date_is_zero(const uint8_t date[8]);
void hbs_date_clear(uint8_t date[8]);
