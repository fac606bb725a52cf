// Which LAN network an address, an interface or an SSID belongs to.
#include <array>
#include <cstring>
#include <net/if.h>
#include <sys/socket.h>
#include <vector>

#include "gateway/networks.h"
#include "support/gateway.h"

namespace networks_test {

using Ipv4 = std::array<uint8_t, 4>;
using Ipv6 = std::array<uint8_t, 16>;

constexpr Ipv6 IN_FIRST_PREFIX = {0xfd, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0x0a, 0xbc, 0x19, 0x75};

// The box's loopback stands in for a LAN interface that the kernel knows; l2sd0.* do not exist here.
class Networks : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_rnd_status = -1;
        hbs_lsd_status = -1;
        loopback_ = if_nametoindex("lo");
        ASSERT_NE(0u, loopback_);
    }

    uint32_t loopback_ = 0;
};

int nwidx_of(const Ipv4 &address) {
    return hbs_address_to_nwidx(AF_INET, address.data());
}

bool collect(const rnddb_params *entry, void *context) {
    static_cast<std::vector<int> *>(context)->push_back(entry->rndidx);
    return true;
}

bool stop_at_first(const rnddb_params *, void *context) {
    ++*static_cast<int *>(context);
    return false;
}

// --- addresses ---

TEST_F(Networks, AddressInASubnetGivesItsNetworkAndIsLogged) {
    EXPECT_EQ(0, nwidx_of({192, 168, 0, 77}));
    EXPECT_TRUE(logged("HOSTBASE: hbs_address_to_nwidx address is in nw 0 : address 192.168.0.77"));
    EXPECT_EQ(1, nwidx_of({192, 168, 1, 9}));
    EXPECT_TRUE(logged("HOSTBASE: hbs_address_to_nwidx address is in nw 1 : address 192.168.1.9"));
}

TEST_F(Networks, AddressInNoSubnetGivesMinusOneAndIsStillLogged) {
    EXPECT_EQ(-1, nwidx_of({10, 0, 0, 1}));
    EXPECT_TRUE(logged("HOSTBASE: hbs_address_to_nwidx address is in nw -1 : address 10.0.0.1"));
}

TEST_F(Networks, AddressInTwoSubnetsGivesTheEarlierEntry) {
    set("network.1.ipv4", "192.168.1.1/16");
    EXPECT_EQ(0, nwidx_of({192, 168, 1, 9}));
    set("network.1.ipv4", "192.168.0.1/24");
    set("network.2.ipv4", "192.168.1.1/16");
    hbs_rnd_status = -1;
    EXPECT_EQ(0, nwidx_of({192, 168, 0, 9}));
}

TEST_F(Networks, Ipv6AddressIsLoggedWithoutTheLeadingZerosOfItsBytes) {
    EXPECT_EQ(0, hbs_address_to_nwidx(AF_INET6, IN_FIRST_PREFIX.data()));
    EXPECT_TRUE(
        logged("HOSTBASE: hbs_address_to_nwidx address is in nw 0 : address fd0:02:00:00:00:00:abc:1975"));
}

TEST_F(Networks, Ipv6AddressOfNoNetworkGivesMinusOne) {
    Ipv6 other = IN_FIRST_PREFIX;
    other[3] = 9;
    EXPECT_EQ(-1, hbs_address_to_nwidx(AF_INET6, other.data()));
    EXPECT_TRUE(
        logged("HOSTBASE: hbs_address_to_nwidx address is in nw -1 : address fd0:09:00:00:00:00:abc:1975"));
}

TEST_F(Networks, AddressOfAnotherFamilyIsInNoNetworkAndLoggedWithoutIt) {
    EXPECT_EQ(-1, hbs_address_to_nwidx(AF_UNIX, IN_FIRST_PREFIX.data()));
    EXPECT_TRUE(logged("HOSTBASE: hbs_address_to_nwidx address is in nw -1"));
}

// --- loading ---

TEST_F(Networks, UnreadableRouterDatabaseMakesEveryLookUpMinusOne) {
    fail("RNDDB_Read", 5);
    EXPECT_EQ(-1, nwidx_of({192, 168, 0, 77}));
    EXPECT_EQ(5, hbs_rnd_status);
    EXPECT_EQ(-1, hbs_ifindex_to_nwidx(loopback_));
    EXPECT_EQ(-1, hbs_ifname_to_ifindex("l2sd0.2"));
    EXPECT_EQ(0u, logged_containing("hbs_address_to_nwidx"));
}

TEST_F(Networks, FailedReadIsRetriedAtTheNextLookUp) {
    fail("RNDDB_Read", 5);
    EXPECT_EQ(-1, nwidx_of({192, 168, 0, 77}));
    succeed("RNDDB_Read");
    EXPECT_EQ(0, nwidx_of({192, 168, 0, 77}));
    EXPECT_EQ(0, hbs_rnd_status);
}

TEST_F(Networks, LoadedDatabaseIsNotReadAgain) {
    ASSERT_EQ(0, nwidx_of({192, 168, 0, 77}));
    fail("RNDDB_Read", 5);
    EXPECT_EQ(0, nwidx_of({192, 168, 0, 77}));
    EXPECT_EQ(0, hbs_rnd_status);
}

// --- interfaces ---

TEST_F(Networks, InterfaceIndexGivesTheFirstEntryThatHasIt) {
    set("network.2.ifname", "lo");
    EXPECT_EQ(1, hbs_ifindex_to_nwidx(loopback_));
    set("network.1.ifname", "lo");
    hbs_rnd_status = -1;
    EXPECT_EQ(0, hbs_ifindex_to_nwidx(loopback_));
}

TEST_F(Networks, UnknownInterfaceIndexGivesMinusOne) {
    EXPECT_EQ(-1, hbs_ifindex_to_nwidx(loopback_ + 1000));
}

TEST_F(Networks, InterfaceNameGivesTheKernelsIndex) {
    set("network.2.ifname", "lo");
    EXPECT_EQ(static_cast<int>(loopback_), hbs_ifname_to_ifindex("lo"));
}

TEST_F(Networks, InterfaceNameIsComparedExactly) {
    set("network.2.ifname", "lo");
    EXPECT_EQ(-1, hbs_ifname_to_ifindex("l"));
    EXPECT_EQ(-1, hbs_ifname_to_ifindex("lo.1"));
    EXPECT_EQ(-1, hbs_ifname_to_ifindex(""));
}

TEST_F(Networks, InterfaceOfNoEntryGivesMinusOneAlthoughTheKernelHasIt) {
    EXPECT_EQ(-1, hbs_ifname_to_ifindex("lo"));
}

TEST_F(Networks, InterfaceIndexZeroIsNoInterfaceOfAnEntry) {
    set("network.1.ifname", "nosuch0"); // the kernel's answer for it is 0
    EXPECT_EQ(-1, hbs_ifindex_to_nwidx(0));
}

TEST_F(Networks, InterfaceOfAnEntryThatTheKernelDoesNotHaveGivesZero) {
    set("network.1.ifname", "nosuch0");
    EXPECT_EQ(0, hbs_ifname_to_ifindex("nosuch0"));
}

// --- SSIDs ---

TEST_F(Networks, SsidGivesItsLanGroupMinusOne) {
    EXPECT_EQ(0, hbs_ssid_to_nwidx(1));
    EXPECT_EQ(1, hbs_ssid_to_nwidx(2));
}

TEST_F(Networks, UnknownSsidGivesMinusOne) {
    EXPECT_EQ(-1, hbs_ssid_to_nwidx(0));
    EXPECT_EQ(-1, hbs_ssid_to_nwidx(16));
}

TEST_F(Networks, UnreadableLanDatabaseMakesTheSsidMinusOneAndIsRetried) {
    fail("LSDDB_Read", 7);
    EXPECT_EQ(-1, hbs_ssid_to_nwidx(1));
    EXPECT_EQ(7, hbs_lsd_status);
    succeed("LSDDB_Read");
    EXPECT_EQ(0, hbs_ssid_to_nwidx(1));
    EXPECT_EQ(0, hbs_lsd_status);
}

TEST_F(Networks, LanDatabaseIsNeededForSsidsOnly) {
    fail("LSDDB_Read", 7);
    EXPECT_EQ(0, nwidx_of({192, 168, 0, 77}));
    fail("RNDDB_Read", 5);
    succeed("LSDDB_Read");
    EXPECT_EQ(1, hbs_ssid_to_nwidx(2));
}

// --- entries ---

TEST_F(Networks, PresetHasTheLibrarysDefaults) {
    rnddb_params entry;
    std::memset(&entry, 0xff, sizeof(entry));
    hbs_rnd_preset(&entry);
    EXPECT_EQ(-1, entry.rndidx);
    EXPECT_EQ(604800u, entry.lease_time);
    EXPECT_EQ(604800u, entry.rebind_time);
    EXPECT_EQ(512u, entry.max_leases);
    EXPECT_EQ(5u, entry.decline_limit);
    EXPECT_EQ(64u, entry.offer_window);
    EXPECT_EQ(3600u, entry.renew_interval);
    EXPECT_STREQ("QUARN", entry.vendor);
    EXPECT_STREQ("", entry.ifname);
    EXPECT_EQ(0u, entry.prefix_length);
}

TEST_F(Networks, EntryIsFoundByItsNumber) {
    ASSERT_TRUE(hbs_rnd_load());
    rnddb_params entry;
    ASSERT_EQ(0, hbs_rnd_find(2, &entry));
    EXPECT_EQ(2, entry.rndidx);
    EXPECT_STREQ("l2sd0.3", entry.ifname);
    constexpr uint8_t address[] = {192, 168, 1, 1};
    constexpr uint8_t pool_end[] = {192, 168, 1, 200};
    EXPECT_EQ(0, std::memcmp(entry.ipv4, address, sizeof(address)));
    EXPECT_EQ(24u, entry.prefix_length);
    EXPECT_EQ(0, std::memcmp(entry.pool_end, pool_end, sizeof(pool_end)));
    EXPECT_EQ(-1, hbs_rnd_find(0, &entry));
    EXPECT_EQ(-1, hbs_rnd_find(3, &entry));
    EXPECT_EQ(-1, hbs_rnd_find(-1, &entry));
}

TEST_F(Networks, WalkGoesThroughTheEntriesInOrder) {
    ASSERT_TRUE(hbs_rnd_load());
    std::vector<int> seen;
    EXPECT_TRUE(hbs_rnd_walk(collect, &seen));
    EXPECT_EQ((std::vector<int>{1, 2}), seen);
}

TEST_F(Networks, WalkEndsWhenItsVisitorSaysSo) {
    ASSERT_TRUE(hbs_rnd_load());
    int visits = 0;
    EXPECT_FALSE(hbs_rnd_walk(stop_at_first, &visits));
    EXPECT_EQ(1, visits);
}

TEST_F(Networks, WalkThatFailsHalfWayKeepsWhatItFound) {
    ASSERT_TRUE(hbs_rnd_load());
    fail("RNDDB_GetNextHandleParams", -1);
    EXPECT_EQ(0, nwidx_of({192, 168, 0, 77}));
    EXPECT_EQ(-1, nwidx_of({192, 168, 1, 9}));
}

} // namespace networks_test
