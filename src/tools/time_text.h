// Points in time as texts.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include <hbs_db.h>

// "2026-11-21T01:02:03+01:00", in this machine's zone.
std::string zoned_time(time_t when);

// The same of a date-and-time field, which is local time; empty when it is all zero or no date.
std::string zoned_date(const uint8_t date[HBS_DATE_SIZE]);

// "2026-11-21 01:02:03 (in 59 min 3 s)", "(... ago)" or "(now)"; empty when the field is all zero.
std::string date_and_age(const uint8_t date[HBS_DATE_SIZE], time_t now);

// One moment on the wall clock and on another one.
struct moment {
    time_t wall;
    uint32_t monotonic; // seconds of that clock
};

// The wall clock's time is at most a second late, so that what happened at one moment of the other clock
// always gets the same time.
moment this_moment(clockid_t clock = CLOCK_MONOTONIC);

// How long ago, and when, it was so many seconds on the other clock; none for 0, and for what is yet to come.
std::optional<int32_t> age_of(uint32_t seconds, const moment &now);
std::string zoned_moment(uint32_t seconds, const moment &now); // as zoned_time; empty: none

// "2026-11-21 01:02:03", without the zone; empty: none.
std::string moment_text(uint32_t seconds, const moment &now);

// "2 d 3 h", "3 h 4 min", "4 min 5 s" or "5 s".
std::string duration_text(double seconds);
