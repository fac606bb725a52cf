// What a DHCPv4 lease counts for the flap list, and what it does to a Wi-Fi client.
#include "base/clock.h"
#include "store/client_fields.h"
#include "support/dhcpv4.h"

namespace dhcpv4_lease_wifi_test {

// --- flap list ---

TEST_F(Dhcpv4Lease, JoinsAreNotCountedUnlessTheFlapListIsOn) {
    ASSERT_NE(nullptr, handle());
    set("flaplist.enable", 0);
    ASSERT_NE(nullptr, handle());
    set("flaplist.enable", 2);
    ASSERT_NE(nullptr, handle());
    set("flaplist.enable", 1);
    fail("GWDB_FLAPLISTCFG_ENABLE_GET", 1);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0u, published().join_req_count);
    EXPECT_EQ(0u, published().flap_count);
    EXPECT_EQ(0u, published().last_joinReqTimeStamp);
}

TEST_F(Dhcpv4Lease, TwoLeasesOfAWiredClientTenSecondsApartAreAFlap) {
    set("flaplist.enable", 1);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(1u, published().join_req_count);
    hbs_clock_advance(10);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(2u, published().join_req_count);
    EXPECT_EQ(1u, published().flap_count);
}

class Dhcpv4LeaseWifi : public Dhcpv4Lease {
  protected:
    hbs_client *client_ = nullptr;

    // A Wi-Fi client that readers see on SSID 2.
    void SetUp() override {
        Dhcpv4Lease::SetUp();
        if (HasFatalFailure())
            return;
        set("wifi.ssid.2.auth", "None");
        lease_for(WIFI_MAC);
        hbs_wifi_bssid_table_set(mac_of(WIFI_MAC).data(), 2);
        client_ = handle();
        ASSERT_NE(nullptr, client_);
        ASSERT_EQ(HBS_ADAPTER_WIFI, client_->adapter_type);
        ASSERT_EQ(1, published(WIFI_MAC).wifi_index);
        set("flaplist.enable", 1);
        clear_log();
        clear_journal();
    }

    uint32_t joins_after_a_lease() {
        EXPECT_EQ(client_, handle());
        return published(WIFI_MAC).join_req_count;
    }
};

TEST_F(Dhcpv4LeaseWifi, JoinOnAnOpenSsidIsCounted) {
    EXPECT_EQ(1u, joins_after_a_lease());
}

TEST_F(Dhcpv4LeaseWifi, JoinOnASecuredSsidIsNotCounted) {
    set("wifi.ssid.2.auth", "WPA2-Personal");
    EXPECT_EQ(0u, joins_after_a_lease());
}

TEST_F(Dhcpv4LeaseWifi, OnlyExactlyNoneIsOpen) {
    for (const char *modes : {"none", "None,WPA", "NoneX"}) {
        set("wifi.ssid.2.auth", modes);
        EXPECT_EQ(0u, joins_after_a_lease()) << modes;
    }
}

TEST_F(Dhcpv4LeaseWifi, JoinIsNotCountedWhenTheModesCannotBeRead) {
    fail("wlan_getWpaAuthenticationModes", -1);
    EXPECT_EQ(0u, joins_after_a_lease());
}

TEST_F(Dhcpv4LeaseWifi, JoinOnTheOtherSsidAsksForThatOne) {
    hbs_set_wifi_index(client_, 0);
    hbs_publish(client_);
    EXPECT_EQ(0u, joins_after_a_lease());
    set("wifi.ssid.1.auth", "None");
    EXPECT_EQ(1u, joins_after_a_lease());
}

TEST_F(Dhcpv4LeaseWifi, JoinOfAClientThatReadersDoNotSeeYetIsNotCounted) {
    set("wifi.ssid.1.auth", "None");
    set("l2switch.mac.02:ab:00:00:00:22", "0x01");
    lease_for("02:ab:00:00:00:22");
    lease_of("192.168.0.22");
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0u, published("02:ab:00:00:00:22").join_req_count);
}

TEST_F(Dhcpv4LeaseWifi, FlapListThatIsOffAsksNothing) {
    set("flaplist.enable", 0);
    EXPECT_EQ(0u, joins_after_a_lease());
    EXPECT_EQ(0u, logged_containing("flaplist"));
}

// --- a device that no switch knows just now ---

TEST_F(Dhcpv4Lease, UnknownPlaceTakesTheKnownOneAwayOnAGateway) {
    set("flaplist.enable", 1);
    ASSERT_NE(nullptr, handle());
    unset(KEY);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, published().adapter_type);
    EXPECT_EQ(0, published().switch_port);
    EXPECT_EQ(2u, published().join_req_count);
}

TEST_F(Dhcpv4Lease, UnknownPlaceLeavesTheKnownOneWhereLeasesAreToldAgain) {
    set("leases.told_again", 1);
    set("flaplist.enable", 1);
    ASSERT_NE(nullptr, handle());
    unset(KEY);
    lease_of("192.168.0.30");
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, published().adapter_type);
    EXPECT_EQ(1, published().switch_port);
    EXPECT_EQ("192.168.0.30", text_of(published().ipv4));
    EXPECT_EQ(1u, published().join_req_count) << "nobody joined";
    learn(MAC, 3);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(3, published().switch_port);
    EXPECT_EQ(2u, published().join_req_count);
}

TEST_F(Dhcpv4Lease, NewClientOfAnUnknownPlaceHasJoinedNothingWhereLeasesAreToldAgain) {
    set("leases.told_again", 1);
    set("flaplist.enable", 1);
    unset(KEY);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, published().adapter_type);
    EXPECT_EQ(0u, published().join_req_count);
}

TEST_F(Dhcpv4LeaseWifi, UnknownPlaceLeavesTheSsidWhereLeasesAreToldAgain) {
    set("leases.told_again", 1);
    set("db.byte.72", 5);
    hbs_wifi_bssid_table_clear();
    unset(WIFI_KEY);
    EXPECT_EQ(0u, joins_after_a_lease());
    EXPECT_EQ(HBS_ADAPTER_WIFI, published(WIFI_MAC).adapter_type);
    EXPECT_EQ(1, published(WIFI_MAC).wifi_index);
    EXPECT_TRUE(journal_lines().empty());
}

// --- Wi-Fi index ---

TEST_F(Dhcpv4LeaseWifi, KnownClientKeepsItsIndex) {
    hbs_wifi_bssid_table_set(mac_of(WIFI_MAC).data(), 7);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(1, published(WIFI_MAC).wifi_index);
    EXPECT_TRUE(journal_lines().empty());
}

TEST_F(Dhcpv4LeaseWifi, RegisteredModeStoresTheSsidNumberUnchanged) {
    set("db.byte.72", 5);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(Keys{"wlan register 192.168.254.254"}, journal_lines());
    EXPECT_EQ(2, published(WIFI_MAC).wifi_index); // SSID 2, not 2 - 1
}

TEST_F(Dhcpv4LeaseWifi, RegisteredModeFindsTheSameSsidAtEachLease) {
    set("db.byte.72", 5);
    for (uint32_t lease = 1; lease <= 3; ++lease) {
        EXPECT_EQ(lease, joins_after_a_lease()) << "asked for another SSID than 2";
        EXPECT_EQ(2, published(WIFI_MAC).wifi_index);
    }
}

TEST_F(Dhcpv4LeaseWifi, OtherModeRegistersNothing) {
    set("db.byte.72", 4);
    ASSERT_NE(nullptr, handle());
    EXPECT_TRUE(journal_lines().empty());
    EXPECT_EQ(1, published(WIFI_MAC).wifi_index);
}

TEST_F(Dhcpv4LeaseWifi, RegisteredModeIsForWifiClientsOnly) {
    set("db.byte.72", 5);
    lease_for(MAC);
    lease_of("192.168.0.30");
    ASSERT_NE(nullptr, handle());
    EXPECT_TRUE(journal_lines().empty());
    EXPECT_EQ(0, published().wifi_index);
}

TEST_F(Dhcpv4LeaseWifi, NewClientTakesItsIndexFromTheTableAlsoInRegisteredMode) {
    set("db.byte.72", 5);
    set("l2switch.mac.02:ab:00:00:00:22", "0x01");
    lease_for("02:ab:00:00:00:22");
    lease_of("192.168.0.22");
    hbs_wifi_bssid_table_set(mac_of("02:ab:00:00:00:22").data(), 9);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(Keys{"wlan register 192.168.254.254"}, journal_lines());
    EXPECT_EQ(8, published("02:ab:00:00:00:22").wifi_index);
}

TEST_F(Dhcpv4LeaseWifi, NewClientThatTheTableDoesNotHaveIsLogged) {
    set("l2switch.mac.02:ab:00:00:00:22", "0x01");
    lease_for("02:ab:00:00:00:22");
    lease_of("192.168.0.22");
    ASSERT_NE(nullptr, handle());
    EXPECT_TRUE(logged("HOSTBASE: Got bssid failed for 02:ab:00:00:00:22"));
    EXPECT_EQ(0, published("02:ab:00:00:00:22").wifi_index);
}

TEST_F(Dhcpv4Lease, NewWiredClientIsNotLookedUpInTheTable) {
    hbs_wifi_bssid_table_set(mac_of(MAC).data(), 9);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0, published().wifi_index);
    EXPECT_EQ(0u, logged_containing("Got bssid failed"));
}

} // namespace dhcpv4_lease_wifi_test
