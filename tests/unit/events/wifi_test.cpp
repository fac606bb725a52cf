// Stations that associate with an SSID of the gateway and leave it.
#include <cstdio>
#include <ostream>

#include <rnddb.h>

#include "events/wifi.h"
#include "support/bridge.h"
#include "support/events.h"

namespace wifi_test {

const std::string STATION = "02:aa:00:00:00:21";
const std::string OTHER = "02:aa:00:00:00:22";
const std::string OWN = "00:11:22:33:44:55"; // in the gateway's range of addresses

const std::string FULL = "HOSTBASE: hbs_wifi_bssid_table_find_empty : hbsWifiClntBssidTable is full";
const std::string WAIT = "HOSTBASE: hbs_handle_wifi_association: wait for dhcp";
const std::string NEW = "HOSTBASE: hbs_handle_wifi_association: add new client";
const std::string NEW_BSSID = "HOSTBASE: hbs_handle_wifi_association: old client, new bssid";
const std::string NO_MATCH = "HOSTBASE: hbs_del_wifi_clnt_bssid : do not match mac";

std::string station(int number) {
    char text[18];
    (void)snprintf(text, sizeof text, "02:bb:00:00:00:%02x", static_cast<unsigned>(number));
    return text;
}

class Wifi : public EventTest {
  protected:
    // Every SSID has a group, so that the SSID's number alone decides.
    void SetUp() override {
        EventTest::SetUp();
        for (const char *ssid : {"0", "9", "16", "17", "257"})
            set(std::string("ssid.") + ssid + ".group", 1);
        ASSERT_EQ(0, RNDDB_Read(0, 1)); // as at the daemon's start
    }

    static hbs_client *associate(const std::string &mac, uint32_t ssid = 1) {
        const hbs_list_hold hold;
        return hbs_handle_wifi_association(mac_of(mac).data(), ssid);
    }

    static hbs_client *leave(const std::string &mac) {
        const hbs_list_hold hold;
        return hbs_handle_wifi_disassociation(mac_of(mac).data());
    }

    static int row_of(const std::string &mac) { return hbs_wifi_bssid_table_find(mac_of(mac).data()); }

    static int bssid_of(const std::string &mac) { return hbs_bssid_of(mac_of(mac).data()); }
};

// --- association: the client ---

TEST_F(Wifi, StationBecomesAClientThatReadersSee) {
    hbs_client *client = associate(STATION, 2);
    ASSERT_NE(nullptr, client);
    const auto seen_client = seen(STATION);
    ASSERT_TRUE(seen_client);
    EXPECT_EQ(HBS_ADAPTER_WIFI, seen_client->adapter_type);
    EXPECT_EQ(1, seen_client->nwidx);
    EXPECT_EQ(1, seen_client->wifi_index);
    EXPECT_EQ(HBS_FLAG_ASSOC | HBS_FLAG_ONLINE, seen_client->flags & 0xFFFFu);
    EXPECT_EQ(1, bssid_of(STATION));
    EXPECT_EQ(std::vector<std::string>{"201 1"}, if_keys());
}

TEST_F(Wifi, AssociationIsLoggedStepByStep) {
    ASSERT_NE(nullptr, associate(STATION));
    const std::vector<std::string> lines = log_lines();
    const std::vector<std::string> expected = {
        "HOSTBASE: hbs_handle_wifi_association: find mac 02:aa:00:00:00:21", NEW,
        "HOSTBASE: Got ASSOCIATED event for [02:aa:00:00:00:21] on WiFi: index: 0 no IPv4 - no IPv6 - (no "
        "LL) - "
        "|ASSOC|ONLINE|",
        WAIT};
    auto at = lines.begin();
    for (const std::string &line : expected) {
        at = std::find(at, lines.end(), line);
        EXPECT_NE(lines.end(), at) << line;
    }
    EXPECT_FALSE(logged(NEW_BSSID));
}

TEST_F(Wifi, GatewaysOwnAddressIsNoStation) {
    EXPECT_EQ(nullptr, associate(OWN));
    EXPECT_EQ(0u, working_clients());
    EXPECT_TRUE(log_entries().empty());
}

TEST_F(Wifi, SsidWithoutALanGroupIsRefused) {
    EXPECT_EQ(nullptr, associate(STATION, 5));
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(0u, logged_containing("find mac"));
}

struct SsidCase {
    uint32_t ssid;
    bool accepted;
};

void PrintTo(const SsidCase &of, std::ostream *out) {
    *out << of.ssid;
}

class WifiNewStation : public Wifi, public testing::WithParamInterface<SsidCase> {};

TEST_P(WifiNewStation, IsTakenOnSsids1To16Only) {
    const auto [ssid, accepted] = GetParam();
    const hbs_client *client = associate(STATION, ssid);
    EXPECT_EQ(accepted, client != nullptr);
    EXPECT_EQ(accepted, logged(NEW));
    EXPECT_EQ(accepted ? 0u : 1u, logged_count("HOSTBASE: ASSOCIATED event on invalid index (" +
                                               std::to_string(static_cast<int>(ssid)) + ")"));
    EXPECT_EQ(accepted, seen(STATION).has_value());
    EXPECT_EQ(accepted ? static_cast<int>(ssid) - 1 : -1, bssid_of(STATION));
}

INSTANTIATE_TEST_SUITE_P(Numbers, WifiNewStation,
                         testing::Values(SsidCase{0, false}, SsidCase{1, true}, SsidCase{9, true},
                                         SsidCase{16, true}, SsidCase{17, false}, SsidCase{257, false}),
                         [](const auto &of) { return "Ssid" + std::to_string(of.param.ssid); });

class WifiKnownStation : public Wifi, public testing::WithParamInterface<uint32_t> {};

TEST_P(WifiKnownStation, IsTakenOnAnySsid) {
    ASSERT_NE(nullptr, associate(STATION, 2));
    clear_log();
    ASSERT_NE(nullptr, associate(STATION, GetParam()));
    EXPECT_TRUE(logged(NEW_BSSID));
    EXPECT_FALSE(logged(NEW));
    EXPECT_EQ(0u, logged_containing("invalid index"));
    EXPECT_EQ(static_cast<uint8_t>(GetParam() - 1), seen(STATION)->wifi_index);
    EXPECT_EQ(static_cast<uint8_t>(GetParam() - 1), bssid_of(STATION));
}

INSTANTIATE_TEST_SUITE_P(Numbers, WifiKnownStation, testing::Values(0u, 1u, 9u, 16u, 17u, 257u));

TEST_F(Wifi, KnownStationOnTheSameSsidKeepsItsEntries) {
    ASSERT_NE(nullptr, associate(STATION));
    clear_log();
    hbs_client *client = associate(STATION);
    EXPECT_FALSE(logged(NEW_BSSID));
    EXPECT_EQ(0u, client->flags & HBS_CHANGED_BSSID);
    EXPECT_EQ(std::vector<std::string>{"200 1"}, if_keys());
    EXPECT_EQ(1u, clients_seen());
}

TEST_F(Wifi, StationThatMovesLosesItsOldEntries) {
    hbs_client *client = published_client(STATION, "192.168.0.77", HBS_FLAG_DYNIP4);
    const size_t ip_entries = ip_keys().size();
    ASSERT_EQ(std::vector<std::string>{"200 1"}, if_keys());
    ASSERT_EQ(client, associate(STATION, 2));
    EXPECT_EQ(std::vector<std::string>{"201 1"}, if_keys());
    EXPECT_EQ(ip_entries, ip_keys().size());
    EXPECT_TRUE(pri_keys().empty()); // only clients of network 0 have one
}

// On the same network, whose change would set the marks as well.
TEST_F(Wifi, StationThatMovesWithinItsNetworkIsMarked) {
    hbs_client *client = associate(STATION, 1);
    client->flags &= ~HBS_CHANGED_MASK;
    ASSERT_EQ(client, associate(STATION, 9));
    EXPECT_EQ(HBS_CHANGED_BSSID, client->flags & HBS_CHANGED_BSSID);
    EXPECT_EQ(std::vector<std::string>{"200 1"}, if_keys());
}

TEST_F(Wifi, NoRoomForAnotherClientGivesNone) {
    for (int i = 0; i < HBS_MAX_WORKING; ++i) {
        const uint8_t mac[6] = {0x02, 0xcc, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        hbs_client *client = hbs_add(mac);
        ASSERT_NE(nullptr, client);
        client->flags = HBS_FLAG_ONLINE; // so that it does not make room
    }
    EXPECT_EQ(nullptr, associate(STATION));
    EXPECT_TRUE(logged(NEW));
    EXPECT_EQ(-1, row_of(STATION));
}

// --- association: flap list ---

TEST_F(Wifi, AssociationIsCountedOnlyWithTheFlapListOn) {
    ASSERT_NE(nullptr, associate(STATION));
    EXPECT_EQ(0u, seen(STATION)->join_req_count);
    set("flaplist.enable", 2);
    ASSERT_NE(nullptr, associate(STATION));
    EXPECT_EQ(0u, seen(STATION)->join_req_count);
    set("flaplist.enable", 1);
    ASSERT_NE(nullptr, associate(STATION));
    EXPECT_EQ(1u, seen(STATION)->join_req_count);
    fail("GWDB_FLAPLISTCFG_ENABLE_GET", 1);
    ASSERT_NE(nullptr, associate(STATION));
    EXPECT_EQ(1u, seen(STATION)->join_req_count);
}

// --- association: push-button pairing ---

struct WpsCase {
    uint32_t ssid;
    const char *status; // null: the Wi-Fi manager cannot tell
    int cancelled;      // 0 = none
};

void PrintTo(const WpsCase &of, std::ostream *out) {
    *out << "SSID " << of.ssid << " " << (of.status != nullptr ? of.status : "unknown");
}

class WifiWps : public Wifi, public testing::WithParamInterface<WpsCase> {};

TEST_P(WifiWps, SuccessOnOneRadioEndsTheSessionOnTheOther) {
    const auto [ssid, status, cancelled] = GetParam();
    const std::string key = "wifi.ssid." + std::to_string(ssid) + ".wps";
    if (status != nullptr)
        set(key, status);
    ASSERT_NE(nullptr, associate(STATION, ssid));
    std::vector<std::string> cancels;
    if (cancelled != 0)
        cancels.push_back("wlan wps-cancel " + std::to_string(cancelled));
    EXPECT_EQ(cancels, journal_lines("wlan wps-cancel"));
    EXPECT_EQ(cancels.size(), logged_count("HOSTBASE: PBC on SSID" + std::to_string(ssid) +
                                           " success, cancel PBC session on the other radio"));
    EXPECT_EQ(cancelled == 1 ? 1u : 0u, logged_count("HOSTBASE: Cancel PBC session on SSID1"));
    EXPECT_EQ(cancelled == 9 ? 1u : 0u, logged_count("HOSTBASE: Cancel PBC session on SSID9"));
}

INSTANTIATE_TEST_SUITE_P(Cases, WifiWps,
                         testing::Values(WpsCase{1, "Success", 9}, WpsCase{2, "Success", 1},
                                         WpsCase{9, "Success", 1}, WpsCase{16, "Success", 1},
                                         WpsCase{1, "PBC: Success (1)", 9}, WpsCase{1, "success", 0},
                                         WpsCase{1, "In progress", 0}, WpsCase{9, nullptr, 0}));

// --- association: waiting for a lease ---

TEST_F(Wifi, RoutedStationWithoutAnAddressWaitsTwoSecondsForALease) {
    hbs_client *client = associate(STATION);
    EXPECT_TRUE(logged(WAIT));
    EXPECT_NE(0u, client->flags & HBS_FLAG_TIMER_DHCPWAIT);
    itimerspec left{};
    ASSERT_TRUE(hbs_client_timer_slot(client, HBS_TIMER_DHCP_WAIT)->exists);
    ASSERT_EQ(0, timer_gettime(hbs_client_timer_slot(client, HBS_TIMER_DHCP_WAIT)->handle, &left));
    const double seconds =
        static_cast<double>(left.it_value.tv_sec) + 1e-9 * static_cast<double>(left.it_value.tv_nsec);
    EXPECT_GT(seconds, 0.5);
    EXPECT_LE(seconds, 2.0);
    const hbs_list_hold hold;
    hbs_lease_timers_clear(client);
}

class WifiWithAddress : public Wifi, public testing::WithParamInterface<uint32_t> {};

TEST_P(WifiWithAddress, ArmsNoTimer) {
    const hbs_client *client = published_client(STATION, "192.168.0.77", GetParam());
    ASSERT_EQ(client, associate(STATION));
    EXPECT_FALSE(logged(WAIT));
    EXPECT_EQ(0u, client->flags & HBS_FLAG_TIMER_DHCPWAIT);
}

INSTANTIATE_TEST_SUITE_P(Kinds, WifiWithAddress,
                         testing::Values(HBS_FLAG_DYNIP4, HBS_FLAG_STIP4, HBS_FLAG_USRIP4));

TEST_F(Wifi, BridgedNetworkArmsNoTimer) {
    set("network.1.routed", 0);
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    const hbs_client *client = associate(STATION);
    ASSERT_NE(nullptr, client);
    EXPECT_TRUE(logged("HOSTBASE: hbs_handle_wifi_association: do not need to set lease in bridge mode."));
    EXPECT_FALSE(logged(WAIT));
    EXPECT_EQ(0u, client->flags & HBS_FLAG_TIMER_DHCPWAIT);
    EXPECT_TRUE(seen(STATION));
}

TEST_F(Wifi, UnknownRouteModeLeavesTheClientUnpublishedAndWithoutARow) {
    fail("RNDDB_boolGetWithKeyAndIndex", -1);
    EXPECT_EQ(nullptr, associate(STATION));
    EXPECT_TRUE(logged("HOSTBASE: hbs_handle_wifi_association: get route-mode error."));
    const hbs_client *client = hbs_find_by_mac(mac_of(STATION).data());
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(HBS_ADAPTER_WIFI, client->adapter_type);
    EXPECT_NE(0u, client->flags & HBS_FLAG_ASSOC);
    EXPECT_FALSE(seen(STATION));
    EXPECT_EQ(-1, row_of(STATION));
}

// --- association: the table ---

TEST_F(Wifi, SixtyFourStationsHaveARowAndThe65thIsStoredWithoutOne) {
    for (int number = 1; number <= 64; ++number)
        ASSERT_NE(nullptr, associate(station(number), 2));
    EXPECT_EQ(64, hbsWifiClntBssidTable.count);
    EXPECT_EQ(63, row_of(station(64)));
    EXPECT_EQ(0u, logged_count(FULL));
    ASSERT_NE(nullptr, associate(station(65), 2));
    EXPECT_EQ(1u, logged_count(FULL));
    EXPECT_EQ(-1, row_of(station(65)));
    EXPECT_EQ(64, hbsWifiClntBssidTable.count);
    EXPECT_EQ(1, seen(station(65))->wifi_index);
    EXPECT_EQ(65u, clients_seen());
    ASSERT_NE(nullptr, leave(station(3)));
    ASSERT_NE(nullptr, associate(station(65), 2));
    EXPECT_EQ(2, row_of(station(65)));
}

TEST_F(Wifi, StationThatMovesKeepsItsRow) {
    associate(OTHER);
    associate(STATION);
    associate(STATION, 2);
    EXPECT_EQ(1, row_of(STATION));
    EXPECT_EQ(1, bssid_of(STATION));
    EXPECT_EQ(2, hbsWifiClntBssidTable.count);
}

// --- disassociation ---

TEST_F(Wifi, StationThatLeavesStaysAClientOffLine) {
    hbs_client *client = associate(STATION);
    client->lease_start_uptime = 4711;
    client->flags |= HBS_FLAG_REACH;
    client->status_time[0] = 7;
    ASSERT_EQ(client, leave(STATION));
    const auto left = seen(STATION);
    ASSERT_TRUE(left);
    EXPECT_EQ(0u, left->flags & (HBS_FLAG_ASSOC | HBS_FLAG_REACH | HBS_FLAG_ONLINE));
    EXPECT_EQ(0u, left->lease_start_uptime);
    EXPECT_EQ(0, left->status_time[0]);
    EXPECT_EQ(-1, row_of(STATION));
    EXPECT_EQ(0, hbsWifiClntBssidTable.count);
    EXPECT_TRUE(
        logged("HOSTBASE: Got DISASSOCIATED event for [02:aa:00:00:00:21] on WiFi: index: 0 no IPv4 - "
               "no IPv6 - (no LL) - |"));
    EXPECT_FALSE(logged(NO_MATCH));
    expect_deletions({STATION});
    const hbs_list_hold hold;
    hbs_lease_timers_clear(client);
}

TEST_F(Wifi, StationWithoutARowIsStillCleared) {
    published_client(STATION, "192.168.0.77",
                     HBS_FLAG_DYNIP4 | HBS_FLAG_ASSOC | HBS_FLAG_REACH | HBS_FLAG_ONLINE);
    ASSERT_NE(nullptr, leave(STATION));
    EXPECT_TRUE(logged(NO_MATCH));
    EXPECT_EQ(HBS_FLAG_DYNIP4, seen(STATION)->flags & 0xFFFFu);
    expect_deletions({STATION});
}

TEST_F(Wifi, UnknownStationIsOnlyTakenOutOfTheBridge) {
    EXPECT_EQ(nullptr, leave(STATION));
    EXPECT_EQ(std::vector<std::string>{"HOSTBASE: removing 02:aa:00:00:00:21 from docsis bridge\n"},
              log_lines());
    expect_deletions({STATION});
}

TEST_F(Wifi, AddressOfTheGatewaysRangeIsTakenOutOfTheBridgeToo) {
    EXPECT_EQ(nullptr, leave(OWN));
    expect_deletions({OWN});
}

TEST_F(Wifi, ProtectedAddressStaysInTheBridge) {
    EXPECT_EQ(nullptr, leave("00:11:22:33:44:57"));
    EXPECT_EQ(nullptr, leave(STATION));
    expect_deletions({STATION});
}

} // namespace wifi_test
