// What a look at the whole neighbour table adds to the clients' records.
#include <gtest/gtest.h>
#include <linux/neighbour.h>

#include "base/clock.h"
#include "events/neighbour_news.h"
#include "support/presence.h"

namespace neighbour_news_test {

class NeighbourNews : public PresenceTest {
  protected:
    void SetUp() override {
        PresenceTest::SetUp();
        hbs_clock_advance(1000); // what an earlier test of this process was told is long ago
    }

    // An entry that changed `ago` milliseconds ago. mac null = none.
    static bool is_news(uint16_t state, const char *mac, const std::string &address, int64_t ago = 0) {
        const bool is_ipv4 = address.find('.') != std::string::npos;
        const Ipv4 ipv4 = is_ipv4 ? ipv4_of(address) : Ipv4{};
        const Ipv6 ipv6 = is_ipv4 ? Ipv6{} : ipv6_of(address);
        const Mac bytes = mac != nullptr ? mac_of(mac) : Mac{};
        const hbs_neigh_entry entry = {
            is_ipv4 ? AF_INET : AF_INET6, state, mac != nullptr ? bytes.data() : nullptr,
            is_ipv4 ? ipv4.data() : ipv6.data(), hbs_monotonic_milliseconds() - ago};
        return hbs_neigh_is_news(&entry);
    }

    static void note(uint16_t state, const char *mac, const std::string &address) {
        hbs_neigh_note(state, mac != nullptr ? mac_of(mac).data() : nullptr, AF_INET,
                       ipv4_of(address).data());
    }

    // Last went on or off line ten seconds ago.
    static hbs_client *known(const char *mac, uint32_t flags) {
        hbs_client *client = published_client(mac, "192.168.0.20", HBS_FLAG_DYNIP4);
        client->flags |= flags;
        client->online_time = hbs_monotonic_seconds() - 10;
        hbs_set_ll(client, ipv6_of("fe80::20").data());
        hbs_set_ipv6(client, ipv6_of("fd00:2::20").data());
        return client;
    }

    static constexpr uint32_t PRESENT = HBS_FLAG_REACH | HBS_FLAG_ONLINE;
};

const std::vector<std::string> ADDRESSES = {"192.168.0.20", "fe80::20", "fd00:2::20"};
const std::vector<std::string> OTHERS = {"192.168.0.21", "fe80::21", "fd00:2::21"};

TEST_F(NeighbourNews, OtherStates_NeverAre) {
    known(MAC_A, PRESENT);
    for (const uint16_t state : {NUD_NONE, NUD_INCOMPLETE, NUD_PROBE, NUD_NOARP, NUD_PERMANENT, 0x06, 0x28})
        EXPECT_FALSE(is_news(state, MAC_A, "192.168.0.21")) << state;
}

TEST_F(NeighbourNews, BridgeMode_HasNone) {
    hbs_db_ready = 0;
    EXPECT_FALSE(is_news(NUD_REACHABLE, MAC_A, "192.168.0.20"));
}

TEST_F(NeighbourNews, UnknownDevice_IsUntilItWasTold) {
    for (const uint16_t state : {NUD_REACHABLE, NUD_STALE}) {
        EXPECT_TRUE(is_news(state, MAC_A, "192.168.0.20", 5));
        note(state, MAC_A, "192.168.0.20");
        EXPECT_FALSE(is_news(state, MAC_A, "192.168.0.20", 5)) << "told, and no client was wanted";
        EXPECT_TRUE(is_news(state, MAC_B, "192.168.0.20", 5)) << "another device";
    }
    EXPECT_TRUE(is_news(NUD_STALE, MAC_B, "192.168.0.20", -200)) << "it came back since";
}

TEST_F(NeighbourNews, WhoWasToldSinceItWasForgotten) {
    const auto told = [](const char *mac, const std::string &address) {
        const bool is_ipv4 = address.find('.') != std::string::npos;
        const Ipv4 ipv4 = is_ipv4 ? ipv4_of(address) : Ipv4{};
        const Ipv6 ipv6 = is_ipv4 ? Ipv6{} : ipv6_of(address);
        const Mac bytes = mac_of(mac);
        const hbs_neigh_entry entry = {is_ipv4 ? AF_INET : AF_INET6, NUD_STALE, bytes.data(),
                                       is_ipv4 ? ipv4.data() : ipv6.data(), 0};
        return hbs_neigh_was_told(&entry);
    };
    note(NUD_STALE, MAC_A, "192.168.0.20");
    EXPECT_TRUE(told(MAC_A, "192.168.0.21")) << "of two the later one counts";
    EXPECT_FALSE(told(MAC_B, "192.168.0.20"));
    EXPECT_FALSE(told(MAC_A, "fe80::20"));
    hbs_neigh_note(NUD_REACHABLE, mac_of(MAC_A).data(), AF_INET6, ipv6_of("fe80::20").data());
    EXPECT_TRUE(told(MAC_A, "fe80::21"));
    EXPECT_FALSE(told(MAC_A, "fd00:2::20")) << "the record has a field for each";
    hbs_neigh_forget(mac_of(MAC_A).data());
    EXPECT_FALSE(told(MAC_A, "192.168.0.20") || told(MAC_A, "fe80::20"));
}

TEST_F(NeighbourNews, UnknownDeviceThatIsGone_IsNot) {
    for (const uint16_t state : {NUD_DELAY, NUD_FAILED}) {
        EXPECT_FALSE(is_news(state, MAC_A, "192.168.0.20"));
        EXPECT_FALSE(is_news(state, nullptr, "192.168.0.20"));
    }
}

TEST_F(NeighbourNews, Reachable_IsForOneThatDoesNotCountAsReachable) {
    hbs_client *client = known(MAC_A, PRESENT);
    for (const std::string &address : ADDRESSES) {
        client->flags = HBS_FLAG_DYNIP4 | PRESENT;
        EXPECT_FALSE(is_news(NUD_REACHABLE, MAC_A, address)) << address;
        client->flags = HBS_FLAG_DYNIP4 | PRESENT | HBS_FLAG_TIMER_ONLINE;
        EXPECT_TRUE(is_news(NUD_REACHABLE, MAC_A, address)) << address;
        client->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE;
        EXPECT_TRUE(is_news(NUD_REACHABLE, MAC_A, address)) << address;
        client->flags = HBS_FLAG_DYNIP4;
        EXPECT_TRUE(is_news(NUD_REACHABLE, MAC_A, address)) << address;
    }
    client->flags = 0; // it waits for a lease
    EXPECT_TRUE(is_news(NUD_REACHABLE, MAC_A, "192.168.0.20"));
    note(NUD_REACHABLE, MAC_A, "192.168.0.20");
    EXPECT_FALSE(is_news(NUD_REACHABLE, MAC_A, "192.168.0.20"));
}

TEST_F(NeighbourNews, AnotherAddress_IsInBothStates) {
    known(MAC_A, PRESENT);
    for (const std::string &address : OTHERS) {
        EXPECT_TRUE(is_news(NUD_REACHABLE, MAC_A, address)) << address;
        EXPECT_TRUE(is_news(NUD_STALE, MAC_A, address)) << address;
    }
}

TEST_F(NeighbourNews, ReachableFromBeforeItLeft_IsNot) {
    const hbs_client *client = known(MAC_A, 0);
    for (const std::vector<std::string> &addresses : {ADDRESSES, OTHERS})
        for (const std::string &address : addresses) {
            EXPECT_FALSE(is_news(NUD_REACHABLE, MAC_A, address, 11000)) << address;
            EXPECT_TRUE(is_news(NUD_REACHABLE, MAC_A, address, 8000)) << address;
        }
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC_A).data()));
}

TEST_F(NeighbourNews, Stale_IsForAWiredClientWhoseTimeDoesNotRun) {
    hbs_client *client = known(MAC_A, PRESENT);
    for (const std::string &address : ADDRESSES) {
        client->flags = HBS_FLAG_DYNIP4 | PRESENT;
        EXPECT_TRUE(is_news(NUD_STALE, MAC_A, address)) << address;
        client->flags = HBS_FLAG_DYNIP4 | PRESENT | HBS_FLAG_TIMER_ONLINE;
        EXPECT_FALSE(is_news(NUD_STALE, MAC_A, address)) << address;
        client->flags = HBS_FLAG_DYNIP4;
        EXPECT_FALSE(is_news(NUD_STALE, MAC_A, address)) << address << ", off line";
        client->flags = HBS_FLAG_DYNIP4 | PRESENT;
        client->adapter_type = HBS_ADAPTER_WIFI;
        EXPECT_FALSE(is_news(NUD_STALE, MAC_A, address)) << address << ", a station";
        client->adapter_type = HBS_ADAPTER_ETHERNET;
    }
}

TEST_F(NeighbourNews, Gone_IsOnceAndForWhoeverHoldsTheAddress) {
    hbs_client *client = known(MAC_A, PRESENT);
    for (const char *mac : {MAC_A, static_cast<const char *>(nullptr)}) {
        EXPECT_TRUE(is_news(NUD_FAILED, mac, "192.168.0.20"));
        EXPECT_TRUE(is_news(NUD_DELAY, mac, "fd00:2::20"));
        EXPECT_FALSE(is_news(NUD_FAILED, mac, "192.168.0.21"));
    }
    client->flags = HBS_FLAG_DYNIP4; // off line, and its lease time is gone too
    EXPECT_FALSE(is_news(NUD_FAILED, nullptr, "192.168.0.20"));
    client->lease_start_uptime = 7;
    EXPECT_TRUE(is_news(NUD_FAILED, nullptr, "192.168.0.20"));
    note(NUD_DELAY, MAC_A, "192.168.0.20");
    EXPECT_FALSE(is_news(NUD_FAILED, nullptr, "192.168.0.20"));
    note(NUD_REACHABLE, MAC_A, "192.168.0.20");
    EXPECT_TRUE(is_news(NUD_FAILED, nullptr, "192.168.0.20")) << "it came back in between";
}

TEST_F(NeighbourNews, FloodOfAddresses_ForgetsTheOldOnesOnly) {
    for (int i = 0; i < 20000; ++i)
        note(NUD_STALE, MAC_B, "10." + std::to_string(i / 250 % 250) + "." + std::to_string(i % 250) + ".9");
    note(NUD_STALE, MAC_A, "192.168.0.20");
    EXPECT_FALSE(is_news(NUD_STALE, MAC_A, "192.168.0.20"));
}

} // namespace neighbour_news_test
