// DHCPv6 leases and releases: whose they are, and what they leave in the client.
#include <array>
#include <gmock/gmock.h>
#include <optional>

#include "base/date.h"
#include "gateway/neighbour_query.h"
#include "support/presence.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace fake {

// What the kernel's neighbour table says of a link-local address, and how often it was asked.
std::optional<Mac> neighbour;
int questions = 0;
std::string asked;

} // namespace fake

int hbs_query_neigh_lladdr(int family, const uint8_t *address, uint8_t *mac_out) {
    fake::questions++;
    fake::asked = std::to_string(family) + " " + hbs_ipv6_to_text(address).text;
    if (!fake::neighbour)
        return -1;
    std::copy(fake::neighbour->begin(), fake::neighbour->end(), mac_out);
    return 0;
}

namespace {

constexpr const char *LL = "fe80::20";
constexpr const char *GLOBAL = "fd00:2::1975";
constexpr uint32_t LEASE_END = 1800000000; // 2027-01-15 08:00:00 UTC

class Dhcpv6 : public PresenceTest {
  protected:
    hbs_dhcpv6_lease lease_{};

    void SetUp() override {
        PresenceTest::SetUp();
        setenv("TZ", "UTC", 1);
        lease_ = {.ll = {},
                  .ipv6 = {},
                  .lease_end = LEASE_END,
                  .host = "laptop",
                  .oui = "A1B2C3",
                  .serial_number = "SN-6",
                  .product_class = "PC-6",
                  .lease_file = "lease6.20"};
        lease_of(LL, GLOBAL);
    }

    void lease_of(const std::string &ll, const std::string &ipv6) {
        std::memcpy(lease_.ll, ipv6_of(ll).data(), 16);
        std::memcpy(lease_.ipv6, ipv6_of(ipv6).data(), 16);
    }

    hbs_client *handle() {
        const hbs_dhcpv6_neighbour neighbour = hbs_ask_dhcpv6_neighbour(lease_.ll, lease_.ipv6);
        return hbs_handle_dhcpv6_lease(&lease_, &neighbour);
    }
};

// --- whose lease it is ---

TEST_F(Dhcpv6, ClientWithTheLinkLocalAddress_GetsTheLease) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    EXPECT_EQ(client, handle());
    EXPECT_EQ(0, fake::questions);
    EXPECT_EQ(GLOBAL, address_text(published(MAC_A).ipv6));
    EXPECT_EQ(0u, logged_containing("no client with this linklocal address"));
}

TEST_F(Dhcpv6, ClientOfTheMacThatTheKernelHas_GetsTheLease) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    fake::neighbour = mac_of(MAC_A);
    EXPECT_EQ(client, handle());
    EXPECT_EQ("10 fe80::20", fake::asked);
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ(1u, working_clients());
    EXPECT_EQ(0u, logged_containing("no client with this linklocal address"));
}

TEST_F(Dhcpv6, UnknownMac_MakesAClientWithIt) {
    fake::neighbour = mac_of(MAC_A);
    set("uptime", 5000);
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC_A).data()));
    EXPECT_EQ(5000u, client->lease_start_uptime);
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got DHCPv6 LEASE event on nw 0: no client with this linklocal "
                               "address [02:ab:00:00:00:11]"));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: Added lease start time for  [02:ab:00:00:00:11]"));
}

TEST_F(Dhcpv6, NoMacAtAll_MakesANomacClient) {
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    EXPECT_TRUE(hbs_is_nomac(client));
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(1u, clients_seen());
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got DHCPv6 LEASE event on nw 0: no client with this linklocal "
                               "address [00:00:00:00:00:00]"));
    EXPECT_THAT(dhcp_keys(), ElementsAre("200 2 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 32 0"));
}

TEST_F(Dhcpv6, MacThatBeginsWith00_CountsAsAbsentForANewClient) {
    fake::neighbour = mac_of("00:ab:00:00:00:11");
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    EXPECT_TRUE(hbs_is_nomac(client));
    EXPECT_EQ(1u, logged_containing("linklocal address [00:ab:00:00:00:11]"));
}

TEST_F(Dhcpv6, MacThatBeginsWith00_StillFindsItsClient) {
    hbs_client *client = published_client("00:ab:00:00:00:11", "192.168.0.20", 0);
    fake::neighbour = mac_of("00:ab:00:00:00:11");
    EXPECT_EQ(client, handle());
}

TEST_F(Dhcpv6, SecondLeaseOfANomacClient_IsTheSameClients) {
    hbs_client *client = handle();
    lease_of(LL, "fd00:2::1976");
    EXPECT_EQ(client, handle());
    EXPECT_EQ(1u, nomac_clients());
    EXPECT_EQ("fd00:2::1976", address_text(client->ipv6));
}

TEST_F(Dhcpv6, AddressInNoNetwork_ChangesNothing) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    const hbs_client before = *client;
    lease_of(LL, "2001:db8::1");
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0, std::memcmp(&before, client, sizeof before));
    EXPECT_EQ(0u, nomac_clients());
    EXPECT_EQ(0, fake::questions);
}

TEST_F(Dhcpv6, NoMemory_EndsWithNone) {
    crowd_in();
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0u, clients_seen());
}

TEST_F(Dhcpv6, UnspecifiedLinkLocalAddress_IsNobodys) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4); // has no IPv6 addresses
    lease_of("::", GLOBAL);
    EXPECT_NE(client, handle());
    EXPECT_EQ("::", address_text(client->ipv6));
}

// --- what it leaves ---

TEST_F(Dhcpv6, Lease_FillsAndPublishesTheClient) {
    set("uptime", 5000);
    lease_of(LL, "fd00:3::1975");
    (void)add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published(MAC_A);
    EXPECT_EQ(1, copy.nwidx);
    EXPECT_STREQ("laptop", copy.host);
    EXPECT_STREQ("A1B2C3", copy.oui);
    EXPECT_STREQ("SN-6", copy.serial_number);
    EXPECT_STREQ("PC-6", copy.product_class);
    EXPECT_STREQ("lease6.20", copy.lease_file6);
    EXPECT_STREQ("", copy.lease_file);
    EXPECT_EQ(LL, address_text(copy.ll));
    EXPECT_EQ("fd00:3::1975", address_text(copy.ipv6));
    EXPECT_EQ(5000u, copy.lease_start_uptime);
    EXPECT_THAT(copy.lease_v6_end, ElementsAre(7, 235, 1, 15, 8, 0, 0, 0));
    EXPECT_EQ(HBS_FLAG_REACH | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP6, copy.flags & ~HBS_CHANGED_MASK);
    EXPECT_TRUE(hbs_date_is_zero(copy.lease_end));
    EXPECT_THAT(tr69_codes(), IsEmpty()); // the caller's business
}

TEST_F(Dhcpv6, Lease_EntersTheIndices) {
    (void)add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    EXPECT_THAT(ip_keys(), ElementsAre("200 2 16 253 0 0 2 0 0 0 0 0 0 0 0 0 0 25 117",
                                       "200 2 16 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 32"));
    EXPECT_THAT(dhcp_keys(), ElementsAre("200 2 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 32 0"));
}

TEST_F(Dhcpv6, LeaseOnAnotherNetwork_MovesEveryEntry) {
    (void)add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    lease_of(LL, "fd00:3::1975");
    ASSERT_NE(nullptr, handle());
    EXPECT_THAT(ip_keys(), ElementsAre("201 2 16 253 0 0 3 0 0 0 0 0 0 0 0 0 0 25 117",
                                       "201 2 16 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 32"));
    EXPECT_THAT(dhcp_keys(), ElementsAre("201 2 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 32 0"));
    EXPECT_THAT(if_keys(), ElementsAre("201 1"));
    EXPECT_THAT(pri_keys(), IsEmpty());
}

TEST_F(Dhcpv6, Lease_IsLogged) {
    (void)add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(1u, logged_containing("HOSTBASE: hbs_address_to_nwidx address is in nw 0"));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_leasev6_set:BEGIN lease = 1800000000"));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_leasev6_set:END lease_v6_end = 7 235 1 15 8 0 0"));
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got DHCPV6 LEASE event for [02:ab:00:00:00:11] on unknown if: "
                               "index: 0 no IPv4 - fd00:2::1975 - (LL fe80::20) - (laptop) "
                               "|REACH|DYNIP6|ONLINE|"));
}

TEST_F(Dhcpv6, HostName_IsCutAtItsFirstDotInPlace) {
    (void)add_with_ll(MAC_A, LL);
    std::strcpy(lease_.host, "laptop.lan.home");
    ASSERT_NE(nullptr, handle());
    EXPECT_STREQ("laptop", published(MAC_A).host);
    EXPECT_STREQ("laptop", lease_.host);
}

TEST_F(Dhcpv6, EmptyHostName_KeepsTheKnownOne) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    hbs_set_host(client, "known");
    for (const char *name : {"", ".lan", "."}) {
        std::strcpy(lease_.host, name);
        ASSERT_NE(nullptr, handle());
        EXPECT_STREQ("known", published(MAC_A).host) << name;
    }
}

TEST_F(Dhcpv6, Texts_EndInsideTheirFields) {
    (void)add_with_ll(MAC_A, LL);
    fill(lease_.host);
    fill(lease_.oui);
    fill(lease_.serial_number);
    fill(lease_.product_class);
    fill(lease_.lease_file);
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published(MAC_A);
    EXPECT_EQ(std::string(63, 'x'), copy.host);
    EXPECT_EQ(std::string(6, 'x'), copy.oui);
    EXPECT_EQ(std::string(64, 'x'), copy.serial_number);
    EXPECT_EQ(std::string(64, 'x'), copy.product_class);
    EXPECT_EQ(std::string(127, 'x'), copy.lease_file6);
}

TEST_F(Dhcpv6, StartTime_IsTakenOnce) {
    set("uptime", 5000);
    (void)add_with_ll(MAC_A, LL);
    (void)handle();
    set("uptime", 6000);
    (void)handle();
    EXPECT_EQ(5000u, published(MAC_A).lease_start_uptime);
}

TEST_F(Dhcpv6, StartTimeOfANewClient_IsAskedForAtOnceAndAgainWhileItHasNone) {
    constexpr const char *FAILED = "hbs_set_start_time - failed to get system uptime from the kernel\n";
    fail("MAIN_getSysUpTime", -1);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(2u, logged_count(FAILED));
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(3u, logged_count(FAILED));
}

TEST_F(Dhcpv6, StaticLease_HasNoEndAndIsStip6Only) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    hbs_set_flags(client, 0, HBS_FLAG_USRIP6 | HBS_FLAG_STIP4);
    lease_.lease_end = 0;
    strcpy(lease_.lease_file, "other");
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published(MAC_A);
    EXPECT_TRUE(hbs_date_is_zero(copy.lease_v6_end));
    EXPECT_EQ(HBS_FLAG_STIP6, copy.flags & HBS_FLAGS_IP6);
    EXPECT_EQ(HBS_FLAG_STIP4, copy.flags & HBS_FLAGS_IP4);
    EXPECT_STREQ("lease6.20", copy.lease_file6); // a static lease names no file
}

TEST_F(Dhcpv6, LeaseBeyondA32BitClock_EndsNoEarlierThanItsLastYear) {
    add_with_ll(MAC_A, LL);
    lease_.lease_end = 0xfffffff0; // 2106, or 2038-01-19 where time_t ends there
    ASSERT_NE(nullptr, handle());
    const hbs_client copy = published(MAC_A);
    EXPECT_GE(copy.lease_v6_end[0] << 8 | copy.lease_v6_end[1], 2038);
}

TEST_F(Dhcpv6, DynamicLease_IsDynip6Only) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    hbs_set_flags(client, 0, HBS_FLAG_STIP6 | HBS_FLAG_DYNIP6);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(HBS_FLAG_DYNIP6, published(MAC_A).flags & HBS_FLAGS_IP6);
}

TEST_F(Dhcpv6, Lease_StopsTheOnlineTimerAndStartsNone) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    hbs_lease_timer_start(client, HBS_TIMER_ONLINE, 600);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_ONLINE));
    EXPECT_EQ(0, seconds_left(client, HBS_TIMER_LEASE));
    EXPECT_EQ(0u, published(MAC_A).flags &
                      (HBS_FLAG_TIMER_ONLINE | HBS_FLAG_TIMER_LEASE | HBS_FLAG_TIMER_DHCPWAIT));
}

// --- without a link-local address ---

TEST_F(Dhcpv6, LeaseWithoutALinkLocalAddress_IsOfTheClientWithTheGlobalOne) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    ASSERT_EQ(client, handle());
    lease_of("::", GLOBAL);
    strcpy(lease_.serial_number, "SN-7");
    EXPECT_EQ(client, handle());
    EXPECT_STREQ("SN-7", published(MAC_A).serial_number);
    EXPECT_EQ(LL, address_text(published(MAC_A).ll)) << "what is known stays";
    EXPECT_EQ(0, fake::questions) << "nobody has the address ::";
}

TEST_F(Dhcpv6, EqualLeasesWithoutALinkLocalAddress_MakeOneClient) {
    lease_of("::", GLOBAL);
    hbs_client *client = handle();
    ASSERT_NE(nullptr, client);
    for (int i = 1; i < 97; ++i)
        ASSERT_EQ(client, handle());
    EXPECT_EQ(1U, nomac_clients());
    EXPECT_EQ(1U, clients_seen());
    EXPECT_EQ(GLOBAL, address_text(client->ipv6));
}

TEST_F(Dhcpv6, LeaseWithTheLinkLocalAddressLater_IsOfTheSameClient) {
    lease_of("::", GLOBAL);
    hbs_client *client = handle();
    lease_of(LL, GLOBAL);
    EXPECT_EQ(client, handle());
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ(1U, clients_seen());
}

TEST_F(Dhcpv6, LeaseWithTheLinkLocalAddressLater_MergesIntoTheClientOfTheMac) {
    hbs_client *known = hbs_add(mac_of(MAC_A).data());
    hbs_publish(known);
    lease_of("::", GLOBAL);
    EXPECT_TRUE(hbs_is_nomac(handle()));
    fake::neighbour = mac_of(MAC_A);
    lease_of(LL, GLOBAL);
    EXPECT_EQ(known, handle());
    EXPECT_EQ(0U, nomac_clients());
    EXPECT_EQ(1U, clients_seen());
    EXPECT_EQ(GLOBAL, address_text(published(MAC_A).ipv6));
}

TEST_F(Dhcpv6, LeaseWithTheLinkLocalAddressLater_BringsTheMac) {
    lease_of("::", GLOBAL);
    hbs_client *client = handle();
    fake::neighbour = mac_of(MAC_A);
    lease_of(LL, GLOBAL);
    EXPECT_EQ(client, handle());
    EXPECT_EQ(0U, nomac_clients());
    EXPECT_EQ(LL, address_text(published(MAC_A).ll));
}

TEST_F(Dhcpv6, AnotherLinkLocalAddressWithTheSameGlobalOne_IsAnotherClient) {
    hbs_client *client = handle();
    lease_of("fe80::21", GLOBAL);
    EXPECT_NE(client, handle());
}

TEST_F(Dhcpv6, LeaseWithoutAnyAddress_IsDroppedWithALine) {
    lease_of("::", "::");
    clear_log();
    EXPECT_EQ(nullptr, handle());
    EXPECT_EQ(0U, nomac_clients());
    EXPECT_THAT(log_lines(), ElementsAre("HOSTBASE: Got DHCPv6 LEASE event without an address - ignore"));
}

// --- release ---

class Dhcpv6Release : public Dhcpv6 {
  protected:
    static hbs_client *release(const char *mac, const std::string &ll, const std::string &ipv6 = "::") {
        return hbs_handle_dhcpv6_release(mac != nullptr ? mac_of(mac).data() : nullptr, ipv6_of(ll).data(),
                                         ipv6_of(ipv6).data());
    }
};

TEST_F(Dhcpv6Release, EmptiesBothAddressesAndTheirIndexEntries) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(client, release(nullptr, LL));
    EXPECT_EQ("::", address_text(client->ipv6));
    EXPECT_EQ("::", address_text(client->ll));
    EXPECT_THAT(ip_keys(), IsEmpty());
    EXPECT_THAT(dhcp_keys(), IsEmpty());
    EXPECT_THAT(if_keys(), ElementsAre("200 1"));
}

TEST_F(Dhcpv6Release, IsNotPublishedByItself) {
    (void)add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    (void)release(nullptr, LL);
    EXPECT_EQ(GLOBAL, address_text(published(MAC_A).ipv6));
    EXPECT_EQ(LL, address_text(published(MAC_A).ll));
}

TEST_F(Dhcpv6Release, FindsTheClientByItsGlobalAddressToo) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(client, release(MAC_B, GLOBAL));
}

TEST_F(Dhcpv6Release, LeavesFlagsAndIpv4) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE);
    hbs_set_ll(client, ipv6_of(LL).data());
    ASSERT_EQ(client, release(nullptr, LL));
    EXPECT_EQ(HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE, state_of(client));
    EXPECT_EQ("192.168.0.20", text_of(client->ipv4));
}

TEST_F(Dhcpv6Release, OfAnUnknownAddress_IsNone) {
    (void)add_with_ll(MAC_A, LL);
    EXPECT_EQ(nullptr, release(nullptr, "fe80::99"));
    EXPECT_EQ(LL, address_text(published(MAC_A).ll));
}

TEST_F(Dhcpv6Release, WithoutALinkLocalAddress_IsOfTheClientWithTheGlobalOne) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    ASSERT_NE(nullptr, handle());
    EXPECT_EQ(client, release(nullptr, "::", GLOBAL));
    EXPECT_EQ("::", address_text(client->ipv6));
}

TEST_F(Dhcpv6Release, OfNoAddress_IsDroppedWithALine) {
    (void)published_client(MAC_A, "192.168.0.20", 0); // has no IPv6 address
    clear_log();
    EXPECT_EQ(nullptr, release(nullptr, "::"));
    EXPECT_THAT(log_lines(), ElementsAre("HOSTBASE: Got DHCPv6 RELEASE event without an address - ignore"));
}

TEST_F(Dhcpv6Release, OnAMacOfTheGateway_IsNone) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    EXPECT_EQ(nullptr, release(MAC_OWN, LL));
    EXPECT_EQ(LL, address_text(client->ll));
}

// The record that such a release leaves is found by nobody: the next lease does not leave another one.
TEST_F(Dhcpv6Release, OfANomacClient_OverAndOver_LeavesOneRecord) {
    for (int i = 0; i < 200; ++i) {
        ASSERT_NE(nullptr, handle()) << i;
        ASSERT_NE(nullptr, release(nullptr, LL)) << i;
        ASSERT_EQ(1U, nomac_clients());
        ASSERT_EQ(1U, clients_seen());
    }
}

// It must not keep its slot from others.
TEST_F(Dhcpv6Release, OfNomacClients_LeavesRoomForOthers) {
    for (unsigned n = 1; n <= HBS_MAX_CLIENTS; ++n) {
        const std::string number = std::to_string(n);
        lease_of("fe80::" + number, "fd00:2::" + number);
        ASSERT_NE(nullptr, handle());
    }
    for (unsigned n = 1; n <= HBS_MAX_CLIENTS; ++n)
        ASSERT_NE(nullptr, release(nullptr, "fe80::" + std::to_string(n)));
    ASSERT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), clients_seen());
    for (unsigned n = 1; n <= HBS_MAX_CLIENTS; ++n) {
        const std::string mac =
            "02:ac:00:00:00:" + std::string(1, "0123456789abcdef"[n / 16]) + "0123456789abcdef"[n % 16];
        (void)published_client(mac, "192.168.0." + std::to_string(n), HBS_FLAG_ONLINE);
        EXPECT_TRUE(seen(mac).has_value()) << mac;
    }
    EXPECT_EQ(0U, nomac_clients()) << "their working copies are gone too";
}

TEST_F(Dhcpv6Release, OfANomacClient_EmptiesIt) {
    hbs_client *client = handle();
    ASSERT_TRUE(hbs_is_nomac(client));
    EXPECT_EQ(client, release(nullptr, LL));
    EXPECT_THAT(ip_keys(), IsEmpty());
}

} // namespace
