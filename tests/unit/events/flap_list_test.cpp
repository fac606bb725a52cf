// Joins of a client that are counted, and as flaps when they follow each other closely.
#include "base/clock.h"
#include "events/flap_list.h"
#include "support/gateway.h"

namespace flap_list_test {

constexpr const char *CLEARING =
    "HOSTBASE: flaplist:Join req received is > flapClientInterval.. so clearing flap count";

std::string comparing(uint32_t now, uint32_t last, uint32_t interval) {
    return "HOSTBASE: flaplist:current time = " + std::to_string(now) +
           " , clnt.last_joinReqTimeStamp = " + std::to_string(last) +
           " flapClientInterval = " + std::to_string(interval) + "\n";
}

std::string flapping(uint32_t interval) {
    return "HOSTBASE: flaplist:Join request received within " + std::to_string(interval) +
           " sec so client is flapping\n";
}

uint32_t now() {
    return static_cast<uint32_t>(hbs_time());
}

class FlapList : public GatewayTest {
  protected:
    hbs_client wired_{};
    hbs_client wifi_{};

    void SetUp() override {
        GatewayTest::SetUp();
        wired_.adapter_type = HBS_ADAPTER_ETHERNET;
        wifi_.adapter_type = HBS_ADAPTER_WIFI;
    }
};

// --- switch ---

TEST_F(FlapList, IsOnWhenTheSettingIsOneOnly) {
    EXPECT_FALSE(hbs_flap_list_enabled()); // not available
    set("flaplist.enable", 1);
    EXPECT_TRUE(hbs_flap_list_enabled());
    set("flaplist.enable", 0);
    EXPECT_FALSE(hbs_flap_list_enabled());
    set("flaplist.enable", 2);
    EXPECT_FALSE(hbs_flap_list_enabled());
}

TEST_F(FlapList, IsOffWhenTheSettingCannotBeRead) {
    set("flaplist.enable", 1);
    fail("GWDB_FLAPLISTCFG_ENABLE_GET", 1);
    EXPECT_FALSE(hbs_flap_list_enabled());
}

// --- lease/association set ---

TEST_F(FlapList, FirstJoinTakesTheClearingBranch) {
    wired_.flap_count = 4;
    const uint32_t before = now();
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(0u, wired_.flap_count);
    EXPECT_EQ(1u, wired_.join_req_count);
    EXPECT_GE(wired_.last_joinReqTimeStamp, before);
    EXPECT_TRUE(logged(comparing(wired_.last_joinReqTimeStamp, 0, 300)));
    EXPECT_TRUE(logged(CLEARING));
    EXPECT_EQ(0u, logged_containing("is flapping"));
}

TEST_F(FlapList, TwoLeasesTenSecondsApartOfAWiredClientFlapOnce) {
    hbs_flap_check_lease(&wired_);
    const uint32_t first = wired_.last_joinReqTimeStamp;
    hbs_clock_advance(10);
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(1u, wired_.flap_count);
    EXPECT_EQ(2u, wired_.join_req_count);
    EXPECT_GE(wired_.last_joinReqTimeStamp, first + 10);
    EXPECT_TRUE(logged(comparing(wired_.last_joinReqTimeStamp, first, 300)));
    EXPECT_EQ(1u, logged_count(flapping(300)));
}

TEST_F(FlapList, After200SecondsAWifiClientClearsAndAWiredClientFlaps) {
    hbs_flap_check_lease(&wired_);
    hbs_flap_check_lease(&wifi_);
    wired_.flap_count = wifi_.flap_count = 7;
    hbs_clock_advance(200);
    hbs_flap_check_lease(&wired_);
    hbs_flap_check_lease(&wifi_);
    EXPECT_EQ(8u, wired_.flap_count);
    EXPECT_EQ(0u, wifi_.flap_count);
    EXPECT_EQ(2u, wifi_.join_req_count);
    EXPECT_EQ(1u, logged_containing("flapClientInterval = 120\n") - 1); // both joins of the Wi-Fi client
}

TEST_F(FlapList, JoinAfterExactlyTheIntervalClears) {
    wired_.last_joinReqTimeStamp = now() - 300;
    wired_.flap_count = 3;
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(0u, wired_.flap_count);
}

TEST_F(FlapList, RunOfJoinsCountsEachFlap) {
    for (int join = 0; join < 5; ++join)
        hbs_flap_check_lease(&wired_);
    EXPECT_EQ(4u, wired_.flap_count);
    EXPECT_EQ(5u, wired_.join_req_count);
}

TEST_F(FlapList, SettingsReplaceTheDefaultIntervals) {
    set("flaplist.dhcp_interval", 20);
    set("flaplist.wlan_interval", 400);
    set("flaplist.report_period", 60);
    hbs_flap_check_lease(&wired_);
    hbs_flap_check_lease(&wifi_);
    hbs_clock_advance(200);
    hbs_flap_check_lease(&wired_);
    hbs_flap_check_lease(&wifi_);
    EXPECT_EQ(0u, wired_.flap_count);
    EXPECT_EQ(1u, wifi_.flap_count);
    EXPECT_EQ(1u, logged_count(flapping(400)));
    EXPECT_EQ(2u, logged_containing("flapClientInterval = 20\n"));
}

TEST_F(FlapList, IntervalThatCannotBeReadIsTheDefault) {
    set("flaplist.dhcp_interval", 20);
    set("flaplist.wlan_interval", 20);
    fail("GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET", 1);
    fail("GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET", -1);
    hbs_flap_check_lease(&wired_);
    hbs_flap_check_lease(&wifi_);
    EXPECT_EQ(1u, logged_containing("flapClientInterval = 300\n"));
    EXPECT_EQ(1u, logged_containing("flapClientInterval = 120\n"));
}

TEST_F(FlapList, MissingReportPeriodChangesNothing) {
    fail("GWDB_FLAPLISTCFG_REPORT_PERIOD_GET", -1);
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(1u, wired_.join_req_count);
}

TEST_F(FlapList, DifferenceIsUnsignedAcrossAClockThatWentBack) {
    wired_.last_joinReqTimeStamp = now() + 1000; // now - last wraps to nearly 2^32
    wired_.flap_count = 3;
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(0u, wired_.flap_count);
    EXPECT_TRUE(logged(CLEARING));
}

TEST_F(FlapList, DifferenceIsUnsignedAcrossTheThirtyTwoBitWrap) {
    wired_.last_joinReqTimeStamp = UINT32_MAX - 4;
    hbs_clock_advance((int64_t{1} << 32) + 5 - hbs_time()); // 32-bit time is 5 now: 10 seconds later
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(1u, wired_.flap_count);
    EXPECT_LT(wired_.last_joinReqTimeStamp, 60u);
}

TEST_F(FlapList, LeaseSetLeavesTheOtherSetAlone) {
    wired_.dhcp_flap_count = 5;
    wired_.dhcp_req_count = 6;
    wired_.last_dhcpReqTimeStamp = 7;
    hbs_flap_check_lease(&wired_);
    hbs_flap_check_lease(&wired_);
    EXPECT_EQ(5u, wired_.dhcp_flap_count);
    EXPECT_EQ(6u, wired_.dhcp_req_count);
    EXPECT_EQ(7u, wired_.last_dhcpReqTimeStamp);
}

// --- reachability set ---

TEST_F(FlapList, ReachableJoinsCountInTheirOwnSet) {
    hbs_flap_check_reach(&wired_);
    const uint32_t first = wired_.last_dhcpReqTimeStamp;
    hbs_clock_advance(10);
    hbs_flap_check_reach(&wired_);
    EXPECT_EQ(1u, wired_.dhcp_flap_count);
    EXPECT_EQ(2u, wired_.dhcp_req_count);
    EXPECT_EQ(0u, wired_.join_req_count);
    EXPECT_EQ(0u, wired_.last_joinReqTimeStamp);
    EXPECT_TRUE(logged(comparing(first, 0, 300)));
    EXPECT_TRUE(logged(comparing(wired_.last_dhcpReqTimeStamp, first, 300)));
    EXPECT_EQ(1u, logged_count(CLEARING));
    EXPECT_EQ(1u, logged_count(flapping(300)));
}

TEST_F(FlapList, TwoReachableJoins500SecondsApartClearTheOtherFlapCount) {
    hbs_flap_check_reach(&wired_);
    wired_.flap_count = 3;
    wired_.dhcp_flap_count = 4;
    hbs_clock_advance(500);
    hbs_flap_check_reach(&wired_);
    EXPECT_EQ(0u, wired_.flap_count);
    EXPECT_EQ(4u, wired_.dhcp_flap_count);
    EXPECT_EQ(2u, wired_.dhcp_req_count);
}

TEST_F(FlapList, ReachableFlapLeavesTheOtherFlapCount) {
    hbs_flap_check_reach(&wired_);
    wired_.flap_count = 3;
    hbs_flap_check_reach(&wired_);
    EXPECT_EQ(3u, wired_.flap_count);
    EXPECT_EQ(1u, wired_.dhcp_flap_count);
}

TEST_F(FlapList, ReachableJoinOfAWifiClientTakesTheWiredInterval) {
    set("flaplist.wlan_interval", 5);
    hbs_flap_check_reach(&wifi_);
    hbs_clock_advance(200);
    hbs_flap_check_reach(&wifi_);
    EXPECT_EQ(1u, wifi_.dhcp_flap_count);
    EXPECT_EQ(1u, logged_count(flapping(300)));
}

} // namespace flap_list_test
