// Presence by traffic: nothing of it on a gateway, all of it where the platform says so.
#include <gmock/gmock.h>

#include "base/clock.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "events/presence.h"
#include "support/presence.h"

using testing::ElementsAre;

namespace presence_test {

class PresenceByTraffic : public PresenceTest {
  protected:
    void SetUp() override {
        PresenceTest::SetUp();
        set("presence.by_traffic", 1);
    }
    static hbs_client *reach(const char *mac, const std::string &address) {
        return hbs_handle_neigh_reachable(mac_of(mac).data(), LOOPBACK, AF_INET, ipv4_of(address).data());
    }
    static hbs_client *fail(const std::string &address) {
        return hbs_handle_neigh_gone(nullptr, LOOPBACK, AF_INET, ipv4_of(address).data());
    }
    static bool is_online(const hbs_client *client) { return (client->flags & HBS_FLAG_ONLINE) != 0; }
    void forget(const char *mac) { set(std::string("switch.mac.") + mac, "none"); }
};

TEST_F(PresenceByTraffic, AnAnswerAloneBeginsIt) {
    EXPECT_TRUE(is_online(reach(MAC_A, "192.168.0.20")));
    EXPECT_NE(0u, published(MAC_A).flags & HBS_FLAG_ONLINE);
}

TEST_F(PresenceByTraffic, OffAsOnAGateway_NeitherBeginsNorEndsIt) {
    set("presence.by_traffic", 0);
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    EXPECT_FALSE(is_online(client));
    hbs_set_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4);
    write_values("presence.by_traffic = 0\nnetwork.1.ifname = lo\nnetwork.1.ipv4 = 192.168.0.1/24\n");
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client));
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    hbs_presence_heard(mac_of(MAC_A).data(), LOOPBACK);
    EXPECT_FALSE(is_online(client));
}

TEST_F(PresenceByTraffic, NoAnswerAndNoTrafficEndsIt) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client)) << "a switch still has it";
    write_values("presence.by_traffic = 1\n");
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client));
    EXPECT_EQ(0u, client->flags & (HBS_FLAG_REACH | HBS_FLAG_REACH_2));
    EXPECT_EQ(0u, published(MAC_A).flags & HBS_FLAG_ONLINE);
}

TEST_F(PresenceByTraffic, NoAnswerOfOneAddressWhileAnotherAnswersSaysNothing) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    write_values(std::string("presence.by_traffic = 1\npresence.answering.") + MAC_A + " = 1\n");
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client));
    write_values("presence.by_traffic = 1\n");
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client));
}

// A device with an IPv4 and an IPv6 address that has fallen silent; nothing says that either is confirmed.
class PresenceOfTwoAddresses : public PresenceByTraffic {
  protected:
    hbs_client *client = nullptr;
    void SetUp() override {
        PresenceByTraffic::SetUp();
        client = reach(MAC_A, "192.168.0.20");
        (void)reach6(MAC_A, "fd00:2::20");
        fall_silent();
    }
    void fall_silent() {
        write_values("presence.by_traffic = 1\nnetwork.1.ifname = lo\nnetwork.1.ipv4 = 192.168.0.1/24\n"
                     "network.1.ipv6 = fd00:2::/64\n");
    }
    static hbs_client *reach6(const char *mac, const std::string &address) {
        return hbs_handle_neigh_reachable(mac_of(mac).data(), LOOPBACK, AF_INET6, ipv6_of(address).data());
    }
    static void fail6(const std::string &address) {
        (void)hbs_handle_neigh_gone(nullptr, LOOPBACK, AF_INET6, ipv6_of(address).data());
    }
};

TEST_F(PresenceOfTwoAddresses, WhoGivesNoAnswerForOneIsAskedForTheOtherFirst) {
    fail6("fd00:2::20");
    EXPECT_TRUE(is_online(client)) << "nobody has asked for its other address";
    EXPECT_THAT(journal_lines("presence ask "), ElementsAre("presence ask 0 192.168.0.20"));
    EXPECT_GT(seconds_left(client, HBS_TIMER_ONLINE), 0);
    EXPECT_LE(seconds_left(client, HBS_TIMER_ONLINE), 31);
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client)) << "they do not ask for each other for ever";
    EXPECT_EQ(1u, journal_lines("presence ask ").size());
}

TEST_F(PresenceOfTwoAddresses, AnAnswerHasTheOtherOneAskedForAnew) {
    fail6("fd00:2::20");
    learn(MAC_A, 1);
    (void)reach(MAC_A, "192.168.0.20");
    fall_silent();
    fail6("fd00:2::20");
    EXPECT_TRUE(is_online(client));
    EXPECT_EQ(2u, journal_lines("presence ask ").size());
}

TEST_F(PresenceOfTwoAddresses, AQuestionOfLongAgoSaysNothing) {
    fail6("fd00:2::20");
    hbs_clock_advance(60);
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client));
    EXPECT_THAT(journal_lines("presence ask "),
                ElementsAre("presence ask 0 192.168.0.20", "presence ask 0 fd00:2::20"));
}

TEST_F(PresenceOfTwoAddresses, WhoWasAskedForAllWhenItsTimeWasOverIsNotAskedAgain) {
    hbs_lease_timer_start(client, HBS_TIMER_ONLINE, 600);
    hbs_lease_timer_expire(client, HBS_TIMER_ONLINE);
    EXPECT_EQ(2u, journal_lines("presence ask ").size());
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client));
}

TEST_F(PresenceByTraffic, NoAnswerOfOneThatWasJustHeardIsLookedAtAgain) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_ONLINE));
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client));
    EXPECT_GT(seconds_left(client, HBS_TIMER_ONLINE), 0);
    EXPECT_LE(seconds_left(client, HBS_TIMER_ONLINE), 31) << "by then it has been silent for long enough";
    write_values("presence.by_traffic = 1\nnetwork.1.ifname = lo\nnetwork.1.ipv4 = 192.168.0.1/24\n");
    hbs_lease_timer_expire(client, HBS_TIMER_ONLINE);
    EXPECT_THAT(journal_lines("presence ask "), ElementsAre("presence ask 0 192.168.0.20"));
    EXPECT_TRUE(is_online(client)) << "it may answer";
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client));
}

TEST_F(PresenceByTraffic, AnAssociatedStationSleeps) {
    hbs_client *client = reach(MAC_WIFI, "192.168.0.21");
    hbs_set_flags(client, 0, HBS_FLAG_ASSOC);
    write_values("presence.by_traffic = 1\n");
    (void)fail("192.168.0.21");
    EXPECT_TRUE(is_online(client));
}

TEST_F(PresenceByTraffic, ALeaseOfOneThatIsNotHeardHasItAsked) {
    hbs_dhcpv4_lease lease = lease_of(MAC_UNKNOWN, "192.168.0.31");
    hbs_client *client = hbs_handle_dhcpv4_lease(&lease);
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(HBS_FLAG_DYNIP4, client->flags & (HBS_FLAG_DYNIP4 | HBS_FLAG_REACH | HBS_FLAG_ONLINE));
    EXPECT_THAT(journal_lines("presence ask "), ElementsAre("presence ask 0 192.168.0.31"));
    (void)reach(MAC_A, "192.168.0.20");
    lease = lease_of(MAC_A, "192.168.0.20");
    hbs_client *heard = hbs_handle_dhcpv4_lease(&lease);
    EXPECT_TRUE(is_online(heard)) << "a switch has it";
    EXPECT_GT(seconds_left(heard, HBS_TIMER_ONLINE), 590) << "nobody else would ever ask for it";
    EXPECT_EQ(1u, journal_lines("presence ask ").size());
}

TEST_F(PresenceByTraffic, ALeaseOfOneThatIsNotHeardTakesNothingAway) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    write_values("presence.by_traffic = 1\nnetwork.1.ifname = lo\nnetwork.1.ipv4 = 192.168.0.1/24\n");
    const hbs_dhcpv4_lease lease = lease_of(MAC_A, "192.168.0.20");
    (void)hbs_handle_dhcpv4_lease(&lease);
    EXPECT_TRUE(is_online(client));
}

TEST_F(PresenceByTraffic, ALeaseOfOneThatIsNotHeardIsOneOnAGateway) {
    set("presence.by_traffic", 0);
    const hbs_dhcpv4_lease lease = lease_of(MAC_UNKNOWN, "192.168.0.31");
    hbs_client *client = hbs_handle_dhcpv4_lease(&lease);
    EXPECT_TRUE(is_online(client));
    hbs_lease_timer_start(client, HBS_TIMER_ONLINE, 600);
    (void)hbs_handle_dhcpv4_lease(&lease);
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_ONLINE));
    EXPECT_TRUE(journal_lines("presence ask ").empty());
}

TEST_F(PresenceByTraffic, ADhcpv6LeaseIsNoSignOfLifeEither) {
    hbs_client *client = add_with_ll(MAC_UNKNOWN, "fe80::31");
    hbs_dhcpv6_lease lease{};
    memcpy(lease.ll, ipv6_of("fe80::31").data(), sizeof lease.ll);
    memcpy(lease.ipv6, ipv6_of("fd00:2::31").data(), sizeof lease.ipv6);
    lease.lease_end = 1800000000;
    const hbs_dhcpv6_neighbour unknown{};
    ASSERT_EQ(client, hbs_handle_dhcpv6_lease(&lease, &unknown));
    EXPECT_FALSE(is_online(client));
    EXPECT_THAT(journal_lines("presence ask "), ElementsAre("presence ask 0 fd00:2::31"));
    learn(MAC_UNKNOWN, 1);
    (void)hbs_handle_dhcpv6_lease(&lease, &unknown);
    EXPECT_TRUE(is_online(client));
    EXPECT_GT(seconds_left(client, HBS_TIMER_ONLINE), 590);
}

TEST_F(PresenceByTraffic, AFreshEntryOfTheForwardingTableBeginsIt) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    hbs_presence_heard(mac_of(MAC_A).data(), LOOPBACK);
    EXPECT_FALSE(is_online(client)) << "no address is known to be its own yet";
    hbs_set_flags(client, 0, HBS_FLAG_DYNIP4);
    hbs_presence_heard(mac_of(MAC_A).data(), LOOPBACK);
    EXPECT_TRUE(is_online(client));
    EXPECT_GT(seconds_left(client, HBS_TIMER_ONLINE), 590) << "it may have sent nothing but that";
    EXPECT_NE(0u, published(MAC_A).flags & HBS_FLAG_ONLINE);
    hbs_presence_heard(mac_of(MAC_UNKNOWN).data(), LOOPBACK);
    EXPECT_EQ(1u, working_clients());
}

// A quiet device on line whose time is over.
class PresenceOverTime : public PresenceByTraffic {
  protected:
    hbs_client *client = nullptr;
    void SetUp() override {
        PresenceByTraffic::SetUp();
        client = reach(MAC_A, "192.168.0.20");
        (void)hbs_handle_neigh_stale(mac_of(MAC_A).data(), LOOPBACK, AF_INET, ipv4_of("192.168.0.20").data());
        ASSERT_GT(seconds_left(client, HBS_TIMER_ONLINE), 590);
    }
    void expire() { hbs_lease_timer_expire(client, HBS_TIMER_ONLINE); }
};

TEST_F(PresenceOverTime, WhoIsHeardStays) {
    expire();
    EXPECT_TRUE(is_online(client));
    EXPECT_TRUE(journal_lines("presence ask ").empty());
    EXPECT_GT(seconds_left(client, HBS_TIMER_ONLINE), 590) << "and is looked at again";
}

TEST_F(PresenceOverTime, WhoIsSilentIsAskedAndStaysUntilNobodyAnswers) {
    write_values("presence.by_traffic = 1\nnetwork.1.ifname = lo\nnetwork.1.ipv4 = 192.168.0.1/24\n");
    expire();
    EXPECT_TRUE(is_online(client));
    EXPECT_THAT(journal_lines("presence ask "), ElementsAre("presence ask 0 192.168.0.20"));
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client));
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_ONLINE));
}

TEST_F(PresenceOverTime, OnAGatewayItEnds) {
    set("presence.by_traffic", 0);
    expire();
    EXPECT_FALSE(is_online(client));
}

TEST_F(PresenceByTraffic, AFreshEntryElsewhereIsItsNewPlace) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    EXPECT_EQ(1, client->switch_port);
    learn(MAC_A, 3);
    hbs_presence_heard(mac_of(MAC_A).data(), LOOPBACK);
    EXPECT_EQ(3, published(MAC_A).switch_port);
    EXPECT_TRUE(is_online(client));
}

TEST_F(PresenceByTraffic, AnEntryOnNoNetworkOfOursIsNothing) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    hbs_set_flags(client, 0, HBS_FLAG_DYNIP4);
    write_values("presence.by_traffic = 1\n");
    hbs_presence_heard(mac_of(MAC_A).data(), LOOPBACK);
    EXPECT_FALSE(is_online(client));
    EXPECT_EQ(1, client->switch_port);
}

} // namespace presence_test
