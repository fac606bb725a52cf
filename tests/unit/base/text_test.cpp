// Text forms of MAC and IP addresses, and copies into fixed fields.
#include <arpa/inet.h>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <sys/socket.h>

#include "base/text.h"

namespace text_test {

constexpr uint8_t MAC[6] = {0x02, 0xaa, 0x00, 0x0f, 0xB0, 0x11};

TEST(MacText, IsLowerCasePairsWithColons) {
    EXPECT_STREQ("02:aa:00:0f:b0:11", hbs_mac_to_text(MAC).text);
}

TEST(MacText, IsUpperCaseTowardsWifiAndTr069) {
    EXPECT_STREQ("02:AA:00:0F:B0:11", hbs_mac_to_text_upper(MAC).text);
}

struct MacCase {
    const char *text;
    int converted;
    std::array<uint8_t, 6> mac;
};

std::ostream &operator<<(std::ostream &out, const MacCase &c) {
    return out << (c.text != nullptr ? c.text : "null");
}

class TextToMac : public testing::TestWithParam<MacCase> {};

TEST_P(TextToMac, CountsAndStoresTheConvertedBytes) {
    std::array<uint8_t, 6> mac;
    mac.fill(0xEE);
    EXPECT_EQ(GetParam().converted, hbs_text_to_mac(GetParam().text, mac.data()));
    EXPECT_EQ(GetParam().mac, mac);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, TextToMac,
    testing::Values(MacCase{"02:aa:00:0f:b0:11", 6, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0x11}},
                    MacCase{"02:AA:00:0F:B0:11", 6, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0x11}},
                    MacCase{"2:a:0:f:b:1", 6, {2, 10, 0, 15, 11, 1}},
                    MacCase{"02:aa:00:0f:b0:1g", 6, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0x01}},
                    MacCase{"02:aa:00:0f:b0:111", 6, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0x11}},
                    MacCase{" 2:aa:00:0f:b0:11", 6, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0x11}},
                    MacCase{"02:aa:00:0f:b0-11", 5, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0}},
                    MacCase{"02:aa:00:0f:b0", 5, {0x02, 0xaa, 0x00, 0x0f, 0xb0, 0}},
                    MacCase{"02-aa-00-0f-b0-11", 1, {0x02, 0, 0, 0, 0, 0}},
                    MacCase{"02:xx:00:00:00:00", 1, {0x02, 0, 0, 0, 0, 0}}, MacCase{"garbage", 0, {}},
                    MacCase{"", 0, {}}, MacCase{nullptr, 0, {}}));

TEST(NumberText, IsThatOfPrintf) {
    for (int number : {0, 7, -1, 10, 255, -2, 1000000000, INT_MAX, INT_MIN}) {
        char text[12];
        const char *end = hbs_number_to_text(number, text);
        EXPECT_EQ(std::to_string(number), text);
        EXPECT_EQ(text + strlen(text), end);
    }
}

TEST(BytesText, HasASeparatorBetweenThePairs) {
    const uint8_t bytes[3] = {0x0a, 0xff, 0x10};
    char text[9];
    hbs_bytes_to_hex(bytes, 3, ' ', HBS_HEX_DIGITS, text);
    EXPECT_STREQ("0a ff 10", text);
    hbs_bytes_to_hex(bytes, 1, ':', HBS_HEX_DIGITS_UPPER, text);
    EXPECT_STREQ("0A", text);
}

TEST(HexDigit, HasItsValue_AnyOtherByteNone) {
    for (int byte = 0; byte < 256; byte++) {
        const char text[2] = {static_cast<char>(byte), '\0'};
        const bool is_digit = strspn(text, "0123456789abcdefABCDEF") == 1;
        EXPECT_EQ(is_digit ? strtol(text, nullptr, 16) : -1, hbs_hex_digit(text[0])) << byte;
    }
}

TEST(MacNumber, HasByteZeroMostSignificant) {
    EXPECT_EQ(0x02aa000fb011u, hbs_mac_to_number(MAC));
    const uint8_t low[6] = {0, 0, 0, 0, 0, 1};
    EXPECT_EQ(1u, hbs_mac_to_number(low));
}

TEST(ZeroTests, LookAtEveryByte) {
    for (size_t i = 0; i < 16; ++i) {
        uint8_t bytes[16] = {};
        EXPECT_TRUE(hbs_mac_is_zero(bytes) && hbs_ipv4_is_zero(bytes) && hbs_ipv6_is_zero(bytes));
        bytes[i] = 1;
        EXPECT_EQ(i >= 6, hbs_mac_is_zero(bytes)) << i;
        EXPECT_EQ(i >= 4, hbs_ipv4_is_zero(bytes)) << i;
        EXPECT_FALSE(hbs_ipv6_is_zero(bytes)) << i;
    }
}

TEST(AddressText, IsAsTheCLibraryWritesIt_ForEachByteAtEachPlace) {
    for (int byte = 0; byte < 256; byte++) {
        for (size_t at = 0; at < 4; at++) {
            uint8_t ipv4[4] = {10, 0, 99, 100};
            ipv4[at] = static_cast<uint8_t>(byte);
            char expected[INET_ADDRSTRLEN];
            ASSERT_NE(nullptr, inet_ntop(AF_INET, ipv4, expected, sizeof expected));
            ASSERT_STREQ(expected, hbs_ipv4_to_text(ipv4).text);
        }
    }
}

TEST(AddressText, IsDottedQuadForIpv4) {
    const uint8_t address[4] = {192, 168, 0, 11};
    EXPECT_STREQ("192.168.0.11", hbs_ipv4_to_text(address).text);
    const uint8_t longest[4] = {255, 255, 255, 255};
    EXPECT_STREQ("255.255.255.255", hbs_ipv4_to_text(longest).text);
}

TEST(AddressText, IsTheUsualFormForIpv6) {
    uint8_t address[16] = {0xfd, 0, 0, 2};
    address[15] = 0x11;
    EXPECT_STREQ("fd00:2::11", hbs_ipv6_to_text(address).text);
    const uint8_t none[16] = {};
    EXPECT_STREQ("::", hbs_ipv6_to_text(none).text);
}

TEST(AddressNumber, HasTheFirstByteMostSignificantOnEveryAbi) {
    const uint8_t address[4] = {192, 168, 0, 11};
    EXPECT_EQ(0xC0A8000Bu, hbs_ipv4_to_number(address));
    uint8_t back[4];
    hbs_ipv4_from_number(0xC0A8000Bu, back);
    EXPECT_EQ(0, memcmp(address, back, 4));
}

TEST(Multicast, IsFirstByte224To239ForIpv4) {
    for (int first = 0; first < 256; ++first) {
        const uint8_t address[4] = {static_cast<uint8_t>(first), 1, 2, 3};
        EXPECT_EQ(first >= 224 && first <= 239, hbs_address_is_multicast(AF_INET, address)) << first;
    }
}

TEST(Multicast, IsFirstByte255ForIpv6) {
    for (int first = 0; first < 256; ++first) {
        const uint8_t address[16] = {static_cast<uint8_t>(first)};
        EXPECT_EQ(first == 255, hbs_address_is_multicast(AF_INET6, address)) << first;
    }
}

TEST(Multicast, IsNeverAnotherFamily) {
    const uint8_t address[16] = {255};
    EXPECT_FALSE(hbs_address_is_multicast(AF_UNIX, address));
}

TEST(CopyText, CutsAndTerminatesInsideTheField) {
    char field[8];
    memset(field, 'x', sizeof field);
    hbs_copy_text(field, sizeof field, "exactly-too-long");
    EXPECT_STREQ("exactly", field);
}

TEST(CopyText, FillsTheRestWithZeros) {
    char field[8];
    memset(field, 'x', sizeof field);
    hbs_copy_text(field, sizeof field, "ab");
    EXPECT_EQ(0, memcmp(field, "ab\0\0\0\0\0\0", sizeof field));
}

TEST(CopyText, MayCopyAFieldOntoItself) {
    char field[8] = "same";
    hbs_copy_text(field, sizeof field, field);
    EXPECT_STREQ("same", field);
}

} // namespace text_test
