#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "base/text.h"
#include "files/dhcpv6_notice.h"

namespace dhcpv6_notice_test {

hbs_dhcpv6_notice read(std::initializer_list<std::string> lines) {
    hbs_dhcpv6_notice notice{};
    for (const std::string &line : lines)
        hbs_dhcpv6_notice_read(line.c_str(), &notice);
    return notice;
}

TEST(Dhcpv6Notice, EveryKey_GoesToItsField) {
    const auto notice = read({"event LEASE", "globAddr fd00:2::10", "linkAddr fe80::11",
                              "opt_var_file lease6", "fqdn laptop.lan", "oui 001122", "serial_number serial",
                              "product_class class", "lease_time 1800000000"});
    EXPECT_EQ(notice.type, HBS_NOTICE_LEASE);
    EXPECT_STREQ(hbs_ipv6_to_text(notice.ipv6).text, "fd00:2::10");
    EXPECT_STREQ(hbs_ipv6_to_text(notice.ll).text, "fe80::11");
    EXPECT_STREQ(notice.lease_file, "lease6");
    EXPECT_STREQ(notice.host, "laptop.lan");
    EXPECT_STREQ(notice.oui, "001122");
    EXPECT_STREQ(notice.serial_number, "serial");
    EXPECT_STREQ(notice.product_class, "class");
    EXPECT_EQ(notice.lease_end, 1800000000);
}

TEST(Dhcpv6Notice, Types_AreTheNumbersThatAreLogged) {
    EXPECT_EQ(read({"event LEASE"}).type, 106);
    EXPECT_EQ(read({"event RELEASE"}).type, 108);
    EXPECT_EQ(read({}).type, 0);
}

TEST(Dhcpv6Notice, OtherEvent_LeavesTheTypeUnchanged) {
    EXPECT_EQ(read({"event RENEW"}).type, 0);
    EXPECT_EQ(read({"event lease"}).type, 0);
    EXPECT_EQ(read({"event LEASED"}).type, 0);
    EXPECT_EQ(read({"event RELEASE", "event RENEW"}).type, 108);
}

TEST(Dhcpv6Notice, RepeatedKey_TheLastValueWins) {
    EXPECT_EQ(read({"event LEASE", "event RELEASE"}).type, HBS_NOTICE_RELEASE);
    EXPECT_STREQ(read({"fqdn first-name", "fqdn second"}).host, "second");
    EXPECT_EQ(read({"lease_time 5", "lease_time 6"}).lease_end, 6);
}

TEST(Dhcpv6Notice, UnknownKeys_AreIgnored) {
    const auto notice =
        read({"Event LEASE", "even LEASE", "events LEASE", "duid LEASE", "fqdn_ x", "LEASE event"});
    EXPECT_EQ(notice.type, HBS_NOTICE_NONE);
    EXPECT_STREQ(notice.host, "");
}

TEST(Dhcpv6Notice, LineWithoutTwoWords_IsSkipped) {
    EXPECT_EQ(read({"", " ", "event", "event ", "\tevent\t", "eventLEASE"}).type, HBS_NOTICE_NONE);
    EXPECT_STREQ(read({"fqdn laptop", "fqdn", "fqdn  "}).host, "laptop");
}

TEST(Dhcpv6Notice, Words_MayBeSeparatedByAnyWhiteSpace) {
    EXPECT_EQ(read({" \t event \v\f LEASE\r"}).type, HBS_NOTICE_LEASE);
}

TEST(Dhcpv6Notice, WordsAfterTheSecond_AreIgnored) {
    EXPECT_STREQ(read({"fqdn laptop lan event"}).host, "laptop");
}

TEST(Dhcpv6Notice, AddressThatIsNone_LeavesTheFieldUnchanged) {
    const auto notice =
        read({"globAddr fd00:2::10", "globAddr 192.168.0.10", "globAddr fd00:2:::1", "linkAddr x"});
    EXPECT_STREQ(hbs_ipv6_to_text(notice.ipv6).text, "fd00:2::10");
    EXPECT_STREQ(hbs_ipv6_to_text(notice.ll).text, "::");
}

TEST(Dhcpv6Notice, LeaseTime_IsReadAsADecimalNumber) {
    EXPECT_EQ(read({"lease_time 010"}).lease_end, 10);
    EXPECT_EQ(read({"lease_time 60s"}).lease_end, 60);
    EXPECT_EQ(read({"lease_time soon"}).lease_end, 0);
    EXPECT_EQ(read({"lease_time -1"}).lease_end, -1);
    EXPECT_EQ(read({"lease_time 4000000000"}).lease_end, INT32_MAX);
    EXPECT_EQ(read({"lease_time 99999999999999999999"}).lease_end, INT32_MAX);
    EXPECT_EQ(read({"lease_time -4000000000"}).lease_end, INT32_MIN);
}

TEST(Dhcpv6Notice, Texts_AreCutToTheirFields) {
    const std::string word(5000, 'x');
    const auto notice = read({"opt_var_file " + word, "fqdn " + word, "oui " + word, "serial_number " + word,
                              "product_class " + word});
    EXPECT_EQ(std::string(notice.lease_file), std::string(127, 'x'));
    EXPECT_EQ(std::string(notice.host), std::string(127, 'x'));
    EXPECT_EQ(std::string(notice.oui), std::string(6, 'x'));
    EXPECT_EQ(std::string(notice.serial_number), std::string(64, 'x'));
    EXPECT_EQ(std::string(notice.product_class), std::string(64, 'x'));
}

TEST(Dhcpv6Notice, OverlongWords_ChangeNothingElse) {
    const std::string word(1 << 20, 'x');
    const auto notice = read({word + " LEASE", "globAddr " + word, "event " + word, word});
    const hbs_dhcpv6_notice nothing{};
    EXPECT_EQ(memcmp(&notice, &nothing, sizeof(notice)), 0);
}

TEST(Dhcpv6Notice, ShorterValue_LeavesNothingOfTheLongerOne) {
    const auto notice = read({"fqdn a-very-long-name", "fqdn b"});
    const char rest[sizeof(notice.host)] = "b";
    EXPECT_EQ(memcmp(notice.host, rest, sizeof(rest)), 0);
}

} // namespace dhcpv6_notice_test
