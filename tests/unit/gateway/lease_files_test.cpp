// Names, lines and look-ups of the DHCPv4 server's files.
#include <array>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include "base/paths.h"
#include "gateway/lease_files.h"
#include "gateway/networks.h"
#include "gateway/userconf.h"
#include "support/gateway.h"
#include "support/waiting_call.h"

namespace lease_files_test {

constexpr uint8_t MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
const std::string STATIC_1 = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
const std::string STATIC_2 = "/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases";
const std::string DYNAMIC_1 = "/var/lib/misc/landhcps00.192.168.0.1.leases";
const std::string DYNAMIC_2 = "/var/lib/misc/landhcps00.192.168.1.1.leases";

using Address = std::array<uint8_t, 4>;
constexpr Address UNTOUCHED = {9, 9, 9, 9};

class LeaseFiles : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_rnd_status = -1;
    }

    std::string name_of(int group, int kind) {
        char path[HBS_LEASE_PATH_SIZE] = "";
        return hbs_lease_filename(group, kind, path) == 0 ? path : "(none)";
    }

    Address static_address() {
        Address address = UNTOUCHED;
        const int result = hbs_check_lease_get_ipv4_static_lease(MAC, address.data());
        EXPECT_EQ(result == 0, address != UNTOUCHED);
        EXPECT_EQ(result, hbs_check_lease_get_ipv4_static_lease(MAC, nullptr));
        return address;
    }

    Address userconf_address() {
        Address address = UNTOUCHED;
        const int result = hbs_check_lease_get_ipv4_static_lease_from_mac(MAC, address.data());
        EXPECT_EQ(result == 0, address != UNTOUCHED);
        EXPECT_EQ(result, hbs_check_lease_get_ipv4_static_lease_from_mac(MAC, nullptr));
        return address;
    }
};

// --- names ---
TEST_F(LeaseFiles, AreNamedAfterKindAndLanAddress) {
    EXPECT_EQ(STATIC_1, name_of(0, HBS_LEASE_STATIC));
    EXPECT_EQ(DYNAMIC_1, name_of(0, HBS_LEASE_DYNAMIC));
    EXPECT_EQ("/nvram/8/dhcpd/udhcpd.192.168.0.1.host", name_of(0, HBS_LEASE_HOST));
    EXPECT_EQ(STATIC_2, name_of(1, HBS_LEASE_STATIC));
}

TEST_F(LeaseFiles, HaveNoNameForAnUnknownKindOrGroup) {
    for (int kind : {-1, 3})
        EXPECT_EQ("(none)", name_of(0, kind)) << kind;
    for (int group : {-1, 2, 7, 8})
        EXPECT_EQ("(none)", name_of(group, HBS_LEASE_STATIC)) << group;
}

TEST_F(LeaseFiles, HaveNoNameWithoutTheRouterDatabase_WhoseStatusIsKept) {
    fail("RNDDB_Read", 5);
    EXPECT_EQ("(none)", name_of(0, HBS_LEASE_STATIC));
    EXPECT_EQ(5, hbs_rnd_status);
    succeed("RNDDB_Read");
    EXPECT_EQ(STATIC_1, name_of(0, HBS_LEASE_STATIC));
    EXPECT_EQ(0, hbs_rnd_status);
}

TEST_F(LeaseFiles, AreNamedAfterAnAddressInHostOrder) {
    char path[HBS_LEASE_PATH_SIZE];
    hbs_static_lease_filename(0x0A000001, path);
    EXPECT_STREQ("/nvram/8/dhcpd/udhcpd.10.0.0.1.static_leases", path);
}

// --- lines ---
TEST(LeaseRecord, HasEightFields) {
    hbs_lease_record record;
    ASSERT_TRUE(hbs_lease_record_parse("02:aa:00:00:00:11 192.168.0.5 3600 host 7 a b c", &record));
    EXPECT_STREQ("02:aa:00:00:00:11", record.mac);
    EXPECT_STREQ("192.168.0.5", record.address);
    EXPECT_EQ(3600u, record.seconds);
    EXPECT_STREQ("host", record.host);
    EXPECT_EQ(7u, record.number);
    EXPECT_STREQ("a", record.text[0]);
    EXPECT_STREQ("b", record.text[1]);
    EXPECT_STREQ("c", record.text[2]);
}

TEST(LeaseRecord, IsNoneWithFewerFieldsOrWithoutItsNumbers) {
    hbs_lease_record record;
    for (const char *line : {"", "x", "m a 1 h 2 t1 t2", "m a none h 2 t1 t2 t3", "m a 1 h none t1 t2 t3"})
        EXPECT_FALSE(hbs_lease_record_parse(line, &record)) << line;
}

TEST(LeaseRecord, HoldsAWordThatFillsTheLine) {
    hbs_lease_record record;
    memset(&record, '#', sizeof record);
    EXPECT_FALSE(hbs_lease_record_parse(std::string(5000, 'x').c_str(), &record));
    EXPECT_EQ(std::string(1023, 'x'), record.mac);
}

TEST(StaticLine, HasTwoWordsAndMaybeAnIndex) {
    hbs_static_line line;
    ASSERT_TRUE(hbs_static_line_parse("02:aa:00:00:00:11 192.168.0.5 12", &line));
    EXPECT_STREQ("02:aa:00:00:00:11", line.mac);
    EXPECT_STREQ("192.168.0.5", line.address);
    EXPECT_EQ(12u, line.index);
    ASSERT_TRUE(hbs_static_line_parse("02:aa:00:00:00:11 192.168.0.5", &line));
    EXPECT_EQ(0u, line.index);
    ASSERT_TRUE(hbs_static_line_parse("02:aa:00:00:00:11 192.168.0.5 word", &line));
    EXPECT_EQ(0u, line.index);
    EXPECT_FALSE(hbs_static_line_parse("02:aa:00:00:00:11", &line));
    EXPECT_FALSE(hbs_static_line_parse("", &line));
}

// --- static lease by MAC ---
TEST_F(LeaseFiles, StaticLeaseIsFoundByMac) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00:00:11 192.168.0.5 3\n");
    EXPECT_EQ((Address{192, 168, 0, 5}), static_address());
}

TEST_F(LeaseFiles, StaticLeaseIsFoundInALaterGroup) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n");
    write_file(STATIC_2, "02:AA:00:00:00:11 192.168.1.5\n");
    EXPECT_EQ((Address{192, 168, 1, 5}), static_address());
}

TEST_F(LeaseFiles, StaticLeaseOfTheFirstGroupWins) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n02:aa:00:00:00:11 192.168.0.6\n");
    write_file(STATIC_2, "02:aa:00:00:00:11 192.168.1.5\n");
    EXPECT_EQ((Address{192, 168, 0, 5}), static_address());
}

TEST_F(LeaseFiles, StaticLeaseIsNotFoundAndMissingFilesAreLogged) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n");
    EXPECT_EQ(-1, hbs_check_lease_get_ipv4_static_lease(MAC, nullptr));
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: can't open " + STATIC_2}), log_lines());
}

TEST_F(LeaseFiles, StaticLeaseLookUpSkipsGarbage) {
    write_file(STATIC_1, std::string(1 << 20, 'x') + "\n" +
                             std::string("02:aa:00:00:00:11\0 192.168.0.9\n", 31) +
                             "\n02:aa:00:00:00\n02:aa:00:00:00:11\n02:aa:00:00:00:11 nonsense\n"
                             "02:aa:00:00:00:11 192.168.0.256\n\x01\xff $(reboot) %s%n\n" +
                             std::string(1100, 'y') + " 02:aa:00:00:00:11 192.168.0.8\n" +
                             "02:aa:00:00:00:11 192.168.0.5");
    EXPECT_EQ((Address{192, 168, 0, 5}), static_address());
}

TEST_F(LeaseFiles, StaticLeaseLookUpSharesTheFileButWaitsForAnEditor) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n");
    const int other = open(STATIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(other, LOCK_SH));
    EXPECT_EQ((Address{192, 168, 0, 5}), static_address());
    ASSERT_EQ(0, flock(other, LOCK_EX));
    WaitingCall reader([] { (void)hbs_check_lease_get_ipv4_static_lease(MAC, nullptr); });
    EXPECT_TRUE(reader.is_waiting());
    close(other);
    reader.join();
}

// --- static lease in the files that the user configuration names ---
TEST_F(LeaseFiles, UserConfigurationNamesStaticLeaseFiles) {
    write_file(HBS_USERCONF, "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.200=$C0A86401;\n"
                             "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.207=$0A000001;\n");
    write_file("/nvram/8/dhcpd/udhcpd.10.0.0.1.static_leases", "02:aa:00:00:00:11 10.0.0.5\n");
    EXPECT_EQ((Address{10, 0, 0, 5}), userconf_address());
    EXPECT_TRUE(logged("HOSTBASE: (hbs_check_lease_get_ipv4_static_lease_from_mac) can't open "
                       "/nvram/8/dhcpd/udhcpd.192.168.100.1.static_leases"));
    write_file("/nvram/8/dhcpd/udhcpd.192.168.100.1.static_leases", "02:aa:00:00:00:11 192.168.100.5\n");
    EXPECT_EQ((Address{192, 168, 100, 5}), userconf_address());
}

TEST_F(LeaseFiles, UserConfigurationLookUpFindsNothingWithoutIt) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n");
    EXPECT_EQ(UNTOUCHED, userconf_address());
    EXPECT_TRUE(log_lines().empty());
    write_file(HBS_USERCONF, "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.199=$C0A80001;\n"
                             "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.208=$C0A80001;\n");
    EXPECT_EQ(UNTOUCHED, userconf_address());
}

TEST_F(LeaseFiles, UserConfigurationLookUpTakesTheFileForItself) {
    write_file(HBS_USERCONF, "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.200=$C0A80001;\n");
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n");
    const int other = open(STATIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(other, LOCK_SH));
    WaitingCall reader([] { (void)hbs_check_lease_get_ipv4_static_lease_from_mac(MAC, nullptr); });
    EXPECT_TRUE(reader.is_waiting());
    close(other);
    reader.join();
}

// --- dynamic lease by MAC ---
struct Dynamic {
    int64_t seconds;
    std::string host;
    Address address;
    bool operator==(const Dynamic &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Dynamic &lease) {
    return out << lease.seconds << " " << lease.host << " " << testing::PrintToString(lease.address);
}

Dynamic dynamic_lease() {
    char host[64] = "before";
    Address address = UNTOUCHED;
    const int64_t seconds = hbs_check_lease_get_ipv4_dynamic_lease(MAC, host, address.data());
    return {seconds, host, address};
}

TEST_F(LeaseFiles, DynamicLeaseGivesSecondsHostAndAddress) {
    write_file(DYNAMIC_1, "02:aa:00:00:00:12 192.168.0.6 100 other 1 a b c\n"
                          "02:aa:00:00:00:11 192.168.0.5 3600 laptop 1 a b c\n");
    EXPECT_EQ((Dynamic{3600, "laptop", {192, 168, 0, 5}}), dynamic_lease());
}

TEST_F(LeaseFiles, DynamicLeaseMayBeInALaterGroup) {
    write_file(DYNAMIC_2, "02:aa:00:00:00:11 192.168.1.5 4294967295 laptop 1 a b c\n");
    EXPECT_EQ((Dynamic{4294967295, "laptop", {192, 168, 1, 5}}), dynamic_lease());
    EXPECT_TRUE(log_lines().empty()) << "a missing file is not worth a message here";
}

TEST_F(LeaseFiles, DynamicLeaseOfNoSecondsIsFoundAndEndsTheSearch) {
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.5 0 laptop 1 a b c\n");
    write_file(DYNAMIC_2, "02:aa:00:00:00:11 192.168.1.5 7 other 1 a b c\n");
    EXPECT_EQ((Dynamic{0, "laptop", {192, 168, 0, 5}}), dynamic_lease());
}

TEST_F(LeaseFiles, DynamicLeaseNotFoundLeavesTheOutputs) {
    EXPECT_EQ((Dynamic{-1, "before", UNTOUCHED}), dynamic_lease());
    write_file(DYNAMIC_1, "02:aa:00:00:00:12 192.168.0.6 100 other 1 a b c\n");
    EXPECT_EQ((Dynamic{-1, "before", UNTOUCHED}), dynamic_lease());
}

TEST_F(LeaseFiles, DynamicLeaseCutsALongHostName) {
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.5 3600 " + std::string(65, 'h') + " 1 a b c\n");
    EXPECT_EQ((Dynamic{3600, std::string(63, 'h'), {192, 168, 0, 5}}), dynamic_lease());
}

TEST_F(LeaseFiles, DynamicLeaseTakesAHostNameAsData) {
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.5 3600 '$(reboot)'\"%n/\\\xc3\xbc 1 a b c\n");
    EXPECT_EQ((Dynamic{3600, "'$(reboot)'\"%n/\\\xc3\xbc", {192, 168, 0, 5}}), dynamic_lease());
}

TEST_F(LeaseFiles, DynamicLeaseLookUpSkipsGarbage) {
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.9 10 short\n" + std::string(1 << 20, 'x') + "\n" +
                              std::string("02:aa:00:00:00:11 192.168.0.9 1 h\0 1 a b c\n", 43) +
                              "02:aa:00:00:00:11 not-an-address 10 h 1 a b c\n"
                              "02:aa:00:00:00:11 192.168.0.5 3600 laptop 1 a b c\n");
    EXPECT_EQ((Dynamic{3600, "laptop", {192, 168, 0, 5}}), dynamic_lease());
}

} // namespace lease_files_test
