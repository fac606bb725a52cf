// What a notification file makes the lease handlers do, and what the log says of it.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <wlan.h>

#include "events/lease_notices.h"
#include "support/command_fakes.h"
#include "support/gateway.h"

extern "C" int WifiGetSSID(const uint8_t mac[6], uint32_t *ssid) {
    trace::add("ask ssid " + fake::mac(mac));
    *ssid = 1;
    return 0;
}

using testing::ElementsAre;

namespace {

constexpr const char *NO_DATA =
    "log HOSTBASE: SOMETHING WRONG? Got notification but there is no valid data in the file.";
constexpr const char *INVALID = "log HOSTBASE: Ignore invalid DHCPv4 lease notification!";

std::string watched(const std::string &line) {
    return "log HOSTBASE: Watched DHCP lease changes: " + line;
}

class LeaseNotices : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        fake::reset();
        path = directory() + "/notices";
    }

    trace::list dhcpv4(const std::string &text) {
        write_file(path, text);
        (void)hbs_dhcpv4_notices_read(path.c_str(), hbs_handle_dhcpv4_notice);
        return trace::take();
    }

    trace::list dhcpv6(const std::string &text) {
        write_file(path, text);
        (void)hbs_dhcpv6_notices_read(path.c_str(), hbs_handle_dhcpv6_notice);
        return trace::take();
    }

    std::string path;
};

const std::string ADD =
    "ADD 02:aa:00:00:00:11 192.168.0.10 3600 6c6170746f70 6c327364302e32 1 0 lease.11 001122 serial class";
const std::string DEL = "DEL 02:aa:00:00:00:11 192.168.0.10 3600 6c6170746f70 6c327364302e32 1 0";
const std::string ASKED = "ask ssid 02:aa:00:00:00:11";
const std::string LEASED =
    "locked dhcpv4 lease 02:aa:00:00:00:11 192.168.0.10 1 3600 'laptop' 'l2sd0.2' '001122' "
    "'serial' 'class' 'lease.11' -1 -1";
const std::string LEASE_EVENT =
    "locked log HOSTBASE: DHCPV4 LEASE EVT from inotify : mac 02:aa:00:00:00:11, ip 192.168.0.10";
const std::string RELEASE_EVENT =
    "locked log HOSTBASE: DHCPV4 RLEASE EVT from inotify : mac 02:aa:00:00:00:11, ip 192.168.0.10";

TEST_F(LeaseNotices, Add_AsksTheWifiLayerThenCallsTheLeaseHandler) {
    EXPECT_THAT(dhcpv4(ADD + "\n"), ElementsAre(watched(ADD), ASKED, LEASE_EVENT, LEASED));
}

TEST_F(LeaseNotices, Del_CallsTheReleaseHandlerWithFlagAndSeconds) {
    EXPECT_THAT(dhcpv4(DEL + "\n"),
                ElementsAre(watched(DEL), RELEASE_EVENT,
                            "locked dhcpv4 release 02:aa:00:00:00:11 192.168.0.10 1 3600"));
}

TEST_F(LeaseNotices, LastLineWithoutALineEnd_Counts) {
    EXPECT_EQ(dhcpv4(ADD).size(), 4u);
}

TEST_F(LeaseNotices, AddWhileNotReady_OnlyAsksTheWifiLayer) {
    hbs_db_ready = 0;
    EXPECT_THAT(dhcpv4(ADD), ElementsAre(watched(ADD), ASKED));
}

TEST_F(LeaseNotices, DelWhileNotReady_DoesNothing) {
    hbs_db_ready = 0;
    EXPECT_THAT(dhcpv4(DEL), ElementsAre(watched(DEL)));
}

TEST_F(LeaseNotices, InvalidLine_IsSkippedAlone) {
    EXPECT_THAT(dhcpv4("NEW x\n" + ADD + "\nDEL\n"),
                ElementsAre(watched("NEW x"), INVALID, watched(ADD), ASKED, LEASE_EVENT, LEASED,
                            watched("DEL"), INVALID));
}

TEST_F(LeaseNotices, EmptyLines_AreNoLines) {
    EXPECT_EQ(dhcpv4("\n\n" + ADD + "\n\n").size(), 4u);
}

TEST_F(LeaseNotices, LineAfterNulBytes_IsNotLost) {
    EXPECT_THAT(dhcpv4(std::string(512, '\0') + ADD + "\n"),
                ElementsAre(watched(ADD), ASKED, LEASE_EVENT, LEASED));
}

TEST_F(LeaseNotices, LineOfOneMegabyte_IsSkippedAlone) {
    const auto lines = dhcpv4(std::string(1 << 20, 'A') + "\n" + ADD + "\n");
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[1], INVALID);
    EXPECT_EQ(lines[5], LEASED);
}

TEST_F(LeaseNotices, ManyLines_AreHandledInOrder) {
    std::string text;
    for (int i = 10; i < 60; i++) {
        text +=
            "DEL 02:aa:00:00:00:" + std::to_string(i) + " 192.168.0." + std::to_string(i) + " 1 00 00 0 0\n";
    }
    const auto lines = dhcpv4(text);
    ASSERT_EQ(lines.size(), 150u);
    for (size_t i = 0; i < 50; i++) {
        const std::string number = std::to_string(i + 10);
        EXPECT_EQ(lines[3 * i + 2],
                  "locked dhcpv4 release 02:aa:00:00:00:" + number + " 192.168.0." + number + " 0 1");
    }
}

TEST_F(LeaseNotices, SecondsAbove31Bits_ReachTheReleaseHandlerNegative) {
    const auto lines = dhcpv4("DEL 02:aa:00:00:00:11 192.168.0.10 0xffffffff 00 00 1 0");
    EXPECT_EQ(lines.back(), "locked dhcpv4 release 02:aa:00:00:00:11 192.168.0.10 1 -1");
}

TEST_F(LeaseNotices, FileOfLineEndsOnly_HoldsNoData) {
    EXPECT_THAT(dhcpv4("\n\n"), ElementsAre(NO_DATA));
}

TEST_F(LeaseNotices, EmptyFile_IsNothingToDo) {
    EXPECT_TRUE(dhcpv4("").empty());
    EXPECT_TRUE(dhcpv6("").empty());
}

TEST_F(LeaseNotices, NoPath_IsNothingToDo) {
    EXPECT_TRUE(hbs_dhcpv4_notices_read(nullptr, hbs_handle_dhcpv4_notice));
    EXPECT_TRUE(hbs_dhcpv6_notices_read(nullptr, hbs_handle_dhcpv6_notice));
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(LeaseNotices, FailedCopy_IsLoggedAndLeavesTheFile) {
    std::filesystem::create_directory("/var/tmp/hbs_watch_file.tmp");
    std::filesystem::create_directory("/var/tmp/hbs_watch_file_v6.tmp");
    EXPECT_THAT(dhcpv4(ADD), ElementsAre("log HOSTBASE: Failed to copy to dhcp4 watch temp file"));
    EXPECT_THAT(dhcpv6(ADD), ElementsAre("log HOSTBASE: Failed to copy to dhcp6 watch temp file"));
    EXPECT_EQ(read_file(path), ADD);
    std::filesystem::remove("/var/tmp/hbs_watch_file.tmp");
    std::filesystem::remove("/var/tmp/hbs_watch_file_v6.tmp");
}

// --- DHCPv6 ---

const std::string LEASE6 =
    "event LEASE\nglobAddr fd00:2::10\nlinkAddr fe80::11\nopt_var_file lease6\nfqdn laptop.lan\n"
    "oui 001122\nserial_number serial\nproduct_class class\nlease_time 1800000000\n";
const std::string LEASED6 =
    "locked dhcpv6 lease fe80::11 fd00:2::10 1800000000 'laptop.lan' '001122' 'serial' 'class' 'lease6'";

TEST_F(LeaseNotices, Lease6_CallsTheLeaseHandler) {
    EXPECT_THAT(dhcpv6(LEASE6), ElementsAre(LEASED6));
}

TEST_F(LeaseNotices, Release6_CallsTheReleaseHandlerWithTheLinkLocalAddressAndNoMac) {
    EXPECT_THAT(dhcpv6("event RELEASE\nglobAddr fd00:2::10\nlinkAddr fe80::11\n"),
                ElementsAre("locked dhcpv6 release none fe80::11 fd00:2::10"));
}

TEST_F(LeaseNotices, SeveralEvents6_OnlyTheLastIsActedOn) {
    EXPECT_THAT(dhcpv6(LEASE6 + "event RELEASE\nlinkAddr fe80::12\n"),
                ElementsAre("locked dhcpv6 release none fe80::12 fd00:2::10"));
}

TEST_F(LeaseNotices, MissingKeys6_AreEmpty) {
    EXPECT_THAT(dhcpv6("event LEASE\n"), ElementsAre("locked dhcpv6 lease :: :: 0 '' '' '' '' ''"));
}

TEST_F(LeaseNotices, EarlierNotification6_LeavesNothingBehind) {
    (void)dhcpv6(LEASE6);
    EXPECT_THAT(dhcpv6("event LEASE\n"), ElementsAre("locked dhcpv6 lease :: :: 0 '' '' '' '' ''"));
}

TEST_F(LeaseNotices, HandlerThatFindsNoClient6_IsLogged) {
    fake::client_exists = false;
    EXPECT_THAT(dhcpv6(LEASE6), ElementsAre(LEASED6, NO_DATA));
    EXPECT_THAT(dhcpv6("event RELEASE\n"), ElementsAre("locked dhcpv6 release none :: ::", NO_DATA));
}

TEST_F(LeaseNotices, WhileNotReady6_IsLogged) {
    hbs_db_ready = 0;
    EXPECT_THAT(dhcpv6(LEASE6), ElementsAre(NO_DATA));
    EXPECT_THAT(dhcpv6("event RELEASE\n"), ElementsAre(NO_DATA));
}

TEST_F(LeaseNotices, OtherEvent6_IsUnsupported) {
    EXPECT_THAT(dhcpv6("event RENEW\n"), ElementsAre("log HOSTBASE: Unsupported notification(0)", NO_DATA));
    EXPECT_THAT(dhcpv6("\n\n"), ElementsAre("log HOSTBASE: Unsupported notification(0)", NO_DATA));
}

TEST_F(LeaseNotices, Lease6_AsksTheKernelBeforeTheLockIsTaken) {
    (void)dhcpv6(LEASE6);
    EXPECT_THAT(fake::questions, ElementsAre("fe80::11 fd00:2::10"));
    EXPECT_TRUE(fake::neighbour_came);
}

} // namespace
