// What a DHCPv4 lease does to a client: identity, dates, timers, address source, network, interface.
#include <cstdlib>
#include <cstring>
#include <net/if.h>

#include "base/clock.h"
#include "base/date.h"
#include "events/dhcpv4_lease.h"
#include "support/dhcpv4.h"

namespace dhcpv4_lease_test {

// --- a new client ---

TEST_F(Dhcpv4Lease, NewClientIsFilledAndPublished) {
    set("uptime", 5000);
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC).data()));
    const hbs_client copy = published();
    EXPECT_EQ("192.168.0.20", text_of(copy.ipv4));
    EXPECT_STREQ("laptop", copy.host);
    EXPECT_STREQ("l2sd0.2", copy.device_name);
    EXPECT_STREQ("A1B2C3", copy.oui);
    EXPECT_STREQ("SN-1", copy.serial_number);
    EXPECT_STREQ("PC-1", copy.product_class);
    EXPECT_STREQ("lease.20", copy.lease_file);
    EXPECT_EQ(0, copy.nwidx);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, copy.adapter_type);
    EXPECT_EQ(1, copy.switch_port);
    EXPECT_EQ(5000u, copy.lease_start_uptime);
    EXPECT_FALSE(hbs_date_is_zero(copy.status_time));
    EXPECT_FALSE(hbs_date_is_zero(copy.lease_end));
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4 | HBS_FLAG_TIMER_LEASE,
              copy.flags & ~HBS_CHANGED_MASK);
    EXPECT_NE(0u, copy.lease_timer);
}

TEST_F(Dhcpv4Lease, NewClientEntersEveryIndex) {
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(Keys{"200 1 4 192 168 0 20"}, ip_keys());
    EXPECT_EQ(Keys{"200 1 192 168 0 20 0"}, dhcp_keys());
    EXPECT_EQ(Keys{"200 1"}, if_keys());
    EXPECT_EQ(Keys{"1"}, pri_keys());
}

TEST_F(Dhcpv4Lease, EventIsLoggedWithItsSecondsAndTheClient) {
    ASSERT_NE(nullptr, handle());
    EXPECT_TRUE(
        logged("HOSTBASE: Got DHCPV4 LEASE event for 3600 seconds for [02:ab:00:00:00:11] on Ethernet: "
               "index: 0 192.168.0.20 - no IPv6 - (no LL) - (laptop) |REACH|DYNIP4|ONLINE|"));
}

TEST_F(Dhcpv4Lease, SecondsAreLoggedAsASignedNumber) {
    lease_.seconds = UINT32_MAX;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(1u, logged_containing("HOSTBASE: Got DHCPV4 LEASE event for -1 seconds for "));
}

TEST_F(Dhcpv4Lease, TextsEndInsideTheirFields) {
    fill(lease_.host);
    fill(lease_.ifname);
    fill(lease_.oui);
    fill(lease_.serial_number);
    fill(lease_.product_class);
    fill(lease_.lease_file);
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published();
    EXPECT_EQ(std::string(63, 'x'), copy.host);
    EXPECT_EQ(std::string(63, 'x'), copy.device_name);
    EXPECT_EQ(std::string(6, 'x'), copy.oui);
    EXPECT_EQ(std::string(64, 'x'), copy.serial_number);
    EXPECT_EQ(std::string(64, 'x'), copy.product_class);
    EXPECT_EQ(std::string(127, 'x'), copy.lease_file);
}

TEST_F(Dhcpv4Lease, TextsPassThroughAsData) {
    strcpy(lease_.host, "a'b\"$(reboot)/../%n\n\xc3\xa9");
    ASSERT_NE(nullptr, handle());
    EXPECT_STREQ(lease_.host, published().host);
}

TEST_F(Dhcpv4Lease, NoMemoryForANewClientChangesNothing) {
    crowd_in();
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0u, clients_seen());
    EXPECT_EQ(0u, logged_containing("Got DHCPV4 LEASE event"));
}

// --- who and where ---

TEST_F(Dhcpv4Lease, LeaseOnAMacOfTheGatewayIsIgnored) {
    lease_for("00:11:22:33:44:60");
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(0u, logged_containing("decide_if_by_ExtSwPort"));
}

TEST_F(Dhcpv4Lease, AddressInNoNetworkMakesNoClient) {
    lease_of("10.9.8.7");
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Dhcpv4Lease, UnreadableRouterDatabaseMakesNoClient) {
    fail("RNDDB_Read", 5);
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Dhcpv4Lease, GivenNetworkAndAdapterAreTaken) {
    lease_.nwidx = 5;
    lease_.adapter_type = HBS_ADAPTER_USB;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(5, published().nwidx);
    EXPECT_EQ(HBS_ADAPTER_USB, published().adapter_type);
    EXPECT_EQ(0u, logged_containing("hbs_address_to_nwidx"));
    EXPECT_EQ(0u, logged_containing("decide_if_by_ExtSwPort"));
}

TEST_F(Dhcpv4Lease, GivenNetworkAndAdapterAreTakenByTheirLowBytes) {
    lease_.nwidx = 0x101;
    lease_.adapter_type = 0x203;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(1, published().nwidx);
    EXPECT_EQ(HBS_ADAPTER_MOCA, published().adapter_type);
}

TEST_F(Dhcpv4Lease, OtherNegativeNetworkMakesNoClient) {
    lease_.nwidx = -2;
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(0u, logged_containing("hbs_address_to_nwidx"));
}

TEST_F(Dhcpv4Lease, MacThatNoSwitchKnowsStillGetsItsLease) {
    lease_for("02:ab:00:00:00:99");
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, published("02:ab:00:00:00:99").adapter_type);
}

// --- dates, timers, flags ---

TEST_F(Dhcpv4Lease, ZeroSecondsSetNoDatesAndArmNoTimerButTheClientIsOnline) {
    lease_.seconds = 0;
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published();
    EXPECT_TRUE(hbs_date_is_zero(copy.status_time));
    EXPECT_TRUE(hbs_date_is_zero(copy.lease_end));
    EXPECT_EQ(0u, copy.lease_timer);
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4, copy.flags & ~HBS_CHANGED_MASK);
}

TEST_F(Dhcpv4Lease, SecondLeaseKeepsTheStartAndMovesTheEnd) {
    set("uptime", 5000);
    ASSERT_NE(nullptr, handle());
    const hbs_client first = published();
    set("uptime", 6000);
    hbs_clock_advance(7200);
    ASSERT_NE(nullptr, handle());
    const hbs_client second = published();
    EXPECT_EQ(0, std::memcmp(first.status_time, second.status_time, sizeof(first.status_time)));
    EXPECT_NE(0, std::memcmp(first.lease_end, second.lease_end, sizeof(first.lease_end)));
    EXPECT_EQ(5000u, second.lease_start_uptime);
    EXPECT_EQ(1u, working_clients());
    EXPECT_EQ(first.dbpos, second.dbpos);
}

TEST_F(Dhcpv4Lease, StartThatWasNotReadIsReadByTheNextLease) {
    fail("MAIN_getSysUpTime", -1);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0u, published().lease_start_uptime);
    EXPECT_EQ(2u, logged_count("hbs_set_start_time - failed to get system uptime from the kernel\n"));
    succeed("MAIN_getSysUpTime");
    set("uptime", 6000);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(6000u, published().lease_start_uptime);
}

TEST_F(Dhcpv4Lease, RunningTimersAreStopped) {
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    hbs_lease_timer_start(client, HBS_TIMER_DHCP_WAIT, 600);
    hbs_lease_timer_start(client, HBS_TIMER_ONLINE, 600);
    lease_.seconds = 0;
    ASSERT_NE(nullptr, handle());
    constexpr uint32_t armed = HBS_FLAG_TIMER_DHCPWAIT | HBS_FLAG_TIMER_LEASE | HBS_FLAG_TIMER_ONLINE;
    EXPECT_EQ(0u, client->flags & armed);
    EXPECT_EQ(0u, client->dhcp_wait_timer);
    EXPECT_EQ(0u, client->lease_timer);
    EXPECT_EQ(0u, client->online_timer);
}

TEST_F(Dhcpv4Lease, StaticLeaseIsOnlineWithoutDatesTimerAndLeaseFile) {
    lease_.dynamic = false;
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published();
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_STIP4, copy.flags & ~HBS_CHANGED_MASK);
    EXPECT_TRUE(hbs_date_is_zero(copy.status_time));
    EXPECT_EQ(0u, copy.lease_timer);
    EXPECT_STREQ("", copy.lease_file);
    EXPECT_TRUE(dhcp_keys().empty());
}

TEST_F(Dhcpv4Lease, StaticLeaseLeavesTheLeaseFileOfADynamicOne) {
    ASSERT_NE(nullptr, handle());
    lease_.dynamic = false;
    strcpy(lease_.lease_file, "other");
    ASSERT_NE(nullptr, handle());
    EXPECT_STREQ("lease.20", published().lease_file);
}

class Dhcpv4LeaseBoard : public Dhcpv4Lease, public testing::WithParamInterface<int> {};

TEST_P(Dhcpv4LeaseBoard, TimesStaticLeases) {
    set("nvm.byte.60", GetParam());
    lease_.dynamic = false;
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published();
    EXPECT_FALSE(hbs_date_is_zero(copy.status_time));
    EXPECT_FALSE(hbs_date_is_zero(copy.lease_end));
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_STIP4 | HBS_FLAG_TIMER_LEASE,
              copy.flags & ~HBS_CHANGED_MASK);
}

INSTANTIATE_TEST_SUITE_P(Modes, Dhcpv4LeaseBoard, testing::Values(7, 8, 9));

class Dhcpv4LeasePlainBoard : public Dhcpv4Lease, public testing::WithParamInterface<int> {};

TEST_P(Dhcpv4LeasePlainBoard, LeavesStaticLeasesUntimed) {
    set("nvm.byte.60", GetParam());
    lease_.dynamic = false;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0u, published().flags & HBS_FLAG_TIMER_LEASE);
}

INSTANTIATE_TEST_SUITE_P(Modes, Dhcpv4LeasePlainBoard, testing::Values(0, 6, 10, 24));

TEST_F(Dhcpv4Lease, AddressSourceBecomesTheLeasesOnly) {
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_FLAG_DYNIP4, source(published()));
    lease_.dynamic = false;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_FLAG_STIP4, source(published()));
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_FLAG_STIP4, source(published()));
    lease_.dynamic = true;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_FLAG_DYNIP4, source(published()));
}

TEST_F(Dhcpv4Lease, OtherFlagsAndTrustAreKept) {
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    hbs_set_flags(client, HBS_TRUST_SITE, HBS_FLAG_ASSOC | HBS_FLAG_DYNIP6);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_TRUST_SITE, published().trust);
    EXPECT_EQ(HBS_FLAG_ASSOC | HBS_FLAG_DYNIP6, published().flags & (HBS_FLAG_ASSOC | HBS_FLAGS_IP6));
}

// --- interface ---

TEST_F(Dhcpv4Lease, InterfaceOfANetworkIsTaken) {
    set("network.1.ifname", "lo");
    strcpy(lease_.ifname, "lo");
    ASSERT_NE(nullptr, handle());
    EXPECT_STREQ("lo", published().ifname);
    EXPECT_EQ(if_nametoindex("lo"), published().ifindex);
    EXPECT_STREQ("lo", published().device_name);
}

TEST_F(Dhcpv4Lease, InterfaceOfNoNetworkIsOnlyTheName) {
    strcpy(lease_.ifname, "lo");
    ASSERT_NE(nullptr, handle());
    EXPECT_STREQ("", published().ifname);
    EXPECT_EQ(0u, published().ifindex);
    EXPECT_STREQ("lo", published().device_name);
}

TEST_F(Dhcpv4Lease, InterfaceIndexIsTakenByItsLowByte) {
    ASSERT_EQ(0, std::system("ip link add hbs300 index 300 type bridge"));
    set("network.1.ifname", "hbs300");
    strcpy(lease_.ifname, "hbs300");
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0, std::system("ip link del hbs300"));
    EXPECT_EQ(300u & 0xff, published().ifindex);
    EXPECT_STREQ("hbs300", published().ifname);
}

// --- a client that moves ---

TEST_F(Dhcpv4Lease, ChangedAddressTakesTheOldEntriesOut) {
    ASSERT_NE(nullptr, handle());
    lease_of("192.168.0.21");
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ("192.168.0.21", text_of(published().ipv4));
    EXPECT_EQ(Keys{"200 1 4 192 168 0 21"}, ip_keys());
    EXPECT_EQ(Keys{"200 1 192 168 0 21 0"}, dhcp_keys());
    EXPECT_EQ(Keys{"200 1"}, if_keys());
    EXPECT_EQ(Keys{"1"}, pri_keys());
}

TEST_F(Dhcpv4Lease, ChangedNetworkLeavesNoEntryOfTheOldOne) {
    ASSERT_NE(nullptr, handle());
    lease_of("192.168.1.21");
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(1, published().nwidx);
    EXPECT_EQ(Keys{"201 1 4 192 168 1 21"}, ip_keys());
    EXPECT_EQ(Keys{"201 1 192 168 1 21 0"}, dhcp_keys());
    EXPECT_EQ(Keys{"201 1"}, if_keys());
    EXPECT_TRUE(pri_keys().empty());
}

TEST_F(Dhcpv4Lease, ChangedNetworkWithTheSameAddressLeavesNoEntryOfTheOldOne) {
    ASSERT_NE(nullptr, handle());
    lease_.nwidx = 1;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(Keys{"201 1 4 192 168 0 20"}, ip_keys());
    EXPECT_EQ(Keys{"201 1 192 168 0 20 0"}, dhcp_keys());
    EXPECT_EQ(Keys{"201 1"}, if_keys());
    EXPECT_TRUE(pri_keys().empty());
    lease_.nwidx = 0;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(Keys{"200 1 4 192 168 0 20"}, ip_keys());
    EXPECT_EQ(Keys{"200 1"}, if_keys());
    EXPECT_EQ(Keys{"1"}, pri_keys());
}

TEST_F(Dhcpv4Lease, NetworkChangeOfOneClientLeavesTheOthers) {
    ASSERT_NE(nullptr, handle());
    lease_for("02:ab:00:00:00:12");
    lease_of("192.168.0.21");
    ASSERT_NE(nullptr, handle());
    lease_for(MAC);
    lease_of("192.168.0.20");
    lease_.nwidx = 1;
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ((Keys{"200 1 4 192 168 0 21", "201 1 4 192 168 0 20"}), ip_keys());
    EXPECT_EQ((Keys{"200 2", "201 1"}), if_keys());
    EXPECT_EQ(Keys{"2"}, pri_keys());
}

} // namespace dhcpv4_lease_test
