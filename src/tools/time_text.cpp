#include "tools/time_text.h"

#include <cmath>

#include "tools/words.h"

namespace {

constexpr time_t no_time = -1;

time_t time_of(const uint8_t date[HBS_DATE_SIZE]) {
    tm local = {};
    local.tm_year = (date[0] << 8 | date[1]) - 1900;
    local.tm_mon = date[2] - 1;
    local.tm_mday = date[3];
    local.tm_hour = date[4];
    local.tm_min = date[5];
    local.tm_sec = date[6];
    local.tm_isdst = -1;
    return date_text(date).empty() ? no_time : mktime(&local);
}

} // namespace

std::string zoned_time(time_t when) {
    tm local = {};
    char text[40] = "";
    (void)strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", localtime_r(&when, &local));
    std::string zoned = text;
    if (zoned.size() > 2)
        zoned.insert(zoned.size() - 2, ":");
    return zoned;
}

std::string zoned_date(const uint8_t date[HBS_DATE_SIZE]) {
    const time_t when = time_of(date);
    return when == no_time ? "" : zoned_time(when);
}

std::string date_and_age(const uint8_t date[HBS_DATE_SIZE], time_t now) {
    const time_t when = time_of(date);
    if (when == no_time)
        return date_text(date);
    if (when == now)
        return date_text(date) + " (now)";
    const std::string apart = duration_text(std::abs(difftime(when, now)));
    return date_text(date) + (when > now ? " (in " + apart + ")" : " (" + apart + " ago)");
}

moment this_moment(clockid_t clock) {
    timespec monotonic = {}, wall = {};
    (void)clock_gettime(clock, &monotonic);
    (void)clock_gettime(CLOCK_REALTIME, &wall);
    const time_t borrowed = wall.tv_nsec < monotonic.tv_nsec ? 1 : 0;
    const time_t apart = wall.tv_sec - monotonic.tv_sec - borrowed;
    return {monotonic.tv_sec + apart, static_cast<uint32_t>(monotonic.tv_sec)};
}

std::optional<int32_t> age_of(uint32_t seconds, const moment &now) {
    const auto age = static_cast<int32_t>(now.monotonic - seconds);
    return seconds == 0 || age < 0 ? std::nullopt : std::optional(age);
}

std::string zoned_moment(uint32_t seconds, const moment &now) {
    const auto age = age_of(seconds, now);
    return age ? zoned_time(now.wall - *age) : "";
}

std::string moment_text(uint32_t seconds, const moment &now) {
    std::string text = zoned_moment(seconds, now);
    if (!text.empty())
        text.replace(text.find('T'), 1, " ").resize(sizeof "2026-11-21 01:02:03" - 1);
    return text;
}

std::string duration_text(double seconds) {
    const auto all = static_cast<long>(seconds);
    const long days = all / 86400, hours = all / 3600 % 24, minutes = all / 60 % 60;
    if (days > 0)
        return std::to_string(days) + " d " + std::to_string(hours) + " h";
    if (hours > 0)
        return std::to_string(hours) + " h " + std::to_string(minutes) + " min";
    const std::string rest = std::to_string(all % 60) + " s";
    return minutes > 0 ? std::to_string(minutes) + " min " + rest : rest;
}
