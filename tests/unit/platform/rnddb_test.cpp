// The router database: what a read takes over, the walk, and the getters.
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include <rnddb.h>

#include "support/gateway.h"

namespace rnddb_test {

using Ipv4 = std::array<uint8_t, 4>;

Ipv4 ipv4(const uint8_t *bytes) {
    return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

std::vector<rnddb_params> walk(const rnddb_params &preset = {}) {
    std::vector<rnddb_params> entries;
    rnddb_handle handle = {};
    rnddb_params params = preset;
    int result = RNDDB_Get1stHandleParams(&handle, &params);
    while (result == 0) {
        entries.push_back(params);
        params = preset;
        result = RNDDB_GetNextHandleParams(&handle, &params);
    }
    EXPECT_EQ(1, result);
    return entries;
}

int subnet(const rnddb_params &entry, int family, const char *text, uint32_t *prefix = nullptr) {
    uint8_t address[16] = {};
    EXPECT_EQ(1, inet_pton(family, text, address));
    return RNDDB_GetSubnetForAddress(&entry, family, address, prefix);
}

class RouterDatabase : public GatewayTest {};

TEST_F(RouterDatabase, GivesNothingBeforeARead) {
    rnddb_handle handle = {};
    rnddb_params params = {};
    params.rndidx = -1;
    int value = 7;
    uint8_t address[4] = {9};
    EXPECT_EQ(-1, RNDDB_Get1stHandleParams(&handle, &params));
    EXPECT_EQ(-1, RNDDB_GetNextHandleParams(&handle, &params));
    EXPECT_EQ(-1, params.rndidx);
    EXPECT_EQ(-1, RNDDB_boolGetWithKeyAndIndex(1, "Routed", &value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(-1, RNDDB_inet4AddrGetWithKeyAndIndex("address_1", 1, address));
    EXPECT_EQ(9, address[0]);
}

TEST_F(RouterDatabase, WalksAllEntries) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    auto entries = walk();
    ASSERT_EQ(2u, entries.size());
    const rnddb_params &first = entries[0];
    EXPECT_EQ(1, first.rndidx);
    EXPECT_STREQ("l2sd0.2", first.ifname);
    EXPECT_EQ((Ipv4{192, 168, 0, 1}), ipv4(first.ipv4));
    EXPECT_EQ(24u, first.prefix_length);
    EXPECT_EQ((Ipv4{192, 168, 0, 10}), ipv4(first.pool_start));
    EXPECT_EQ((Ipv4{192, 168, 0, 200}), ipv4(first.pool_end));
    EXPECT_EQ(1, first.ipv6_enabled);
    const uint8_t prefix[8] = {0xfd, 0, 0, 2, 0, 0, 0, 0};
    EXPECT_EQ(0, memcmp(prefix, first.ipv6_prefix, 8));
    EXPECT_EQ(2u, first.lan_number);
    EXPECT_EQ(3600u, first.lease_time);
    EXPECT_EQ(2, entries[1].rndidx);
    EXPECT_STREQ("l2sd0.3", entries[1].ifname);
    EXPECT_EQ(3u, entries[1].lan_number);
}

TEST_F(RouterDatabase, WalksInOrderAndKeepsTheNumbersOfAGap) {
    unset("network.1.ifname");
    set("network.8.ifname", "l2sd0.9");
    set("network.9.ifname", "l2sd0.10");
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    auto entries = walk();
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(2, entries[0].rndidx);
    EXPECT_EQ(8, entries[1].rndidx);
    EXPECT_EQ(9u, entries[1].lan_number) << "n + 1 when the file does not say";
}

TEST_F(RouterDatabase, KeepsThePresetOfFieldsThatAreNotGiven) {
    unset("network.1.lease_time");
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    rnddb_params preset = {};
    preset.rndidx = -1;
    preset.lease_time = 604800;
    preset.rebind_time = 604800;
    preset.max_leases = 512;
    preset.decline_limit = 5;
    preset.offer_window = 64;
    preset.renew_interval = 3600;
    strcpy(preset.vendor, "QUARN");
    auto entries = walk(preset);
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ(604800u, entries[0].lease_time);
    EXPECT_EQ(3600u, entries[1].lease_time);
    EXPECT_EQ(604800u, entries[0].rebind_time);
    EXPECT_EQ(512u, entries[0].max_leases);
    EXPECT_EQ(5u, entries[0].decline_limit);
    EXPECT_EQ(64u, entries[0].offer_window);
    EXPECT_EQ(3600u, entries[0].renew_interval);
    EXPECT_STREQ("QUARN", entries[0].vendor);
}

TEST_F(RouterDatabase, LeavesParamsAloneAtTheEnd) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    rnddb_handle handle = {2};
    rnddb_params params = {};
    params.rndidx = -1;
    EXPECT_EQ(1, RNDDB_GetNextHandleParams(&handle, &params));
    EXPECT_EQ(-1, params.rndidx);
    handle.position = -5;
    EXPECT_EQ(-1, RNDDB_GetNextHandleParams(&handle, &params));
    EXPECT_EQ(-1, RNDDB_GetNextHandleParams(nullptr, &params));
    EXPECT_EQ(-1, RNDDB_Get1stHandleParams(&handle, nullptr));
}

TEST_F(RouterDatabase, ContentsChangeOnlyWithARead) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    set("network.1.ifname", "changed");
    set("network.1.routed", 0);
    int routed = -1;
    EXPECT_STREQ("l2sd0.2", walk()[0].ifname);
    ASSERT_EQ(0, RNDDB_boolGetWithKeyAndIndex(1, "Routed", &routed));
    EXPECT_EQ(1, routed);
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    EXPECT_STREQ("changed", walk()[0].ifname);
    ASSERT_EQ(0, RNDDB_boolGetWithKeyAndIndex(1, "Routed", &routed));
    EXPECT_EQ(0, routed);
}

TEST_F(RouterDatabase, AFailedReadChangesNothingAndMayBeTriedAgain) {
    fail("RNDDB_Read", 5);
    EXPECT_EQ(5, RNDDB_Read(0, 1));
    rnddb_handle handle = {};
    rnddb_params params = {};
    EXPECT_EQ(-1, RNDDB_Get1stHandleParams(&handle, &params));
    succeed("RNDDB_Read");
    EXPECT_EQ(0, RNDDB_Read(0, 1));
    fail("RNDDB_Read", 5);
    set("network.1.ifname", "changed");
    EXPECT_EQ(5, RNDDB_Read(0, 1));
    EXPECT_STREQ("l2sd0.2", walk()[0].ifname);
}

TEST_F(RouterDatabase, AFileWithoutANetworkIsNoDatabase) {
    write_values("");
    EXPECT_EQ(ENOENT, RNDDB_Read(0, 1));
}

struct BadValue {
    const char *key;
    const char *value;
};

void PrintTo(const BadValue &bad, std::ostream *out) {
    *out << bad.key << " = " << bad.value;
}

class RouterDatabaseRefuses : public GatewayTest, public testing::WithParamInterface<BadValue> {};

TEST_P(RouterDatabaseRefuses, AValueThatItCannotUnderstand) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    set(GetParam().key, std::string(GetParam().value));
    EXPECT_EQ(EINVAL, RNDDB_Read(0, 1));
    EXPECT_EQ(2u, walk().size());
}

INSTANTIATE_TEST_SUITE_P(
    Values, RouterDatabaseRefuses,
    testing::Values(BadValue{"network.1.ifname", ""}, BadValue{"network.1.ifname", "sixteen-letters-"},
                    BadValue{"network.1.ipv4", "192.168.0.1"}, BadValue{"network.1.ipv4", "192.168.0.1/33"},
                    BadValue{"network.1.ipv4", "192.168.0/24"}, BadValue{"network.1.ipv4", "192.168.0.1/"},
                    BadValue{"network.1.pool", "192.168.0.10"}, BadValue{"network.1.pool", "192.168.0.10 x"},
                    BadValue{"network.1.pool", "192.168.0.1 192.168.0.2 192.168.0.3"},
                    BadValue{"network.1.ipv6", "fd00:2::/48"}, BadValue{"network.1.ipv6", "fd00:2::"},
                    BadValue{"network.1.ipv6", "fd00:2/64"}, BadValue{"network.1.lan", "two"},
                    BadValue{"network.1.routed", "2"}, BadValue{"network.1.lease_time", "-1"}));

TEST_F(RouterDatabase, GivesTheTextOfThePrimaryAddress) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    auto entry = walk()[0];
    char text[128] = "untouched";
    EXPECT_EQ(-1, RNDDB_GetAddress(&entry, 2, text, sizeof text));
    EXPECT_EQ(-1, RNDDB_GetAddress(&entry, 0, text, sizeof text));
    EXPECT_EQ(-1, RNDDB_GetAddress(&entry, 1, text, 14));
    EXPECT_STREQ("untouched", text);
    EXPECT_EQ(0, RNDDB_GetAddress(&entry, 1, text, 15));
    EXPECT_STREQ("192.168.0.1/24", text);
    const uint8_t other[4] = {10, 99, 100, 255};
    memcpy(entry.ipv4, other, sizeof other);
    entry.prefix_length = 8;
    EXPECT_EQ(0, RNDDB_GetAddress(&entry, 1, text, sizeof text));
    EXPECT_STREQ("10.99.100.255/8", text);
    memset(entry.ipv4, 0, 4);
    EXPECT_EQ(-1, RNDDB_GetAddress(&entry, 1, text, sizeof text));
}

TEST_F(RouterDatabase, TellsWhetherAnAddressIsInTheSubnet) {
    set("network.2.ipv4", "10.1.2.3/20");
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    auto entries = walk();
    uint32_t prefix = 0;
    EXPECT_EQ(0, subnet(entries[0], AF_INET, "192.168.0.255", &prefix));
    EXPECT_EQ(24u, prefix);
    EXPECT_EQ(0, subnet(entries[0], AF_INET, "192.168.0.0"));
    EXPECT_EQ(-1, subnet(entries[0], AF_INET, "192.168.1.1"));
    EXPECT_EQ(0, subnet(entries[1], AF_INET, "10.1.15.255", &prefix));
    EXPECT_EQ(20u, prefix);
    EXPECT_EQ(-1, subnet(entries[1], AF_INET, "10.1.16.0"));
    EXPECT_EQ(0, subnet(entries[0], AF_INET6, "fd00:2::1:2:3:4", &prefix));
    EXPECT_EQ(64u, prefix);
    EXPECT_EQ(-1, subnet(entries[0], AF_INET6, "fd00:2:0:1::1"));
    EXPECT_EQ(-1, subnet(entries[0], AF_INET6, "fe80::1")) << "link-local addresses name no network";
    EXPECT_EQ(-1, RNDDB_GetSubnetForAddress(&entries[0], 99, entries[0].ipv4, nullptr));
    EXPECT_EQ(-1, RNDDB_GetSubnetForAddress(&entries[0], AF_INET, nullptr, nullptr));
}

TEST_F(RouterDatabase, ANetworkWithoutAddressesHasNoSubnet) {
    unset("network.1.ipv4");
    unset("network.1.ipv6");
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    auto entry = walk()[0];
    EXPECT_EQ(0, entry.ipv6_enabled);
    EXPECT_EQ(-1, subnet(entry, AF_INET, "0.0.0.0"));
    EXPECT_EQ(-1, subnet(entry, AF_INET6, "::"));
    uint8_t address[4] = {9};
    EXPECT_EQ(-1, RNDDB_inet4AddrGetWithKeyAndIndex("address_1", 1, address));
    EXPECT_EQ(9, address[0]);
}

TEST_F(RouterDatabase, GivesValuesByKeyAndIndex) {
    set("network.2.routed", 0);
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    int routed = -1;
    EXPECT_EQ(0, RNDDB_boolGetWithKeyAndIndex(2, "Routed", &routed));
    EXPECT_EQ(0, routed);
    EXPECT_EQ(-1, RNDDB_boolGetWithKeyAndIndex(3, "Routed", &routed));
    EXPECT_EQ(-1, RNDDB_boolGetWithKeyAndIndex(1, "routed", &routed));
    uint8_t address[4];
    EXPECT_EQ(0, RNDDB_inet4AddrGetWithKeyAndIndex("address_1", 2, address));
    EXPECT_EQ((Ipv4{192, 168, 1, 1}), ipv4(address));
    EXPECT_EQ(0, RNDDB_inet4AddrGetWithKeyAndIndex("dhcpv4startaddress", 2, address));
    EXPECT_EQ((Ipv4{192, 168, 1, 10}), ipv4(address));
    EXPECT_EQ(0, RNDDB_inet4AddrGetWithKeyAndIndex("dhcpv4endaddress", 2, address));
    EXPECT_EQ((Ipv4{192, 168, 1, 200}), ipv4(address));
    EXPECT_EQ(-1, RNDDB_inet4AddrGetWithKeyAndIndex("address_2", 2, address));
    EXPECT_EQ(-1, RNDDB_inet4AddrGetWithKeyAndIndex("address_1", 0, address));
    EXPECT_EQ((Ipv4{192, 168, 1, 200}), ipv4(address));
}

TEST_F(RouterDatabase, EveryCallCanFail) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    auto entry = walk()[0];
    for (const char *call :
         {"RNDDB_Get1stHandleParams", "RNDDB_GetNextHandleParams", "RNDDB_GetAddress",
          "RNDDB_GetSubnetForAddress", "RNDDB_boolGetWithKeyAndIndex", "RNDDB_inet4AddrGetWithKeyAndIndex"})
        fail(call, -1);
    rnddb_handle handle = {};
    rnddb_params params = {};
    char text[128];
    int routed = 0;
    uint8_t address[4];
    EXPECT_EQ(-1, RNDDB_Get1stHandleParams(&handle, &params));
    EXPECT_EQ(-1, RNDDB_GetNextHandleParams(&handle, &params));
    EXPECT_EQ(-1, RNDDB_GetAddress(&entry, 1, text, sizeof text));
    EXPECT_EQ(-1, subnet(entry, AF_INET, "192.168.0.9"));
    EXPECT_EQ(-1, RNDDB_boolGetWithKeyAndIndex(1, "Routed", &routed));
    EXPECT_EQ(-1, RNDDB_inet4AddrGetWithKeyAndIndex("address_1", 1, address));
}

TEST_F(RouterDatabase, CanBeWalkedWhileItIsReadAgain) {
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    std::atomic<bool> stop = false;
    std::thread reader([&] {
        while (!stop)
            (void)RNDDB_Read(0, 1);
    });
    for (int i = 0; i < 2000; i++)
        ASSERT_EQ(2u, walk().size());
    stop = true;
    reader.join();
}

} // namespace rnddb_test
