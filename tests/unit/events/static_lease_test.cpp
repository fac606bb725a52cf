// Static leases set and cleared by the user, and those of internal devices.
#include <string>
#include <sys/stat.h>

#include "support/management.h"

namespace static_lease_test {

constexpr const char *ADDRESS = "192.168.0.50";
constexpr const char *OTHER_ADDRESS = "192.168.0.60";
constexpr const char *ADDRESS6 = "fd00:2::50";
constexpr const char *NOTHING_TO_DO = "HOSTBASE: hbs_api_del_static_lease: ip adress free - nothing to do\n";
constexpr const char *KEPT = "HOSTBASE: hbs_api_clr_static_lease: Hbs client is still used - keep it\n";

class ManagementLease : public ManagementTest {
  protected:
    static hbs_static_lease_request request(const std::string &mac, const std::string &address,
                                            uint8_t nwidx = 0, const char *comment = "",
                                            const char *host = "") {
        hbs_static_lease_request result{};
        result.family = address.find(':') == std::string::npos ? AF_INET : AF_INET6;
        result.nwidx = nwidx;
        EXPECT_EQ(1, inet_pton(result.family, address.c_str(), result.address));
        const Mac bytes = mac_of(mac);
        std::copy(bytes.begin(), bytes.end(), result.mac);
        result.comment = comment;
        result.host = host;
        return result;
    }

    static int set(const std::string &mac, const std::string &address, uint8_t nwidx = 0,
                   const char *comment = "", const char *host = "") {
        const hbs_static_lease_request wanted = request(mac, address, nwidx, comment, host);
        return hbs_api_set_static_lease(&wanted);
    }

    static int clear(const std::string &address) {
        const hbs_static_lease_request wanted = request(LAPTOP, address);
        return hbs_api_clr_static_lease(wanted.family, wanted.address);
    }

    static int set_internal(const std::string &mac, const std::string &address) {
        const hbs_static_lease_request wanted = request(mac, address);
        return hbs_api_set_internal_lease(wanted.family, wanted.address, wanted.mac);
    }

    // Something that cannot be removed stands where each replacement of the file would be written.
    static void keep_from_being_replaced(const std::string &path) {
        ASSERT_EQ(0, mkdir((path + ".hbs-new").c_str(), 0755));
    }

    static std::string leases() { return read_file(STATIC_LEASES); }
    static std::string records() { return read_file(HOST_RECORDS); }

    // Whether readers find the address in the IP index.
    static bool indexed(const std::string &mac) {
        const auto client = seen(mac);
        if (!client)
            return false;
        hbs_if_entry entries[HBS_MAX_IF_ENTRIES];
        size_t count = 0;
        EXPECT_EQ(HOSTBASE_OK, hostbase_get_if_index(entries, HBS_MAX_IF_ENTRIES, &count));
        return std::any_of(entries, entries + count,
                           [&](const hbs_if_entry &entry) { return entry.dbpos == client->dbpos; });
    }
};

using ManagementLeaseSet = ManagementLease;
using ManagementLeaseClear = ManagementLease;
using ManagementLeaseInternal = ManagementLease;

// --- set ------------------------------------------------------------------------------------------------

TEST_F(ManagementLeaseSet, OfAnUnknownMac_MakesAClientWithDefaultTexts) {
    EXPECT_EQ(0, set(LAPTOP, ADDRESS, 8));
    EXPECT_TRUE(logged("HOSTBASE: hbs_api_set_static_lease: mac 02:aa:00:00:00:11 not found - create new"));
    const auto client = seen(LAPTOP);
    ASSERT_TRUE(client);
    EXPECT_EQ(8, client->nwidx);
    EXPECT_STREQ("unknown", client->host);
    EXPECT_STREQ("null", client->oui);
    EXPECT_STREQ("null", client->serial_number);
    EXPECT_STREQ("null", client->product_class);
    EXPECT_STREQ("", client->comment);
    EXPECT_EQ(ADDRESS, text_of(client->ipv4));
    EXPECT_EQ(std::vector<std::string>{"200 1 4 192 168 0 50"}, ip_keys());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", leases());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 unknown 1 null null null\n", records());
    EXPECT_EQ(std::vector<std::string>{(Persisted{.mac = LAPTOP, .nwidx = 8, .host = "unknown"}.line())},
              lines_of(LAPTOP));
}

TEST_F(ManagementLeaseSet, OfAKnownClient_KeepsItsOwnTexts) {
    hbs_client *client = published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4);
    hbs_set_host(client, "own-name");
    hbs_set_oui(client, "0011aa");
    hbs_set_product_class(client, "tv");
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_STREQ("own-name", seen(LAPTOP)->host);
    EXPECT_STREQ("0011aa", seen(LAPTOP)->oui);
    EXPECT_STREQ("null", seen(LAPTOP)->serial_number) << "a missing one becomes the word";
    EXPECT_STREQ("tv", seen(LAPTOP)->product_class);
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 own-name 1 0011aa null tv\n", records());
    EXPECT_EQ(std::vector<std::string>{"200 1 4 192 168 0 50"}, ip_keys()) << "the old address is gone";
    EXPECT_EQ(0u, logged_containing("create new"));
}

TEST_F(ManagementLeaseSet, WithTexts_TakesThemOverWhatTheClientHas) {
    hbs_client *client = published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4);
    hbs_set_host(client, "own-name");
    EXPECT_EQ(0, set(LAPTOP, ADDRESS, 0, "first", "given"));
    EXPECT_STREQ("given", seen(LAPTOP)->host);
    EXPECT_STREQ("first", seen(LAPTOP)->comment);
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_STREQ("given", seen(LAPTOP)->host);
    EXPECT_STREQ("first", seen(LAPTOP)->comment) << "an empty comment changes nothing";
}

TEST_F(ManagementLeaseSet, AcceptsClientsOfNetworksZeroAndEightOnly) {
    for (int nwidx = 0; nwidx < 256; ++nwidx) {
        const hbs_client *client =
            published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4, static_cast<uint8_t>(nwidx));
        clear_log();
        const bool accepted = nwidx == 0 || nwidx == 8;
        EXPECT_EQ(accepted ? 0 : -1, set(LAPTOP, ADDRESS)) << nwidx;
        EXPECT_EQ(accepted ? 0u : 1u,
                  logged_count("HOSTBASE: hbs_api_set_static_lease: mac 02:aa:00:00:00:11 found in nwidx " +
                               std::to_string(nwidx)))
            << nwidx;
        EXPECT_EQ(accepted ? ADDRESS : OTHER_ADDRESS, text_of(client->ipv4)) << nwidx;
        EXPECT_TRUE(indexed(LAPTOP)) << nwidx;
        EXPECT_EQ(accepted, file_exists(STATIC_LEASES)) << nwidx;
        (void)remove(STATIC_LEASES);
        EXPECT_EQ(0, hbs_set_route_mode(0));
    }
}

TEST_F(ManagementLeaseSet, OfAnUnknownMacForAnotherNetwork_IsRefusedAndTouchesNothing) {
    (void)published_client(TABLET, ADDRESS, HBS_FLAG_DYNIP4);
    for (const uint8_t nwidx : {uint8_t{1}, uint8_t{7}, uint8_t{9}, uint8_t{16}, uint8_t{255}})
        EXPECT_EQ(-1, set(LAPTOP, ADDRESS, nwidx)) << int{nwidx};
    EXPECT_EQ(1u, working_clients());
    EXPECT_TRUE(indexed(TABLET));
    EXPECT_FALSE(file_exists(STATIC_LEASES));
    EXPECT_EQ(" version 1\n", client_file());
}

TEST_F(ManagementLeaseSet, OfAnAddressHeldInAnotherNetwork_IsRefusedAndLeavesTheClientOutOfTheIndices) {
    (void)published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4, 8);
    (void)published_client(TABLET, ADDRESS, HBS_FLAG_DYNIP4, 3);
    EXPECT_EQ(-1, set(LAPTOP, ADDRESS));
    EXPECT_TRUE(logged("HOSTBASE: hbs_api_set_static_lease: ip 192.168.0.50 found in nwidx 8"))
        << "the network of the client found by its MAC";
    EXPECT_FALSE(indexed(LAPTOP));
    EXPECT_TRUE(indexed(TABLET));
    EXPECT_EQ(OTHER_ADDRESS, text_of(seen(LAPTOP)->ipv4));
    EXPECT_FALSE(file_exists(STATIC_LEASES));
    EXPECT_EQ(" version 1\n", client_file());
}

TEST_F(ManagementLeaseSet, OfAnUnknownMacAndAnAddressHeldInAnotherNetwork_IsRefused) {
    (void)published_client(TABLET, ADDRESS, HBS_FLAG_DYNIP4, 3);
    EXPECT_EQ(-1, set(LAPTOP, ADDRESS));
    EXPECT_EQ(1u, logged_containing("hbs_api_set_static_lease: ip 192.168.0.50 found in nwidx "));
    EXPECT_EQ(1u, working_clients());
    EXPECT_TRUE(indexed(TABLET));
}

TEST_F(ManagementLeaseSet, TakesTheAddressFromItsHolderInTheIndices) {
    (void)published_client(TABLET, ADDRESS, HBS_FLAG_DYNIP4);
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_FALSE(indexed(TABLET));
    EXPECT_TRUE(indexed(LAPTOP));
    EXPECT_EQ(std::vector<std::string>{"200 1 4 192 168 0 50"}, ip_keys());
    EXPECT_EQ(ADDRESS, text_of(seen(TABLET)->ipv4)) << "its record is as it was";
}

TEST_F(ManagementLeaseSet, DeletesEveryOtherEntryOfTheMacAndOfTheAddress) {
    const std::string bystander = "02:aa:00:00:00:99 192.168.0.99 4\n";
    write_file(STATIC_LEASES, "02:aa:00:00:00:11 192.168.0.70 1\n" + bystander +
                                  "02:aa:00:00:00:11 192.168.0.71\n02:aa:00:00:00:12 192.168.0.50 2\n"
                                  "02:aa:00:00:00:13 192.168.0.50\n");
    write_file(HOST_RECORDS,
               "02:aa:00:00:00:11 192.168.0.70 0 a 1 b c d\n02:aa:00:00:00:12 192.168.0.50 0 a 1 b c d\n");
    write_file("/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases", "02:aa:00:00:00:11 192.168.1.70\n");
    EXPECT_EQ(0, set(LAPTOP, ADDRESS, 0, "", "name"));
    EXPECT_EQ(bystander + "02:aa:00:00:00:11 192.168.0.50\n", leases());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 name 1 null null null\n", records());
    EXPECT_EQ("", read_file("/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases"));
}

// Whatever became of the deletions, the lease that was asked for is written.
TEST_F(ManagementLeaseSet, WhereAnOldEntryCannotBeDeleted_IsAddedAllTheSame) {
    const std::string old_record = "02:aa:00:00:00:11 192.168.0.60 0 old 1 null null null\n";
    const std::string new_record = "02:aa:00:00:00:11 192.168.0.50 0 unknown 1 null null null\n";
    write_file(STATIC_LEASES, "02:aa:00:00:00:11 192.168.0.60\n");
    write_file(HOST_RECORDS, old_record);
    keep_from_being_replaced(HOST_RECORDS);
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", leases()) << "the device is not left without a lease";
    EXPECT_EQ(old_record + new_record, records());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_lease_add_ipv4_static: add " + new_record + " to file " +
                               HOST_RECORDS));
}

TEST_F(ManagementLeaseSet, OfThePairThatIsThere_UpdatesItUnderItsIndex) {
    write_file(STATIC_LEASES, "02:aa:00:00:00:12 192.168.0.70 1\n02:aa:00:00:00:11 192.168.0.50 3\n");
    write_file(HOST_RECORDS, "02:aa:00:00:00:11 192.168.0.50 0 old 1 null null null\n");
    EXPECT_EQ(0, set(LAPTOP, ADDRESS, 0, "", "new"));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.70 1\n02:aa:00:00:00:11 192.168.0.50 3\n", leases());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 new 1 null null null\n", records());
}

TEST_F(ManagementLeaseSet, Twice_LeavesOneEntry) {
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", leases());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 unknown 1 null null null\n", records());
}

TEST_F(ManagementLeaseSet, OfAnIpv6Address_ChangesTheTextsOnly) {
    hbs_client *client = published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4);
    EXPECT_EQ(0, set(LAPTOP, ADDRESS6, 0, "six", "sixer"));
    EXPECT_STREQ("six", seen(LAPTOP)->comment);
    EXPECT_STREQ("sixer", seen(LAPTOP)->host);
    EXPECT_FALSE(hbs_client_has_ipv6(client));
    EXPECT_EQ(OTHER_ADDRESS, text_of(client->ipv4));
    EXPECT_TRUE(indexed(LAPTOP));
    EXPECT_FALSE(file_exists(STATIC_LEASES));
    EXPECT_EQ(1u, lines_of(LAPTOP).size());
}

TEST_F(ManagementLeaseSet, OfAnIpv6AddressHeldInAnotherNetwork_IsRefused) {
    (void)published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4);
    hbs_set_ipv6(published_client(TABLET, "192.168.1.9", HBS_FLAG_DYNIP4, 1), ipv6_of(ADDRESS6).data());
    EXPECT_EQ(-1, set(LAPTOP, ADDRESS6));
    EXPECT_TRUE(logged("HOSTBASE: hbs_api_set_static_lease: ip fd00:2::50 found in nwidx 0"));
    EXPECT_FALSE(indexed(LAPTOP));
}

TEST_F(ManagementLeaseSet, WhenNoWorkingCopyIsLeft_IsRefused) {
    for (int i = 0; i < HBS_MAX_WORKING; ++i) {
        const uint8_t mac[6] = {0x02, 0xcc, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        hbs_client *client = hbs_add(mac);
        ASSERT_NE(nullptr, client);
        client->flags = HBS_FLAG_ONLINE; // so that it does not make room
    }
    EXPECT_EQ(-1, set(LAPTOP, ADDRESS));
    EXPECT_FALSE(file_exists(STATIC_LEASES));
}

TEST_F(ManagementLeaseSet, WhoseFileCannotBeNamed_StillSetsTheClient) {
    fail("RNDDB_Read", -1);
    EXPECT_EQ(0, set(LAPTOP, ADDRESS));
    EXPECT_EQ(ADDRESS, text_of(seen(LAPTOP)->ipv4));
    EXPECT_FALSE(file_exists(STATIC_LEASES));
}

TEST_F(ManagementLeaseSet, WithHostileTexts_KeepsTheRecordsShapeAndRunsNothing) {
    const char *hostile = "a b;touch /tmp/owned\n$(touch /tmp/owned)`touch /tmp/owned`'\"\\&/";
    EXPECT_EQ(0, set(LAPTOP, ADDRESS, 0, hostile, hostile));
    EXPECT_EQ(std::string(hostile).substr(0, HBS_HOST_SIZE - 1), seen(LAPTOP)->host);
    EXPECT_EQ(std::string(hostile), seen(LAPTOP)->comment);
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", leases());
    const auto lines = read_lines(HOST_RECORDS);
    ASSERT_EQ(1u, lines.size()) << records();
    EXPECT_EQ(7, std::count(lines[0].begin(), lines[0].end(), ' ')) << lines[0];
    EXPECT_FALSE(file_exists("/tmp/owned"));
    EXPECT_TRUE(no_command_ran());
}

// --- clear ------------------------------------------------------------------------------------------------

TEST_F(ManagementLeaseClear, OfAFreeAddress_SaysSoAndAnswersZero) {
    for (const char *address : {ADDRESS, ADDRESS6}) {
        clear_log();
        EXPECT_EQ(0, clear(address)) << address;
        EXPECT_EQ(1u, logged_count(NOTHING_TO_DO)) << address;
    }
    EXPECT_EQ(" version 1\n", client_file());
}

TEST_F(ManagementLeaseClear, OfAFreeAddress_LeavesTheServersFiles) {
    write_file(STATIC_LEASES, "02:aa:00:00:00:12 192.168.0.50\n");
    EXPECT_EQ(0, clear(ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.50\n", leases());
}

TEST_F(ManagementLeaseClear, OfAClientThatStillHasAnAddressOfItsOwn_KeepsIt) {
    for (const uint32_t source : {HBS_FLAG_DYNIP4, HBS_FLAG_USRIP4, HBS_FLAG_DYNIP4 | HBS_FLAG_STIP4}) {
        hbs_client *client = published_client(LAPTOP, ADDRESS, source);
        client->trust = HBS_TRUST_SITE;
        EXPECT_EQ(0, set(LAPTOP, ADDRESS, 0, "comment"));
        clear_log();
        EXPECT_EQ(0, clear(ADDRESS)) << source;
        EXPECT_TRUE(logged(KEPT)) << source;
        ASSERT_TRUE(seen(LAPTOP)) << source;
        EXPECT_STREQ("", seen(LAPTOP)->comment) << source;
        EXPECT_EQ(ADDRESS, text_of(seen(LAPTOP)->ipv4)) << source;
        EXPECT_FALSE(indexed(LAPTOP)) << source;
        EXPECT_EQ("", leases()) << source;
        EXPECT_EQ("", records()) << source;
        EXPECT_EQ(std::vector<std::string>{(Persisted{.mac = LAPTOP, .host = "unknown", .trust = 1}.line())},
                  lines_of(LAPTOP))
            << source;
        EXPECT_EQ(0, hbs_set_route_mode(0));
    }
}

TEST_F(ManagementLeaseClear, OfAClientWithoutAnAddressOfItsOwn_DeletesIt) {
    for (const uint32_t source : {0u, HBS_FLAG_STIP4, HBS_FLAG_DYNIP6}) {
        (void)published_client(LAPTOP, ADDRESS, source);
        EXPECT_EQ(0, set(LAPTOP, ADDRESS));
        clear_log();
        EXPECT_EQ(0, clear(ADDRESS)) << source;
        EXPECT_FALSE(logged(KEPT)) << source;
        EXPECT_FALSE(seen(LAPTOP)) << source;
        EXPECT_EQ(nullptr, client_of(LAPTOP)) << source;
        EXPECT_EQ("", leases()) << source;
    }
}

TEST_F(ManagementLeaseClear, ThatDeletesAClient_LoadsTheRulesOfTheOthersAnew) {
    hbs_client *tablet = published_client(TABLET, OTHER_ADDRESS, HBS_FLAG_DYNIP4);
    const hbs_filter_request request = filter(HBS_LIST_WHITE, TABLET, {0xa, 2, 3, 4, 5, 6});
    (void)published_client(LAPTOP, ADDRESS, HBS_FLAG_STIP4);
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    EXPECT_EQ(0, clear(ADDRESS));
    ASSERT_EQ(1u, rules().size());
    EXPECT_EQ(tablet->dbpos, rules()[0].p[3]);
    EXPECT_TRUE(indexed(TABLET));
}

TEST_F(ManagementLeaseClear, DeletesEveryEntryOfTheAddress) {
    (void)published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    write_file(STATIC_LEASES, "02:aa:00:00:00:11 192.168.0.50\n02:aa:00:00:00:12 192.168.0.5\n"
                              "02:aa:00:00:00:13 192.168.0.50 7\n");
    EXPECT_EQ(0, clear(ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.5\n", leases());
}

TEST_F(ManagementLeaseClear, OfAnIpv6Address_KeepsTheClientOutOfTheIndices) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, 0);
    client->trust = HBS_TRUST_SITE;
    hbs_set_ipv6(client, ipv6_of(ADDRESS6).data());
    EXPECT_EQ(0, set(LAPTOP, ADDRESS6, 0, "comment"));
    EXPECT_EQ(0, clear(ADDRESS6));
    ASSERT_TRUE(seen(LAPTOP));
    EXPECT_STREQ("", seen(LAPTOP)->comment);
    EXPECT_FALSE(indexed(LAPTOP));
    EXPECT_EQ(std::vector<std::string>{(Persisted{.mac = LAPTOP, .host = "unknown", .trust = 1}.line())},
              lines_of(LAPTOP));
    EXPECT_FALSE(logged(KEPT));
}

TEST_F(ManagementLeaseClear, OfAnotherFamily_DoesNothing) {
    (void)published_client(LAPTOP, ADDRESS, 0);
    EXPECT_EQ(0, hbs_api_clr_static_lease(7, ipv4_of(ADDRESS).data()));
    EXPECT_TRUE(seen(LAPTOP));
    EXPECT_FALSE(logged(NOTHING_TO_DO));
}

// --- internal devices
// ---------------------------------------------------------------------------------------

TEST_F(ManagementLeaseInternal, WritesTheLeaseWithoutMakingAClient) {
    EXPECT_EQ(0, set_internal(LAPTOP, ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", leases());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 unknown 1 null null null\n", records());
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(" version 1\n", client_file());
}

TEST_F(ManagementLeaseInternal, LeavesAKnownClientAsItIs) {
    (void)published_client(LAPTOP, OTHER_ADDRESS, HBS_FLAG_DYNIP4, 3);
    EXPECT_EQ(0, set_internal(LAPTOP, ADDRESS));
    EXPECT_EQ(OTHER_ADDRESS, text_of(seen(LAPTOP)->ipv4));
    EXPECT_STREQ("", seen(LAPTOP)->host);
    EXPECT_TRUE(indexed(LAPTOP));
}

TEST_F(ManagementLeaseInternal, ReplacesTheEntriesOfTheMacAndOfTheAddressAndKeepsThePairsIndex) {
    write_file(STATIC_LEASES, "02:aa:00:00:00:11 192.168.0.50 9\n02:aa:00:00:00:11 192.168.0.70\n"
                              "02:aa:00:00:00:12 192.168.0.50 2\n02:aa:00:00:00:13 192.168.0.71\n");
    EXPECT_EQ(0, set_internal(LAPTOP, ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:13 192.168.0.71\n02:aa:00:00:00:11 192.168.0.50 9\n", leases());
}

TEST_F(ManagementLeaseInternal, WhereAnOldEntryCannotBeDeleted_IsAddedAllTheSame) {
    write_file(STATIC_LEASES, "02:aa:00:00:00:11 192.168.0.60\n");
    keep_from_being_replaced(STATIC_LEASES);
    EXPECT_EQ(0, set_internal(LAPTOP, ADDRESS));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.60\n02:aa:00:00:00:11 192.168.0.50\n", leases());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50 0 unknown 1 null null null\n", records());
}

TEST_F(ManagementLeaseInternal, ReadsTheRouterDatabaseAnew) {
    EXPECT_EQ(0, set_internal(LAPTOP, ADDRESS));
    EXPECT_EQ(0, hbs_rnd_status);
    const hbs_static_lease_request wanted = request(LAPTOP, ADDRESS6);
    EXPECT_EQ(0, hbs_api_set_internal_lease(wanted.family, wanted.address, wanted.mac));
    EXPECT_NE(0, hbs_rnd_status) << "an IPv6 address only makes the next look-up read it";
    GatewayTest::set("network.1.ipv4", "10.0.0.1/24");
    EXPECT_EQ(0, set_internal(LAPTOP, "10.0.0.50"));
    EXPECT_EQ("02:aa:00:00:00:11 10.0.0.50\n", read_file("/nvram/8/dhcpd/udhcpd.10.0.0.1.static_leases"));
}

} // namespace static_lease_test
