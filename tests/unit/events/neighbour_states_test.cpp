// What each neighbour state does to a client: flags, timers, messages, announcements, publication.
#include <gmock/gmock.h>
#include <thread>

#include "base/clock.h"
#include "base/paths.h"
#include "files/leasev6.h"
#include "support/presence.h"
#include "support/waiting_call.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace neighbour_states_test {

using Handler = hbs_client *(*)(const uint8_t *, int, int, const uint8_t *);

class NeighbourStates : public PresenceTest {
  protected:
    static hbs_client *ipv4(Handler handler, const char *mac, const std::string &address) {
        return handler(mac != nullptr ? mac_of(mac).data() : nullptr, LOOPBACK, AF_INET,
                       ipv4_of(address).data());
    }
    static hbs_client *ipv6(Handler handler, const char *mac, const std::string &address) {
        return handler(mac != nullptr ? mac_of(mac).data() : nullptr, LOOPBACK, AF_INET6,
                       ipv6_of(address).data());
    }
    static bool lock_is_free() {
        bool free = false;
        std::thread([&free] { // the lock is recursive: only another thread can tell
            free = pthread_mutex_trylock(&hbs_list_mutex) == 0;
            if (free)
                (void)pthread_mutex_unlock(&hbs_list_mutex);
        })
            .join();
        return free;
    }
};

// --- all three ---

class EveryState : public NeighbourStates, public testing::WithParamInterface<Handler> {};

TEST_P(EveryState, NotReady_DoesNothing) {
    hbs_db_ready = 0;
    EXPECT_EQ(nullptr, ipv4(GetParam(), MAC_A, "192.168.0.20"));
    EXPECT_EQ(nullptr, ipv6(GetParam(), MAC_A, "fe80::1"));
    EXPECT_EQ(nullptr, ipv4(GetParam(), MAC_A, "224.0.0.251"));
    EXPECT_EQ(0u, working_clients());
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_THAT(journal_lines(), IsEmpty());
    EXPECT_TRUE(lock_is_free());
}

TEST_P(EveryState, Client_IsPublishedAndReturnedAndTheLockIsFree) {
    hbs_client *client = ipv4(GetParam(), MAC_A, "192.168.0.20");
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC_A).data()));
    EXPECT_EQ("192.168.0.20", text_of(published(MAC_A).ipv4));
    EXPECT_THAT(ip_keys(), ElementsAre("200 1 4 192 168 0 20"));
    EXPECT_TRUE(lock_is_free());
}

TEST_P(EveryState, NoClient_ChangesNothingMore) {
    EXPECT_EQ(nullptr, ipv4(GetParam(), MAC_A, "10.9.8.7"));
    EXPECT_EQ(0u, logged_containing(" event for "));
    EXPECT_EQ(0u, clients_seen());
    EXPECT_THAT(tr69_codes(), IsEmpty());
    EXPECT_TRUE(lock_is_free());
}

TEST_P(EveryState, WaitsForTheListLock) {
    ASSERT_EQ(0, pthread_mutex_lock(&hbs_list_mutex));
    WaitingCall event([handler = GetParam()] { (void)ipv4(handler, MAC_A, "192.168.0.20"); });
    EXPECT_TRUE(event.is_waiting());
    EXPECT_EQ(0u, working_clients());
    ASSERT_EQ(0, pthread_mutex_unlock(&hbs_list_mutex));
    event.join();
    EXPECT_EQ(1u, working_clients());
}

TEST_P(EveryState, PublishedIdentity_IsReadBackForTheAnnouncement) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", 0);
    hbs_set_host(client, "laptop");
    hbs_publish(client);
    ASSERT_EQ(client, ipv4(GetParam(), MAC_A, "192.168.0.20"));
    EXPECT_NE(std::string::npos, journal_lines("tr69 event 106")[0].find("host=\"laptop\""));
}

INSTANTIATE_TEST_SUITE_P(Stale, EveryState, testing::Values(hbs_handle_neigh_stale));
INSTANTIATE_TEST_SUITE_P(Reachable, EveryState, testing::Values(hbs_handle_neigh_reachable));
INSTANTIATE_TEST_SUITE_P(Gone, EveryState, testing::Values(hbs_handle_neigh_gone));

// --- stale ---

TEST_F(NeighbourStates, OfOtherFamilies_YieldNoneSilentlyAndReadNothing) {
    const std::vector<uint8_t> address(1); // what is read behind it the address checks see
    for (const Handler handler : {hbs_handle_neigh_stale, hbs_handle_neigh_reachable, hbs_handle_neigh_gone})
        for (const int family : {0, 1, 7, 28, 255})
            EXPECT_EQ(nullptr, handler(mac_of(MAC_A).data(), LOOPBACK, family, address.data()));
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_EQ(0u, working_clients());
}

TEST_F(NeighbourStates, Stale_ArmsTheOnlineTimerAndSaysSo) {
    hbs_client *client = ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(HBS_FLAG_TIMER_ONLINE, state_of(client));
    EXPECT_EQ(600, seconds_left(client, HBS_TIMER_ONLINE));
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got STALE event for [02:ab:00:00:00:11] on Ethernet: index: 0 "
                               "192.168.0.20 - no IPv6 - (no LL) - |"));
    EXPECT_THAT(tr69_codes(), ElementsAre("106"));
}

TEST_F(NeighbourStates, Stale_LeavesReachAndOnline) {
    hbs_client *client =
        published_client(MAC_A, "192.168.0.20", HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4);
    (void)ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4 | HBS_FLAG_TIMER_ONLINE, state_of(client));
}

TEST_F(NeighbourStates, StaleWifiClient_ArmsNoTimer) {
    hbs_client *client = ipv4(hbs_handle_neigh_stale, MAC_WIFI, "192.168.0.20");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(0u, state_of(client));
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_ONLINE));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: Got STALE event for "));
}

TEST_F(NeighbourStates, StaleAgain_StartsTheTimerAfresh) {
    hbs_client *client = ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    hbs_lease_timer_start(client, HBS_TIMER_ONLINE, 5);
    (void)ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    EXPECT_EQ(600, seconds_left(client, HBS_TIMER_ONLINE));
}

TEST_F(NeighbourStates, OnlineTimerThatExpires_TakesTheClientOffLine) {
    hbs_client *client =
        published_client(MAC_A, "192.168.0.20", HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4);
    (void)ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    hbs_lease_timer_expire(client, HBS_TIMER_ONLINE);
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_DYNIP4,
              published(MAC_A).flags & ~HBS_CHANGED_MASK & ~HBS_FLAG_TIMER_ONLINE);
}

// --- reachable ---

TEST_F(NeighbourStates, ReachableWithoutAnyAddressBit_WaitsForALease) {
    hbs_client *client = ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_REACH_2 | HBS_FLAG_TIMER_DHCPWAIT, state_of(client));
    EXPECT_EQ(2, seconds_left(client, HBS_TIMER_DHCP_WAIT));
    EXPECT_EQ(0u, logged_containing("Got REACHABLE event"));
    EXPECT_EQ(state_of(client), published(MAC_A).flags & ~HBS_CHANGED_MASK);
    EXPECT_THAT(tr69_codes(), ElementsAre("106"));
}

TEST_F(NeighbourStates, ReachableWithAnyAddressBit_GoesOnLine) {
    for (const uint32_t bit : {HBS_FLAG_DYNIP4, HBS_FLAG_STIP4, HBS_FLAG_USRIP4, HBS_FLAG_DYNIP6,
                               HBS_FLAG_STIP6, HBS_FLAG_USRIP6}) {
        hbs_client *client = hbs_find_by_mac(mac_of(MAC_A).data());
        client = client != nullptr ? client : published_client(MAC_A, "192.168.0.20", 0);
        client->flags = bit;
        (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
        EXPECT_EQ(bit | HBS_FLAG_REACH | HBS_FLAG_REACH_2 | HBS_FLAG_ONLINE, state_of(client));
        EXPECT_EQ(state_of(client), published(MAC_A).flags & ~HBS_CHANGED_MASK);
    }
    EXPECT_EQ(6u, logged_containing("HOSTBASE: Got REACHABLE event for [02:ab:00:00:00:11]"));
}

TEST_F(NeighbourStates, Reachable_LogsTheClientAsItWasBeforeItWentOnLine) {
    (void)published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got REACHABLE event for [02:ab:00:00:00:11] on Ethernet: index: 0 "
                               "192.168.0.20 - no IPv6 - (no LL) - |REACH|DYNIP4|"));
}

TEST_F(NeighbourStates, GoingOnLine_StampsTheTime) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    client->online_time = 1;
    hbs_clock_advance(1000);
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_GE(client->online_time, 1000u);
}

TEST_F(NeighbourStates, ReachableAgain_LogsNothingAndCountsNoJoin) {
    set("flaplist.enable", 1);
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    hbs_set_ipv6(client, ipv6_of("fd00:2::20").data());
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_EQ(1u, client->dhcp_req_count);
    clear_log();
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_EQ(1u, client->dhcp_req_count);
    EXPECT_EQ(0u, logged_containing("Got REACHABLE event"));
    EXPECT_NE(0u, client->flags & HBS_FLAG_ONLINE);
}

TEST_F(NeighbourStates, Reachable_StopsTheOnlineTimer) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    (void)ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    ASSERT_NE(0, seconds_left(client, HBS_TIMER_ONLINE));
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_ONLINE));
    EXPECT_EQ(0u, published(MAC_A).flags & HBS_FLAG_TIMER_ONLINE);
}

struct FlapCase {
    const char *name;
    const char *mac;
    bool has_ipv6;
    const char *setting; // of flaplist.enable; null = the setting is not available
    uint32_t joins;
};

class ReachableFlap : public NeighbourStates, public testing::WithParamInterface<FlapCase> {};

TEST_P(ReachableFlap, CountsAJoin) {
    if (GetParam().setting != nullptr)
        set("flaplist.enable", GetParam().setting);
    hbs_client *client = published_client(GetParam().mac, "192.168.0.20", HBS_FLAG_DYNIP4);
    if (GetParam().has_ipv6)
        hbs_set_ipv6(client, ipv6_of("fd00:2::20").data());
    (void)ipv4(hbs_handle_neigh_reachable, GetParam().mac, "192.168.0.20");
    EXPECT_EQ(GetParam().joins, client->dhcp_req_count);
    EXPECT_EQ(0u, client->join_req_count);
}

INSTANTIATE_TEST_SUITE_P(Cases, ReachableFlap,
                         testing::Values(FlapCase{"WiredWithIpv6", MAC_A, true, "1", 1},
                                         FlapCase{"WithoutIpv6", MAC_A, false, "1", 0},
                                         FlapCase{"Wifi", MAC_WIFI, true, "1", 0},
                                         FlapCase{"Off", MAC_A, true, "0", 0},
                                         FlapCase{"OtherValue", MAC_A, true, "2", 0},
                                         FlapCase{"NotAvailable", MAC_A, true, nullptr, 0}),
                         [](const auto &test) { return test.param.name; });

TEST_F(NeighbourStates, Reachable_LogsTheFamilyAndTheLeaseEnd) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    const uint8_t end[8] = {7, 233, 12, 31, 23, 59, 58, 0};
    std::memcpy(client->lease_v6_end, end, sizeof end);
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_EQ(1u, logged_count("HOSTBASE: addr_family=2, clnt.lease_v6_end=7 233 12 31 "));
    (void)ipv6(hbs_handle_neigh_reachable, MAC_A, "fd00:2::20");
    EXPECT_EQ(1u, logged_count("HOSTBASE: addr_family=10, clnt.lease_v6_end=7 233 12 31 "));
    EXPECT_EQ(0u, logged_containing("Could not found")); // no look-up: the end is known
}

TEST_F(NeighbourStates, ReachableIpv6WithoutALeaseEnd_LooksItUpAndGoesOnLine) {
    write_file(HBS_LEASEV6_DATABASE, "<AddrAddr timestamp=\"1795217411\" pref=\"8\" valid=\"3600\" "
                                     "prefix=\"128\">fd00:2::20</AddrAddr>\n");
    hbs_client *client = ipv6(hbs_handle_neigh_reachable, MAC_A, "fd00:2::20");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_REACH_2 | HBS_FLAG_DYNIP6 | HBS_FLAG_ONLINE, state_of(client));
    EXPECT_NE(0, published(MAC_A).lease_v6_end[0]);
}

TEST_F(NeighbourStates, ReachableIpv4_LooksNoIpv6LeaseUp) {
    (void)ipv4(hbs_handle_neigh_reachable, MAC_A, "192.168.0.20");
    EXPECT_EQ(0u, logged_containing("Could not found"));
    (void)ipv6(hbs_handle_neigh_reachable, MAC_A, "fd00:2::20");
    EXPECT_EQ(1u, logged_containing("Could not found"));
}

TEST_F(NeighbourStates, FirstByteOfTheLeaseEnd_DecidesAboutTheLookUp) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", 0);
    client->lease_v6_end[1] = 233; // the year's high byte is still 0
    (void)ipv6(hbs_handle_neigh_reachable, MAC_A, "fd00:2::20");
    EXPECT_EQ(1u, logged_containing("Could not found"));
}

// --- gone ---

TEST_F(NeighbourStates, Gone_ForgetsTheLeaseStartAndAnnounces) {
    const uint32_t state = HBS_FLAG_REACH | HBS_FLAG_REACH_2 | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4;
    hbs_client *client = published_client(MAC_A, "192.168.0.20", state);
    client->lease_start_uptime = 77;
    hbs_publish(client);
    EXPECT_EQ(client, ipv4(hbs_handle_neigh_gone, MAC_A, "192.168.0.20"));
    EXPECT_EQ(0u, published(MAC_A).lease_start_uptime);
    EXPECT_EQ(state, published(MAC_A).flags & ~HBS_CHANGED_MASK); // it stays reachable and on line
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got ARP GONE event for [02:ab:00:00:00:11] on Ethernet: index: 0 "
                               "192.168.0.20 - no IPv6 - (no LL) - |REACH|DYNIP4|ONLINE|"));
    EXPECT_THAT(tr69_codes(), ElementsAre("106", "108"));
}

TEST_F(NeighbourStates, GoneWithoutMac_FindsTheClientByItsAddress) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    EXPECT_EQ(client, ipv4(hbs_handle_neigh_gone, nullptr, "192.168.0.20"));
    EXPECT_EQ(nullptr, ipv4(hbs_handle_neigh_gone, nullptr, "192.168.0.21"));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: Got ARP GONE event for "));
    EXPECT_THAT(tr69_codes(), ElementsAre("106", "108"));
}

TEST_F(NeighbourStates, GoneIpv6_IsAnnouncedWith107And108) {
    (void)ipv6(hbs_handle_neigh_stale, MAC_A, "fd00:2::20");
    clear_journal();
    EXPECT_NE(nullptr, ipv6(hbs_handle_neigh_gone, nullptr, "fd00:2::20"));
    EXPECT_THAT(tr69_codes(), ElementsAre("107", "108"));
}

TEST_F(NeighbourStates, Gone_LeavesARunningTimer) {
    hbs_client *client = ipv4(hbs_handle_neigh_stale, MAC_A, "192.168.0.20");
    (void)ipv4(hbs_handle_neigh_gone, MAC_A, "192.168.0.20");
    EXPECT_EQ(600, seconds_left(client, HBS_TIMER_ONLINE));
}

} // namespace neighbour_states_test
