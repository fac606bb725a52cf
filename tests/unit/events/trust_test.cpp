// The devices that users trust.
#include <cstring>
#include <string>

#include "base/paths.h"
#include "support/management.h"

namespace trust_test {

using ManagementTrust = ManagementTest;

constexpr const char *ADDRESS = "192.168.0.11";
constexpr const char *ADDRESS6 = "fd00:2::11";

TEST_F(ManagementTrust, OfAnUnknownMac_AddsAClientInNetworkZeroPublishedAndPersisted) {
    EXPECT_EQ(0, trust(LAPTOP, "mine"));
    const hbs_client *client = client_of(LAPTOP);
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(0, client->nwidx);
    EXPECT_EQ(HBS_TRUST_SITE, client->trust);
    ASSERT_TRUE(seen(LAPTOP));
    EXPECT_EQ(HBS_TRUST_SITE, seen(LAPTOP)->trust);
    EXPECT_STREQ("mine", seen(LAPTOP)->comment);
    EXPECT_EQ(std::vector<std::string>{"200 1"}, if_keys());
    const Persisted expected{.mac = LAPTOP, .comment = "mine", .trust = HBS_TRUST_SITE};
    EXPECT_EQ(" version 1\n" + expected.line() + "\n", client_file());
}

TEST_F(ManagementTrust, OfAKnownClient_KeepsItsNetworkAndItsOtherBits) {
    published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4, 1)->trust = HBS_TRUST_BLACK;
    EXPECT_EQ(0, trust(LAPTOP));
    EXPECT_EQ(1, seen(LAPTOP)->nwidx);
    EXPECT_EQ(HBS_TRUST_BLACK | HBS_TRUST_SITE, seen(LAPTOP)->trust);
    EXPECT_EQ(1u, working_clients());
}

TEST_F(ManagementTrust, NamesWhatItDoesByKind) {
    const struct {
        int kind;
        bool enable;
        const char *message;
        uint32_t trust_after;
    } rows[] = {
        {1, true, "HOSTBASE: hbs_api_set_trust : enable - site", HBS_TRUST_SITE},
        {2, true, "HOSTBASE: hbs_api_set_trust : enable - service", HBS_TRUST_SITE | HBS_TRUST_SERV},
        {0, true, "HOSTBASE: hbs_api_set_trust : enable - unknown", HBS_TRUST_SITE | HBS_TRUST_SERV},
        {3, true, "HOSTBASE: hbs_api_set_trust : enable - unknown", HBS_TRUST_SITE | HBS_TRUST_SERV},
        {255, false, "HOSTBASE: hbs_api_set_trust : disable - unknown", HBS_TRUST_SITE | HBS_TRUST_SERV},
        {1, false, "HOSTBASE: hbs_api_set_trust : disable - site", HBS_TRUST_SERV},
        {2, false, "HOSTBASE: hbs_api_set_trust : disable - service", 0},
    };
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    for (const auto &row : rows) {
        clear_log();
        EXPECT_EQ(0, hbs_api_set_trust(row.kind, row.enable, "", client)) << row.message;
        EXPECT_TRUE(logged(row.message)) << row.message;
        EXPECT_EQ(1u, logged_containing("hbs_api_set_trust")) << row.message;
        EXPECT_EQ(row.trust_after, client->trust) << row.message;
        EXPECT_EQ(row.trust_after, seen(LAPTOP)->trust) << row.message;
    }
}

TEST_F(ManagementTrust, TakesANonEmptyCommentOnlyWhenItEnables) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    EXPECT_EQ(0, hbs_api_set_trust(1, true, "first", client));
    EXPECT_EQ(0, hbs_api_set_trust(1, true, "", client));
    EXPECT_STREQ("first", client->comment);
    EXPECT_EQ(0, hbs_api_set_trust(9, true, "of an unknown kind", client));
    EXPECT_STREQ("of an unknown kind", client->comment);
    EXPECT_EQ(0, hbs_api_set_trust(1, false, "not taken", client));
    EXPECT_STREQ("of an unknown kind", client->comment);
}

TEST_F(ManagementTrust, WithoutAClient_IsRefusedAndChangesNothing) {
    EXPECT_EQ(-1, hbs_api_set_trust(1, true, "x", nullptr));
    EXPECT_EQ(-1, hbs_api_set_trust(1, false, "", nullptr));
    EXPECT_EQ(-1, distrust(LAPTOP));
    EXPECT_EQ(-1, hbs_api_trust_by_ipv4(1, true, ipv4_of(ADDRESS).data(), "x"));
    EXPECT_EQ(-1, hbs_api_trust_by_ipv4(1, false, ipv4_of(ADDRESS).data(), ""));
    EXPECT_EQ(-1, hbs_api_trust_by_ipv6(1, true, ipv6_of(ADDRESS6).data(), "x"));
    EXPECT_EQ(-1, hbs_api_trust_by_ipv6(1, false, ipv6_of(ADDRESS6).data(), ""));
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(" version 1\n", client_file());
    EXPECT_FALSE(file_exists(HBS_TRUSTED_INSTANCES));
}

TEST_F(ManagementTrust, FindsTheClientByEachOfItsAddresses) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    hbs_set_ipv6(client, ipv6_of(ADDRESS6).data());
    hbs_set_ll(client, ipv6_of("fe80::11").data());
    EXPECT_EQ(0, hbs_api_trust_by_ipv4(1, true, ipv4_of(ADDRESS).data(), ""));
    EXPECT_EQ(HBS_TRUST_SITE, client->trust);
    EXPECT_EQ(0, hbs_api_trust_by_ipv6(2, true, ipv6_of(ADDRESS6).data(), ""));
    EXPECT_EQ(HBS_TRUST_SITE | HBS_TRUST_SERV, client->trust);
    EXPECT_EQ(0, hbs_api_trust_by_ipv6(1, false, ipv6_of("fe80::11").data(), ""));
    EXPECT_EQ(HBS_TRUST_SERV, client->trust);
    EXPECT_EQ(0, hbs_api_trust_by_ipv4(2, false, ipv4_of(ADDRESS).data(), ""));
    EXPECT_EQ(0u, client->trust);
}

TEST_F(ManagementTrust, KeepsTheLineWhileAnyBitIsSetAndDropsItWithTheLast) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    EXPECT_EQ(0, trust(TABLET));
    EXPECT_EQ(0, hbs_api_set_trust(1, true, "", client));
    EXPECT_EQ(0, hbs_api_set_trust(2, true, "", client));
    EXPECT_EQ(0, hbs_api_set_trust(1, false, "", client));
    const std::string line = Persisted{.mac = LAPTOP, .trust = HBS_TRUST_SERV}.line();
    EXPECT_EQ(std::vector<std::string>{line}, lines_of(LAPTOP));
    EXPECT_EQ(0, hbs_api_set_trust(2, false, "", client));
    EXPECT_TRUE(lines_of(LAPTOP).empty());
    EXPECT_EQ(1u, lines_of(TABLET).size());
}

TEST_F(ManagementTrust, KeepsTheRecordOfItsInstance) {
    EXPECT_EQ(0, trust(LAPTOP));
    EXPECT_EQ(0, instance_of(LAPTOP)) << "a new record has no number yet";
    hbs_trusted_device numbered{};
    const Mac mac = mac_of(LAPTOP);
    memcpy(numbered.mac, mac.data(), mac.size());
    numbered.instance = 7;
    EXPECT_EQ(0, hbs_nv_set_trusted_tr69_instance(&numbered)); // as the agent does
    EXPECT_EQ(0, hbs_api_set_trust(2, true, "", client_of(LAPTOP)));
    EXPECT_EQ(7, instance_of(LAPTOP));
    EXPECT_EQ(37u, read_file(HBS_TRUSTED_INSTANCES).size());
}

TEST_F(ManagementTrust, KeepsARecordThatHasNoInstance) {
    const auto number = [](uint32_t value) {
        return std::string(reinterpret_cast<const char *>(&value), sizeof value);
    };
    const std::string mac("\x02\xaa\0\0\0\x11", 6);
    const std::string items = "name:" + number(3) + "abc" + "mac:" + number(6) + mac + std::string(1, '\0');
    const std::string record = number(static_cast<uint32_t>(items.size())) + items;
    write_file(HBS_TRUSTED_INSTANCES, record);
    EXPECT_EQ(0, trust(LAPTOP));
    EXPECT_EQ(record, read_file(HBS_TRUSTED_INSTANCES));
}

TEST_F(ManagementTrust, TakenBack_DropsTheRecordAlsoWhenAnotherBitRemains) {
    EXPECT_EQ(0, trust(LAPTOP));
    EXPECT_EQ(0, trust(TABLET));
    EXPECT_EQ(0, hbs_api_set_trust(2, true, "", client_of(LAPTOP)));
    EXPECT_EQ(0, distrust(LAPTOP));
    EXPECT_EQ(-1, instance_of(LAPTOP));
    EXPECT_EQ(0, instance_of(TABLET));
}

TEST_F(ManagementTrust, WhenNoWorkingCopyIsLeft_IsRefused) {
    for (int i = 0; i < HBS_MAX_WORKING; ++i) {
        const uint8_t mac[6] = {0x02, 0xcc, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        hbs_client *client = hbs_add(mac);
        ASSERT_NE(nullptr, client);
        client->flags = HBS_FLAG_ONLINE; // so that it does not make room
    }
    EXPECT_EQ(-1, trust(LAPTOP));
    const hbs_filter_request request = filter(HBS_LIST_WHITE, LAPTOP);
    EXPECT_EQ(-1, hbs_api_set_mac_filter(&request));
    EXPECT_EQ(" version 1\n", client_file());
}

TEST_F(ManagementTrust, WhenTheDatabaseIsFullOfRememberedClients_IsKeptInMemoryAndOnFile) {
    for (int i = 0; i < HBS_MAX_CLIENTS; ++i) {
        const Mac mac = {0x02, 0xbb, 0, 0, 0, static_cast<uint8_t>(i)};
        ASSERT_EQ(0, hbs_api_trust_by_mac(1, true, mac.data(), ""));
    }
    EXPECT_EQ(0, trust(LAPTOP));
    EXPECT_TRUE(logged("HOSTBASE: Failed to alloc new client from shared memory"));
    EXPECT_FALSE(seen(LAPTOP));
    EXPECT_EQ(HBS_TRUST_SITE, client_of(LAPTOP)->trust);
    EXPECT_EQ(1u, lines_of(LAPTOP).size());
}

} // namespace trust_test
