// A device of which no switch can tell at once where it is: its events are made up for when the answer is
// there.
#include <gmock/gmock.h>

#include "base/clock.h"
#include "daemon/place_probe.h"
#include "events/dhcpv4_lease.h"
#include "events/neighbours.h"
#include "support/emulation.h"
#include "support/kernel_neighbours.h"
#include "support/presence.h"

using testing::ElementsAre;

namespace place_probe_test {

constexpr const char *LAN = "l2sd0.2";

class PlaceProbe : public PresenceTest {
  protected:
    void SetUp() override {
        PresenceTest::SetUp();
        if (is_emulated())
            GTEST_SKIP() << NO_NEIGHBOUR_MESSAGES;
        (void)!system("ip link del l2sd0.2 2> /dev/null");
        ASSERT_EQ(system("ip link add l2sd0.2 type veth peer name other && ip link set l2sd0.2 up && "
                         "ip link set other up"),
                  0);
        hbs_probe_register(HBS_PROBE_PLACE, hbs_probe_place);
        hbs_probe_open();
        set("presence.answers_late", 1);
        keep_silent();
    }
    void TearDown() override {
        if (!is_emulated())
            EXPECT_EQ(system("ip link del l2sd0.2"), 0);
        PresenceTest::TearDown();
    }

    void keep_silent() { fail("L2SWITCH_GetUcastMacs", -1); }
    void answer() { succeed("L2SWITCH_GetUcastMacs"); }

    void change(const std::string &address, const char *mac, uint16_t state) {
        const Ipv4 ipv4 = ipv4_of(address);
        ASSERT_TRUE(kernel_.set(std::string(ipv4.begin(), ipv4.end()), mac_of(mac), state));
    }

    // As the monitor tells of it, once the kernel has it so.
    hbs_client *reached(const std::string &address, const char *mac) {
        change(address, mac, NUD_REACHABLE);
        return hbs_handle_neigh_reachable(mac_of(mac).data(), LOOPBACK, AF_INET, ipv4_of(address).data());
    }

    static hbs_client *leased(const char *mac, const std::string &address) {
        const hbs_dhcpv4_lease lease = lease_of(mac, address);
        const hbs_list_hold hold;
        return hbs_handle_dhcpv4_lease(&lease);
    }

    static hbs_client *client_of(const char *mac) { return hbs_find_by_mac(mac_of(mac).data()); }

  private:
    KernelNeighbours kernel_{LAN};
};

TEST_F(PlaceProbe, AnEventThatCouldNotBeTakenIsToldOnceMore) {
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    EXPECT_EQ(nullptr, client_of(MAC_WIFI));
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    ASSERT_NE(nullptr, client_of(MAC_WIFI));
    EXPECT_EQ(HBS_ADAPTER_WIFI, published(MAC_WIFI).adapter_type);
    EXPECT_NE(0u, published(MAC_WIFI).flags & HBS_FLAG_REACH);
    EXPECT_THAT(tr69_codes(), ElementsAre("106"));
    EXPECT_FALSE(hbs_probe_serve()) << "it is placed: there is nothing left to be asked";
}

TEST_F(PlaceProbe, OnlyTheDeviceThatWasAskedForIsToldOf) {
    change("192.168.0.30", MAC_A, NUD_REACHABLE);
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_NE(nullptr, client_of(MAC_WIFI));
    EXPECT_EQ(nullptr, client_of(MAC_A));
}

TEST_F(PlaceProbe, WhoIsGoneByThenIsNotToldOf) {
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    change("192.168.0.21", MAC_WIFI, NUD_FAILED);
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_EQ(nullptr, client_of(MAC_WIFI));
}

TEST_F(PlaceProbe, ALeaseGetsItsPlaceAndTheRestOfItStays) {
    hbs_client *client = leased(MAC_WIFI, "192.168.0.21");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, published(MAC_WIFI).adapter_type);
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_EQ(HBS_ADAPTER_WIFI, published(MAC_WIFI).adapter_type);
    EXPECT_NE(0u, published(MAC_WIFI).flags & HBS_FLAG_ONLINE);
    EXPECT_TRUE(journal_lines("presence ask ").empty());
}

TEST_F(PlaceProbe, OneThatCountedAsPresentMeanwhileAndIsNotHeardIsAsked) {
    hbs_client *client = leased(MAC_UNKNOWN, "192.168.0.31");
    ASSERT_NE(nullptr, client);
    ASSERT_NE(0u, client->flags & HBS_FLAG_ONLINE);
    set("presence.by_traffic", 1);
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_THAT(journal_lines("presence ask "), ElementsAre("presence ask 0 192.168.0.31"));
    EXPECT_NE(0u, client->flags & HBS_FLAG_ONLINE) << "it may answer";
}

TEST_F(PlaceProbe, WhereNoAnswerComesNothingIsDone) {
    set("presence.answers_late", 0);
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_EQ(nullptr, client_of(MAC_WIFI));
    EXPECT_FALSE(hbs_probe_serve());
}

TEST_F(PlaceProbe, AQuestionThatWaitedBehindOthersIsAsked) {
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    hbs_clock_advance(30);
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_NE(nullptr, client_of(MAC_WIFI));
}

TEST_F(PlaceProbe, AQuestionThatFailsIsPutAgain) {
    fail("PRESENCE_Await", -1);
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    answer();
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_EQ(nullptr, client_of(MAC_WIFI));
    succeed("PRESENCE_Await");
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_NE(nullptr, client_of(MAC_WIFI));
}

TEST_F(PlaceProbe, WhatFailsForEverEndsWithTheDevicesShare) {
    fail("PRESENCE_Await", -1);
    EXPECT_EQ(nullptr, reached("192.168.0.21", MAC_WIFI));
    int asked = 0;
    while (asked < 100 && hbs_probe_serve())
        asked++;
    EXPECT_LE(asked, 10);
}

} // namespace place_probe_test
