// Eight-byte dates.
#include <array>
#include <cstdlib>
#include <gtest/gtest.h>

#include "base/date.h"

namespace date_test {

using Date = std::array<uint8_t, 8>;

Date date_of(time_t when, const char *zone) {
    setenv("TZ", zone, 1);
    Date date;
    date.fill(0xEE);
    hbs_date_from_time(when, date.data());
    return date;
}

TEST(Date, HoldsYearMonthDayHourMinuteSecondAndZero) {
    // 2026-11-21 01:02:03 UTC; 2026 = 0x07EA
    EXPECT_EQ((Date{0x07, 0xEA, 11, 21, 1, 2, 3, 0}), date_of(1795222923, "UTC0"));
}

TEST(Date, IsLocalTime) {
    EXPECT_EQ((Date{0x07, 0xEA, 11, 20, 20, 2, 3, 0}), date_of(1795222923, "EST5"));
    EXPECT_EQ((Date{0x07, 0xEA, 11, 21, 3, 2, 3, 0}), date_of(1795222923, "EET-2")); // zone changed meanwhile
}

TEST(Date, CountsMonthsFromOne) {
    EXPECT_EQ((Date{0x07, 0xB2, 1, 1, 0, 0, 0, 0}), date_of(0, "UTC0"));
    EXPECT_EQ((Date{0x07, 0xE9, 12, 31, 23, 59, 59, 0}), date_of(1767225599, "UTC0"));
}

TEST(Date, IsZeroOnlyWhenEveryByteIs) {
    Date date{};
    EXPECT_TRUE(hbs_date_is_zero(date.data()));
    for (size_t i = 0; i < date.size(); ++i) {
        date = {};
        date[i] = 1;
        EXPECT_FALSE(hbs_date_is_zero(date.data())) << i;
    }
}

TEST(Date, IsClearedWhole) {
    Date date;
    date.fill(7);
    hbs_date_clear(date.data());
    EXPECT_EQ(Date{}, date);
}

} // namespace date_test
