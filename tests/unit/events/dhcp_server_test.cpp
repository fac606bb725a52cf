// What the restart of a network's DHCP server does to the clients.
#include <cstring>

#include "base/paths.h"
#include "events/dhcp_server.h"
#include "files/client_file.h"
#include "files/rule_files.h"
#include "support/events.h"

namespace dhcp_server_test {

constexpr const char *STATIC_LEASES = "/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases";
constexpr const char *DYNAMIC_LEASES = "/var/lib/misc/landhcps00.192.168.1.1.leases";
constexpr const char *SET_FLAGS = "HOSTBASE: hbs_handle_dhcp_server: set flags";
constexpr const char *DELETED = "HOSTBASE: hbs_handle_dhcp_server: deleted";
constexpr uint32_t GROUP = 2; // network 1

std::string client_mac(int number) {
    char text[18];
    std::snprintf(text, sizeof(text), "02:ab:00:00:01:%02x", number);
    return text;
}

std::string leased(int number, const std::string &ipv4) {
    return client_mac(number) + " " + ipv4 + "\n";
}

class DhcpServer : public EventTest {
  protected:
    // A client of the restarted network unless said otherwise, without change marks.
    hbs_client *client(int number, uint32_t flags, uint32_t trust = 0, uint8_t nwidx = 1) {
        const std::string ipv4 = "192.168." + std::to_string(nwidx) + "." + std::to_string(100 + number);
        hbs_client *made = published_client(client_mac(number), ipv4, flags, nwidx);
        made->trust = trust;
        hbs_publish(made);
        return made;
    }

    std::string address_seen(int number) {
        const std::optional<hbs_client> copy = seen(client_mac(number));
        return copy.has_value() ? text_of(copy->ipv4) : "none";
    }

    uint32_t marks_seen(int number) {
        return seen(client_mac(number)).value_or(hbs_client{}).flags & HBS_CHANGED_MASK;
    }

    bool is_there(int number) { return seen(client_mac(number)).has_value(); }
};

// --- whether anything happens ---

TEST_F(DhcpServer, StopOfAServerChangesNothing) {
    client(1, HBS_FLAG_DYNIP4);
    fail("RNDDB_Read", 5);
    hbs_handle_dhcp_server(GROUP, 0);
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: hbs_handle_dhcp_server: group 2, start : 0"}),
              std::vector<std::string>{log_lines().back()});
    EXPECT_TRUE(is_there(1));
    EXPECT_NE(5, hbs_rnd_status);
}

TEST_F(DhcpServer, StartIsLoggedAndReloadsBothDatabases) {
    ASSERT_TRUE(hbs_rnd_load());
    ASSERT_TRUE(hbs_lsd_load());
    fail("LSDDB_Read", 7);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_TRUE(logged("HOSTBASE: hbs_handle_dhcp_server: group 2, start : 1"));
    EXPECT_EQ(0, hbs_rnd_status);
    EXPECT_EQ(7, hbs_lsd_status);
    EXPECT_TRUE(logged("HOSTBASE: flush client list database")); // the LAN database is not needed
}

TEST_F(DhcpServer, UnreadableRouterDatabaseLeavesEveryClient) {
    client(1, HBS_FLAG_DYNIP4);
    write_file(DYNAMIC_LEASES, "some lease\n");
    fail("RNDDB_Read", 5);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(5, hbs_rnd_status);
    EXPECT_TRUE(is_there(1));
    EXPECT_EQ("some lease\n", read_file(DYNAMIC_LEASES));
    EXPECT_FALSE(logged("HOSTBASE: flush client list database"));
}

// --- lease files ---

TEST_F(DhcpServer, LeaseFilesOfTheNetworkArePruned) {
    write_file(DYNAMIC_LEASES, leased(1, "192.168.1.50"));
    write_file(STATIC_LEASES, leased(1, "192.168.1.50") + leased(2, "192.168.0.50") +
                                  leased(3, "192.168.1.255") + leased(4, "192.168.1.1"));
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ("", read_file(DYNAMIC_LEASES)); // shorter than a block of the copy
    EXPECT_EQ(leased(1, "192.168.1.50"), read_file(STATIC_LEASES));
}

TEST_F(DhcpServer, LeaseFilesOfOtherNetworksAreLeft) {
    constexpr const char *other = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
    write_file(other, leased(1, "10.0.0.1"));
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(leased(1, "10.0.0.1"), read_file(other));
}

TEST_F(DhcpServer, StaticLeasesArePrunedToTheRealPrefix) {
    set("network.2.ipv4", "192.168.1.1/25");
    write_file(STATIC_LEASES,
               leased(1, "192.168.1.126") + leased(2, "192.168.1.127") + leased(3, "192.168.1.128"));
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(leased(1, "192.168.1.126"), read_file(STATIC_LEASES));
}

// --- clients of the network ---

TEST_F(DhcpServer, DynamicClientThatIsNotRememberedIsDeleted) {
    client(1, HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_FALSE(is_there(1));
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_of(client_mac(1)).data()));
    EXPECT_EQ(1u, logged_count(DELETED));
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_TRUE(if_keys().empty());
}

TEST_F(DhcpServer, DynamicClientWithSiteTrustSurvivesUnchanged) {
    const hbs_client before = *client(1, HBS_FLAG_DYNIP4, HBS_TRUST_SITE);
    hbs_handle_dhcp_server(GROUP, 1);
    const std::optional<hbs_client> after = seen(client_mac(1));
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(before.flags, after->flags);
    EXPECT_EQ(before.trust, after->trust);
    EXPECT_EQ("192.168.1.101", address_seen(1));
    EXPECT_EQ(0u, logged_count(SET_FLAGS));
    EXPECT_EQ(std::vector<std::string>{"201 1 4 192 168 1 101"}, ip_keys());
}

TEST_F(DhcpServer, ClientWithoutAnAddressSourceIsDeleted) {
    client(1, HBS_FLAG_ONLINE);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_FALSE(is_there(1));
}

TEST_F(DhcpServer, ClientWithAUsersAddressBesideAStaticOneIsNotAStaticOne) {
    client(1, HBS_FLAG_STIP4 | HBS_FLAG_USRIP4);
    client(2, HBS_FLAG_STIP4 | HBS_FLAG_USRIP4, 0x20);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_FALSE(is_there(1));
    EXPECT_EQ("192.168.1.102", address_seen(2));
    EXPECT_EQ(0u, logged_count(SET_FLAGS));
}

TEST_F(DhcpServer, ClientOfAnotherNetworkOnlyGetsItsChangeMarks) {
    const hbs_client before = *client(1, HBS_FLAG_DYNIP4, 0, 0);
    hbs_handle_dhcp_server(GROUP, 1);
    const std::optional<hbs_client> after = seen(client_mac(1));
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(before.flags & ~HBS_CHANGED_MASK, after->flags & ~HBS_CHANGED_MASK);
    EXPECT_EQ(HBS_CHANGED_ADDRESS, marks_seen(1));
    EXPECT_EQ("192.168.0.101", address_seen(1));
    EXPECT_EQ(1u, logged_count(SET_FLAGS));
    EXPECT_EQ(0u, logged_count(DELETED));
}

// --- static leases ---

TEST_F(DhcpServer, StaticLeaseOfTheFileIsApplied) {
    write_file(STATIC_LEASES, leased(1, "192.168.1.77"));
    client(1, HBS_FLAG_DYNIP4 | HBS_FLAG_USRIP4);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ("192.168.1.77", address_seen(1));
    EXPECT_EQ(HBS_FLAG_STIP4, seen(client_mac(1))->flags & HBS_FLAGS_IP4);
    EXPECT_EQ(HBS_CHANGED_ADDRESS, marks_seen(1));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: found static lease for "));
    EXPECT_EQ(1u, logged_count(SET_FLAGS));
    EXPECT_EQ(std::vector<std::string>{"201 1 4 192 168 1 77"}, ip_keys());
    EXPECT_TRUE(dhcp_keys().empty());
}

TEST_F(DhcpServer, StaticLeaseIsAppliedInOtherNetworksToo) {
    write_file("/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases", leased(1, "192.168.0.77"));
    client(1, HBS_FLAG_DYNIP4, 0, 0);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ("192.168.0.77", address_seen(1));
    EXPECT_EQ(HBS_FLAG_STIP4, seen(client_mac(1))->flags & HBS_FLAGS_IP4);
}

TEST_F(DhcpServer, StaticClientWithoutALeaseThatIsNotRememberedIsDeleted) {
    client(1, HBS_FLAG_STIP4);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_FALSE(is_there(1));
    EXPECT_EQ(1u, logged_count(DELETED));
}

TEST_F(DhcpServer, RememberedStaticClientWithoutALeaseTakesThePoolsEnd) {
    client(1, HBS_FLAG_STIP4, HBS_TRUST_WHITE);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ("192.168.1.200", address_seen(1));
    EXPECT_EQ(HBS_CHANGED_ADDRESS, marks_seen(1));
    EXPECT_EQ(std::vector<std::string>{"201 1 4 192 168 1 200"}, ip_keys());
}

TEST_F(DhcpServer, RememberedStaticClientWithoutALeaseTakesTheAddressFoundBeforeIt) {
    write_file(STATIC_LEASES, leased(1, "192.168.1.77"));
    client(1, HBS_FLAG_STIP4);
    client(2, HBS_FLAG_STIP4, HBS_TRUST_WHITE);
    client(3, HBS_FLAG_STIP4);
    client(4, HBS_FLAG_STIP4, HBS_TRUST_USER);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ("192.168.1.77", address_seen(1));
    EXPECT_EQ("192.168.1.77", address_seen(2));
    EXPECT_FALSE(is_there(3));
    EXPECT_EQ("192.168.1.77", address_seen(4));
}

TEST_F(DhcpServer, UnknownGroupPrunesNothingAndStillRevalidates) {
    write_file(STATIC_LEASES, leased(2, "10.0.0.1"));
    client(1, HBS_FLAG_STIP4, HBS_TRUST_WHITE, 4);
    client(3, HBS_FLAG_DYNIP4, 0, 4);
    client(4, HBS_FLAG_DYNIP4, 0, 1);
    hbs_handle_dhcp_server(5, 1);
    EXPECT_EQ(leased(2, "10.0.0.1"), read_file(STATIC_LEASES));
    EXPECT_EQ("0.0.0.0", address_seen(1)); // no pool end to take
    EXPECT_FALSE(is_there(3));
    EXPECT_TRUE(is_there(4));
    EXPECT_EQ(HBS_CHANGED_ADDRESS, marks_seen(4));
}

TEST_F(DhcpServer, GroupOutOfRangeOnlyMarksTheClients) {
    client(1, HBS_FLAG_DYNIP4);
    for (uint32_t group : {0u, 0x80000000u, 0xffffffffu, 257u}) {
        hbs_handle_dhcp_server(group, 1);
        EXPECT_TRUE(is_there(1)) << group;
    }
}

// --- deletion and rebuilding ---

TEST_F(DhcpServer, DeletionStopsTheTimersAndGoesToTheClientFile) {
    hbs_nv_save_clients();
    hbs_client *going = client(1, HBS_FLAG_DYNIP4);
    std::strcpy(going->host, "laptop");
    hbs_lease_timer_start(going, HBS_TIMER_LEASE, 600);
    const hbs_timer_slot *timer = hbs_client_timer_slot(going, HBS_TIMER_LEASE);
    ASSERT_TRUE(timer->exists);
    hbs_nv_update_client(going);
    ASSERT_NE(std::string::npos, read_file(HBS_CLIENT_FILE).find(client_mac(1)));
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(std::string::npos, read_file(HBS_CLIENT_FILE).find(client_mac(1)));
    EXPECT_FALSE(timer->exists);
}

TEST_F(DhcpServer, DhcpWaitTimerOfADeletedClientWipesItsTrustBeforeTheClientFileSeesIt) {
    hbs_nv_save_clients();
    hbs_client *going = client(1, HBS_FLAG_DYNIP4, 0x40); // a trust bit that does not make it remembered
    hbs_nv_update_client(going);
    ASSERT_NE(std::string::npos, read_file(HBS_CLIENT_FILE).find(client_mac(1)));
    hbs_lease_timer_start(going, HBS_TIMER_DHCP_WAIT, 600);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(std::string::npos, read_file(HBS_CLIENT_FILE).find(client_mac(1)));
}

TEST_F(DhcpServer, SeveralClientsInARowAreDeleted) {
    for (int number = 1; number <= 6; ++number)
        client(number, HBS_FLAG_DYNIP4, number == 4 ? HBS_TRUST_SITE : 0);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(5u, logged_count(DELETED));
    EXPECT_EQ(1u, clients_seen());
    EXPECT_TRUE(is_there(4));
    EXPECT_EQ(std::vector<std::string>{"201 1"}, if_keys());
}

TEST_F(DhcpServer, EveryRemainingClientIsPublishedAgainInListOrder) {
    client(1, HBS_FLAG_DYNIP4, 0, 0);
    client(2, HBS_FLAG_DYNIP4);
    client(3, HBS_FLAG_DYNIP4, HBS_TRUST_SITE);
    hbs_handle_dhcp_server(GROUP, 1);
    hbs_client copies[HBS_MAX_CLIENTS];
    size_t count = 0;
    ASSERT_EQ(HOSTBASE_OK, hostbase_get_clients(copies, HBS_MAX_CLIENTS, &count));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(client_mac(1), hbs_mac_to_text(copies[0].mac).text);
    EXPECT_EQ(client_mac(3), hbs_mac_to_text(copies[1].mac).text);
    EXPECT_EQ((std::vector<std::string>{"200 1 4 192 168 0 101", "201 1 4 192 168 1 103"}), ip_keys());
    EXPECT_EQ((std::vector<std::string>{"200 1", "201 1"}), if_keys());
    EXPECT_EQ(std::vector<std::string>{"1"}, pri_keys());
}

TEST_F(DhcpServer, MoreClientsThanSlotsLoseTheirOldestWhenPublishedAgain) {
    for (int number = 1; number <= HBS_MAX_CLIENTS + 1; ++number)
        client(number, HBS_FLAG_DYNIP4 | (number <= 96 ? HBS_FLAG_ONLINE : 0u), 0, 0);
    ASSERT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS) + 1, working_clients());
    hbs_clear_flags(hbs_client_first(), 0, HBS_FLAG_ONLINE);
    hbs_handle_dhcp_server(GROUP, 1);
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), clients_seen());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), working_clients());
    EXPECT_FALSE(is_there(1));
    EXPECT_TRUE(is_there(97));
}

TEST_F(DhcpServer, RuleFilesAreLoadedWhiteFirstForTheClientsThatRemain) {
    client(1, HBS_FLAG_DYNIP4);
    client(2, HBS_FLAG_DYNIP4, HBS_TRUST_SITE);
    const std::string lines = client_mac(1) + ";7 8 9 1 2 3;\n" + client_mac(2) + ";1 2 3 4 5 6;\n";
    write_file(HBS_BLACK_RULES, lines);
    write_file(HBS_WHITE_RULES, lines);
    hbs_handle_dhcp_server(GROUP, 1);
    hbs_rule_entry rules[HBS_MAX_RULE_ENTRIES];
    size_t count = 0;
    ASSERT_EQ(HOSTBASE_OK, hostbase_get_rule_index(rules, HBS_MAX_RULE_ENTRIES, &count));
    ASSERT_EQ(2u, count); // the first client is gone
    EXPECT_EQ(1, rules[0].type);
    EXPECT_EQ(2, rules[1].type);
    EXPECT_EQ(1u, rules[0].p[0]);
    EXPECT_EQ(seen(client_mac(2))->dbpos, rules[0].p[3]);
}

} // namespace dhcp_server_test
