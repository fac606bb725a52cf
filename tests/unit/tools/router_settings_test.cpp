// What hbsctl takes from a Linux router's settings.
#include <gtest/gtest.h>

#include "tools/router_settings.h"

namespace router_settings_test {

TEST(RouterSettings, WhatIsMissingIsAsTheDaemonHasIt) {
    const router_settings preset = parse_router_settings("");
    EXPECT_TRUE(preset.is_router && preset.by_traffic);
    EXPECT_EQ(preset.settle, 5u);
    EXPECT_EQ(preset.access_points, "/run/hostapd");
    EXPECT_EQ(preset.leases, "");
    EXPECT_FALSE(router_settings().by_traffic) << "on a gateway";
}

TEST(RouterSettings, TheLastWordCounts) {
    const router_settings settings = parse_router_settings("# presence = yes\npresence = No # as before\n"
                                                           "wifi.settle=3\nwifi.settle = 12\r\n"
                                                           "hostapd = none\n\tdhcp.leases = /a#b\n");
    EXPECT_FALSE(settings.by_traffic);
    EXPECT_EQ(settings.settle, 12u);
    EXPECT_EQ(settings.access_points, "");
    EXPECT_EQ(settings.leases, "/a#b");
}

TEST(RouterSettings, NumbersAndPathsAreThoseThatTheDaemonTakes) {
    EXPECT_EQ(parse_router_settings("wifi.settle = 0x1F").settle, 31u);
    EXPECT_EQ(parse_router_settings("wifi.settle = 00000000000007").settle, 7u);
    EXPECT_EQ(parse_router_settings("wifi.settle = 4294967295").settle, 4294967295u);
    EXPECT_EQ(parse_router_settings("wifi.settle = 4294967296").settle, 5u);
    EXPECT_EQ(parse_router_settings("hostapd =\r/run/x").access_points, "/run/hostapd")
        << "a blank at the end only";
    const std::string longest = "/" + std::string(106, 'x');
    EXPECT_EQ(parse_router_settings("hostapd = " + longest).access_points, longest);
    EXPECT_EQ(parse_router_settings("hostapd = " + longest + "x").access_points, "/run/hostapd");
    EXPECT_EQ(parse_router_settings("hostapd =").access_points, "");
}

TEST(RouterSettings, ALineThatIsTooLongForTheDaemonIsPassedOver) {
    const std::string line = "hostapd = /run/x #";
    for (const char *end : {"", "\n", "\npresence = no\n"}) {
        const std::string longest = line + std::string(1022 - line.size(), '-');
        EXPECT_EQ(parse_router_settings(longest + end).access_points, "/run/x");
        EXPECT_EQ(parse_router_settings(longest + "-" + end).access_points, "/run/hostapd");
    }
    EXPECT_FALSE(parse_router_settings(std::string(5000, '-') + "\npresence = no").by_traffic);
}

TEST(RouterSettings, WhatMakesNoSenseIsPassedOver) {
    const router_settings settings = parse_router_settings(
        "presence = perhaps\npresence\n=\nwifi.settle = soon\nwifi.settle = -1\nwifi.settle = 99999999999\n"
        "hostapd = here\n\xff\xfe");
    EXPECT_TRUE(settings.by_traffic);
    EXPECT_EQ(settings.settle, 5u);
    EXPECT_EQ(settings.access_points, "/run/hostapd");
}

} // namespace router_settings_test
