// Bridge and routed mode.
#include <cstring>
#include <string>

#include "base/paths.h"
#include "support/management.h"

namespace route_mode_test {

using ManagementRouteMode = ManagementTest;

constexpr const char *ADDRESS = "192.168.0.11";
constexpr const char *ADDRESS6 = "fd00:2::11";

// -----------------------------------------------------------------------------------------------

TEST_F(ManagementRouteMode, Bridge_EmptiesTheDatabaseAndClosesIt) {
    (void)published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    ASSERT_NE(nullptr, hbs_add(nullptr));
    EXPECT_EQ(0, trust(TABLET));
    const hbs_filter_request request = filter(HBS_LIST_BLACK, TABLET, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    const std::string content = client_file();
    clear_log();
    EXPECT_EQ(0, hbs_set_route_mode(0));
    EXPECT_EQ(0, hbs_db_ready);
    EXPECT_TRUE(logged("HOSTBASE: flush client list database"));
    EXPECT_EQ(0u, clients_seen());
    EXPECT_TRUE(rules().empty());
    EXPECT_EQ(nullptr, hbs_client_first());
    EXPECT_EQ(nullptr, hbs_nomac_first());
    EXPECT_EQ(content, client_file());
}

TEST_F(ManagementRouteMode, Bridge_StopsTheTimersOfItsClients) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    ASSERT_EQ(0, hbs_api_set_trust(1, true, "", client));
    std::vector<const hbs_timer_slot *> slots;
    for (const int kind : {HBS_TIMER_DHCP_WAIT, HBS_TIMER_LEASE, HBS_TIMER_ONLINE}) {
        hbs_lease_timer_start(client, kind, 3600);
        slots.push_back(hbs_client_timer_slot(client, kind));
        ASSERT_TRUE(slots.back()->exists);
    }
    EXPECT_EQ(0, hbs_set_route_mode(0));
    for (const hbs_timer_slot *slot : slots)
        EXPECT_FALSE(slot->exists);
}

TEST_F(ManagementRouteMode, RoutedAfterBridge_LoadsClientsAndRulesExactlyOnce) {
    (void)published_client(TABLET, "192.168.0.12", HBS_FLAG_DYNIP4); // nothing was set on it
    EXPECT_EQ(0, trust(LAPTOP, "mine"));
    for (const uint8_t type : {uint8_t{HBS_LIST_WHITE}, uint8_t{HBS_LIST_BLACK}}) {
        const hbs_filter_request request = filter(type, LAPTOP, {type, 2, 3, 4, 5, 6});
        EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    }
    EXPECT_EQ(0, hbs_set_route_mode(0));
    EXPECT_EQ(0, hbs_set_route_mode(0));
    EXPECT_EQ(0, hbs_set_route_mode(1));
    EXPECT_EQ(1, hbs_db_ready);
    EXPECT_EQ(1u, clients_seen());
    EXPECT_STREQ("mine", seen(LAPTOP)->comment);
    EXPECT_EQ(HBS_TRUST_SITE | HBS_TRUST_WHITE | HBS_TRUST_BLACK, seen(LAPTOP)->trust);
    ASSERT_EQ(2u, rules().size());
    EXPECT_EQ(HBS_LIST_WHITE, rules()[0].type);
    EXPECT_EQ(HBS_LIST_BLACK, rules()[1].type);
    EXPECT_EQ(0, hbs_set_route_mode(1));
    EXPECT_EQ(1u, working_clients()) << "the second switch to routed loads nothing";
}

TEST_F(ManagementRouteMode, RoutedWithoutBridgeBefore_LoadsNothing) {
    write_file(HBS_CLIENT_FILE, " version 1\n" + Persisted{.mac = LAPTOP, .trust = 1}.line() + "\n");
    EXPECT_EQ(0, hbs_set_route_mode(1));
    EXPECT_EQ(0u, working_clients());
}

TEST_F(ManagementRouteMode, Routed_KeepsTheModeAsTheReadyWord) {
    for (const uint8_t mode : {uint8_t{2}, uint8_t{255}}) {
        EXPECT_EQ(0, hbs_set_route_mode(mode));
        EXPECT_EQ(mode, hbs_db_ready);
    }
}

TEST_F(ManagementRouteMode, RoutedWithoutAFile_OpensAnEmptyDatabaseAndSaysSo) {
    EXPECT_EQ(0, trust(LAPTOP));
    EXPECT_EQ(0, hbs_set_route_mode(0));
    ASSERT_EQ(0, remove(HBS_CLIENT_FILE));
    EXPECT_EQ(0, hbs_set_route_mode(1));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/hostbase.txt"));
    EXPECT_EQ(0u, clients_seen());
    EXPECT_EQ(1, hbs_db_ready);
}

} // namespace route_mode_test
