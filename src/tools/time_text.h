// Points in time as texts.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include <hbs_db.h>

// "2026-11-21T01:02:03+01:00", in this machine's zone.
std::string zoned_time(time_t when);

// The same of a date-and-time field, which is local time; empty when it is all zero or no date.
std::string zoned_date(const uint8_t date[HBS_DATE_SIZE]);

// "2026-11-21 01:02:03 (in 59 min 3 s)" or "(... ago)"; empty when the field is all zero.
std::string date_and_age(const uint8_t date[HBS_DATE_SIZE], time_t now);

// "2 d 3 h", "3 h 4 min", "4 min 5 s" or "5 s".
std::string duration_text(double seconds);
