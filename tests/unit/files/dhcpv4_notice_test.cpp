#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "base/text.h"
#include "files/dhcpv4_notice.h"

namespace dhcpv4_notice_test {

constexpr const char *ADD =
    "ADD 02:aa:00:00:00:11 192.168.0.10 3600 6c6170746f70 6c327364302e32 1 0 lease.11 001122 serial class";
constexpr const char *DEL = "DEL 02:aa:00:00:00:11 192.168.0.10 3600 6c6170746f70 6c327364302e32 1 0";

bool parse(std::string line, hbs_dhcpv4_notice *notice) {
    memset(static_cast<void *>(notice), 0x5a, sizeof(*notice));
    return hbs_dhcpv4_notice_parse(line.data(), notice);
}

// The line with its token number `number` (from 1) replaced; an empty text takes it out.
std::string with(const std::string &line, int number, const std::string &text) {
    std::string result;
    size_t at = 0;
    for (int i = 1; at < line.size(); i++) {
        const size_t end = std::min(line.find(' ', at), line.size());
        const std::string token = i == number ? text : line.substr(at, end - at);
        result += token.empty() ? "" : (result.empty() ? "" : " ") + token;
        at = end + 1;
    }
    return result;
}

TEST(Dhcpv4Notice, Add_GivesEveryField) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(ADD, &notice));
    EXPECT_EQ(notice.action, hbs_notice_action::add);
    EXPECT_STREQ(hbs_mac_to_text(notice.mac).text, "02:aa:00:00:00:11");
    EXPECT_STREQ(hbs_ipv4_to_text(notice.ipv4).text, "192.168.0.10");
    EXPECT_EQ(notice.seconds, 3600u);
    EXPECT_STREQ(notice.host, "laptop");
    EXPECT_STREQ(notice.ifname, "l2sd0.2");
    EXPECT_TRUE(notice.dynamic);
    EXPECT_STREQ(notice.lease_file, "lease.11");
    EXPECT_STREQ(notice.oui, "001122");
    EXPECT_STREQ(notice.serial_number, "serial");
    EXPECT_STREQ(notice.product_class, "class");
}

TEST(Dhcpv4Notice, Del_GivesItsFieldsAndNoMore) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(std::string(DEL) + " file 001122 serial class", &notice));
    EXPECT_EQ(notice.action, hbs_notice_action::del);
    EXPECT_STREQ(hbs_ipv4_to_text(notice.ipv4).text, "192.168.0.10");
    EXPECT_STREQ(notice.host, "laptop");
    EXPECT_STREQ(notice.lease_file, "");
    EXPECT_STREQ(notice.oui, "");
    EXPECT_STREQ(notice.product_class, "");
}

TEST(Dhcpv4Notice, Tokens_MayBeSeparatedByAnyNumberOfBlanksAndTabs) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse("  DEL\t02:aa:00:00:00:11 \t 192.168.0.10\t\t3600 00 00 1 0  ", &notice));
    EXPECT_EQ(notice.seconds, 3600u);
}

struct Line {
    const char *name;
    std::string text;
    bool valid;
};
void PrintTo(const Line &line, std::ostream *out) {
    *out << line.name;
}

class EachLine : public testing::TestWithParam<Line> {};

TEST_P(EachLine, IsValidOrNot) {
    hbs_dhcpv4_notice notice;
    EXPECT_EQ(parse(GetParam().text, &notice), GetParam().valid) << GetParam().text;
}

const Line LINES[] = {
    {"Empty", "", false},
    {"BlanksOnly", " \t ", false},
    {"ActionInLowerCase", with(ADD, 1, "add"), true},
    {"ActionInMixedCase", with(DEL, 1, "dEl"), true},
    {"UnknownAction", with(ADD, 1, "RENEW"), false},
    {"ActionWithATail", with(ADD, 1, "ADDED"), false},
    {"MacOfZeroes", with(ADD, 2, "00:00:00:00:00:00"), false},
    {"MacCutShort", with(ADD, 2, "02:aa:00:00:00"), false},
    {"MacThatIsNone", with(ADD, 2, "laptop"), false},
    {"MacInUpperCase", with(ADD, 2, "02:AA:00:00:00:1F"), true},
    {"AddressThatIsNone", with(ADD, 3, "192.168.0"), false},
    {"AddressOutOfRange", with(ADD, 3, "192.168.0.256"), false},
    {"AddressOfIpv6", with(ADD, 3, "fd00:2::1"), false},
    {"SecondsWithoutDigits", with(ADD, 4, "forever"), false},
    {"SecondsOfABareSign", with(ADD, 4, "-"), false},
    {"SecondsOfAllOnes", with(ADD, 4, "4294967295"), true},
    {"SecondsAbove32Bits", with(ADD, 4, "4294967296"), false},
    {"SecondsAbove64Bits", with(ADD, 4, "99999999999999999999999"), false},
    {"SecondsNegative", with(ADD, 4, "-5"), true},
    {"SecondsFarBelow", with(ADD, 4, "-4294967296"), false},
    {"SecondsOfAMinusZero", with(ADD, 4, "-0"), true},
    {"SecondsWithATail", with(ADD, 4, "60s"), true},
    {"AddOfEightTokens", with(with(with(with(ADD, 12, ""), 11, ""), 10, ""), 9, ""), false},
    {"AddOfNineTokens", with(with(with(ADD, 12, ""), 11, ""), 10, ""), true},
    {"DelOfEightTokens", DEL, true},
    {"DelOfSevenTokens", with(DEL, 8, ""), false},
    {"DelOfOneToken", "DEL", false},
};
INSTANTIATE_TEST_SUITE_P(Dhcpv4Notice, EachLine, testing::ValuesIn(LINES),
                         [](const testing::TestParamInfo<Line> &line) {
                             return std::string(line.param.name);
                         });

struct Seconds {
    const char *text;
    uint32_t value;
};
void PrintTo(const Seconds &seconds, std::ostream *out) {
    *out << seconds.text;
}

class EachSeconds : public testing::TestWithParam<Seconds> {};

TEST_P(EachSeconds, IsReadInItsBase) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(DEL, 4, GetParam().text), &notice));
    EXPECT_EQ(notice.seconds, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Dhcpv4Notice, EachSeconds,
                         testing::Values(Seconds{"0x3c", 60}, Seconds{"074", 60}, Seconds{"60", 60},
                                         Seconds{"0", 0}, Seconds{"60s", 60},
                                         Seconds{"0xFFFFFFFF", UINT32_MAX}, Seconds{"-5", UINT32_MAX - 4},
                                         Seconds{"-0x10", UINT32_MAX - 15}, Seconds{"-4294967295", 1},
                                         Seconds{"+60", 60}),
                         [](const auto &seconds) {
                             std::string name = seconds.param.text;
                             std::replace(name.begin(), name.end(), '-', 'm');
                             std::replace(name.begin(), name.end(), '+', 'p');
                             return name;
                         });

TEST(Dhcpv4Notice, HexText_TakesDigitsOfEitherCase) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(with(DEL, 5, "4a4B"), 6, "C3a9"), &notice));
    EXPECT_STREQ(notice.host, "JK");
    EXPECT_STREQ(notice.ifname, "\xc3\xa9");
}

TEST(Dhcpv4Notice, HexText_CountsANonDigitAsZero) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(DEL, 5, "4g-1"), &notice));
    EXPECT_STREQ(notice.host, "@\x01");
}

TEST(Dhcpv4Notice, HexText_StopsAtAnOddLastDigit) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(with(DEL, 5, "414"), 6, "0"), &notice));
    EXPECT_STREQ(notice.host, "A");
    EXPECT_STREQ(notice.ifname, "");
}

TEST(Dhcpv4Notice, HexText_OfASingleEscapeCharacter_IsDecodedLikeAnyOther) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(DEL, 5, "1b"), &notice));
    EXPECT_STREQ(notice.host, "\x1b");
}

TEST(Dhcpv4Notice, Host_IsCutAt127BytesAndSecondNameAt63) {
    std::string hex;
    for (int i = 0; i < 300; i++)
        hex += "61";
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(with(DEL, 5, hex), 6, hex), &notice));
    EXPECT_EQ(std::string(notice.host), std::string(127, 'a'));
    EXPECT_EQ(std::string(notice.ifname), std::string(63, 'a'));
}

TEST(Dhcpv4Notice, HostileHostName_PassesThroughAsData) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(DEL, 5, "2428726d202d7266202f293b22275c6e0a2f2e2e"), &notice));
    EXPECT_STREQ(notice.host, "$(rm -rf /);\"'\\n\n/..");
}

TEST(Dhcpv4Notice, Flag_IsTrueWhenItsFirstCharacterIsOne) {
    hbs_dhcpv4_notice notice;
    for (const char *text : {"1", "1abc", "10"}) {
        ASSERT_TRUE(parse(with(DEL, 7, text), &notice));
        EXPECT_TRUE(notice.dynamic) << text;
    }
    for (const char *text : {"0", "true", "01", "2"}) {
        ASSERT_TRUE(parse(with(DEL, 7, text), &notice));
        EXPECT_FALSE(notice.dynamic) << text;
    }
}

TEST(Dhcpv4Notice, FileOfNullInAnyCase_IsTheUnknownFile) {
    hbs_dhcpv4_notice notice;
    for (const char *text : {"null", "NULL", "Null"}) {
        ASSERT_TRUE(parse(with(ADD, 9, text), &notice));
        EXPECT_STREQ(notice.lease_file, "unknown file");
    }
}

TEST(Dhcpv4Notice, IdentityOfNull_IsNone) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(with(with(ADD, 10, "null"), 11, "NULL"), 12, "null"), &notice));
    EXPECT_STREQ(notice.oui, "");
    EXPECT_STREQ(notice.serial_number, "");
    EXPECT_STREQ(notice.product_class, "");
}

TEST(Dhcpv4Notice, OptionalTokens_EndAtTheFirstMissingOne) {
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(ADD, 12, ""), &notice));
    EXPECT_STREQ(notice.oui, "001122");
    EXPECT_STREQ(notice.serial_number, "serial");
    EXPECT_STREQ(notice.product_class, "");
}

TEST(Dhcpv4Notice, Texts_AreCutToTheirFields) {
    const std::string word(5000, 'x');
    hbs_dhcpv4_notice notice;
    ASSERT_TRUE(parse(with(with(with(with(ADD, 9, word), 10, word), 11, word), 12, word), &notice));
    EXPECT_EQ(std::string(notice.lease_file), std::string(255, 'x'));
    EXPECT_EQ(std::string(notice.oui), std::string(6, 'x'));
    EXPECT_EQ(std::string(notice.serial_number), std::string(64, 'x'));
    EXPECT_EQ(std::string(notice.product_class), std::string(64, 'x'));
}

TEST(Dhcpv4Notice, LineOfOneMegabyte_IsReadLikeAnyOther) {
    hbs_dhcpv4_notice notice;
    EXPECT_FALSE(parse(std::string(1 << 20, 'A'), &notice));
    EXPECT_FALSE(parse(with(ADD, 2, std::string(1 << 20, '0')), &notice));
    ASSERT_TRUE(parse(with(ADD, 12, std::string(1 << 20, 'c')), &notice));
    EXPECT_EQ(std::string(notice.product_class), std::string(64, 'c'));
}

} // namespace dhcpv4_notice_test
