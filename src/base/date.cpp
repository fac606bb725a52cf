// Eight-byte DateAndTime fields.
#include "base/date.h"

#include <algorithm>

void hbs_date_from_time(time_t when, uint8_t date[8]) {
    tzset(); // localtime_r need not notice that the gateway's time zone was changed; localtime would
    tm local{};
    if (localtime_r(&when, &local) == nullptr) {
        hbs_date_clear(date);
        return;
    }
    const int year = local.tm_year + 1900;
    const int parts[8] = {year >> 8,     year,         local.tm_mon + 1, local.tm_mday,
                          local.tm_hour, local.tm_min, local.tm_sec,     0};
    std::transform(parts, parts + 8, date, [](int part) { return static_cast<uint8_t>(part); });
}

bool hbs_date_is_zero(const uint8_t date[8]) {
    return std::all_of(
        date, date + 8, [](uint8_t byte) { return byte == 0; });
}

void hbs_date_clear(uint8_t date[8]) {
    std::fill_n(date, 8, uint8_t{0});
}
