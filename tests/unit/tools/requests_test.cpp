// Every datagram, byte by byte at the offsets that the daemon reads.
#include <bit>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/requests.h"

namespace requests_test {

using bytes = std::vector<uint8_t>;

struct piece {
    size_t offset;
    bytes content;
};

struct expectation {
    const char *name;
    std::function<datagram()> build;
    size_t size;
    std::vector<piece> pieces; // everything else is zero
};

bytes u16(uint16_t value) {
    const auto raw = std::bit_cast<std::array<uint8_t, 2>>(value);
    return bytes(raw.begin(), raw.end());
}

bytes u32(uint32_t value) {
    const auto raw = std::bit_cast<std::array<uint8_t, 4>>(value);
    return bytes(raw.begin(), raw.end());
}

bytes text(const std::string &value) {
    return bytes(value.begin(), value.end());
}

const mac_bytes mac = {0x02, 0xaa, 0, 0, 0, 0x11};
const bytes mac_raw(mac.begin(), mac.end());
const mac_bytes other_mac = {0x02, 0xbb, 0, 0, 0, 0x22};
const bytes other_mac_raw(other_mac.begin(), other_mac.end());
const ip_address v4 = *parse_ip("192.168.0.11");
const bytes v4_raw = {192, 168, 0, 11};
const ip_address v6 = *parse_ip("2001:db8::1");
const bytes v6_raw = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const ip_address ll = *parse_ip("fe80::11");
const bytes ll_raw = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x11};

filter_request full_filter(hbs_code code) {
    filter_request filter;
    filter.code = code;
    filter.list = 2;
    filter.mac = mac;
    filter.new_mac = other_mac;
    filter.rule = {0xabcdef01, 1002, 1003, 1004, 1005, 1006};
    filter.rule_word = 7;
    filter.filter_word = 8;
    filter.comment = "c";
    filter.description = "d";
    filter.keywords = "k";
    filter.domains = "m";
    return filter;
}

std::vector<piece> filter_pieces(uint8_t code) {
    return {{0, {code}},      {1, {2}},         {2, mac_raw},     {8, u32(0xabcdef01)},
            {12, u16(1002)},  {14, u16(1003)},  {16, text("c")},  {272, other_mac_raw},
            {280, u32(7)},    {284, u32(1004)}, {288, u32(1005)}, {292, u32(1006)},
            {296, text("d")}, {552, text("k")}, {808, text("m")}, {1064, u32(8)}};
}

dhcpv4_lease full_lease(hbs_code code) {
    return {code, mac, v4.ipv4, true, 3600, "laptop", "l2sd0.2", "00AA11", "SN", "PC", "f", 1, 5};
}

std::vector<piece> lease_pieces(uint8_t code) {
    return {{0, {code}},
            {1, mac_raw},
            {8, v4_raw},
            {12, u32(1)},
            {16, u32(3600)},
            {20, text("laptop")},
            {148, text("l2sd0.2")},
            {212, text("00AA11")},
            {219, text("SN")},
            {284, text("PC")},
            {349, text("f")},
            {608, u32(1)},
            {612, u32(5)}};
}

const expectation expectations[] = {
    {"RouteModeBridge", [] { return request_route_mode(false); }, 2, {{0, {1}}}},
    {"RouteModeRouted", [] { return request_route_mode(true); }, 2, {{0, {1}}, {1, {1}}}},
    {"SetStaticLeaseV4",
     [] {
         return request_set_static_lease({3, v4, mac, "comment", "host"});
     },
     354,
     {{0, {2}},
      {2, u16(3)},
      {4, u16(2)},
      {8, v4_raw},
      {28, mac_raw},
      {34, text("comment")},
      {290, text("host")}}},
    {"SetStaticLeaseV6",
     [] {
         return request_set_static_lease({0, v6, mac, "", ""});
     },
     354,
     {{0, {2}}, {4, u16(10)}, {12, v6_raw}, {28, mac_raw}}},
    {"ClearStaticLeaseV4",
     [] { return request_clear_static_lease(v4); },
     28,
     {{0, {3}}, {4, u16(2)}, {8, v4_raw}}},
    {"ClearStaticLeaseV6",
     [] { return request_clear_static_lease(v6); },
     28,
     {{0, {3}}, {4, u16(10)}, {12, v6_raw}}},
    {"SetInternalLeaseV4",
     [] { return request_set_internal_lease(mac, v4); },
     30,
     {{0, {4}}, {2, u16(2)}, {4, v4_raw}, {24, mac_raw}}},
    {"SetInternalLeaseV6",
     [] { return request_set_internal_lease(mac, v6); },
     30,
     {{0, {4}}, {2, u16(10)}, {8, v6_raw}, {24, mac_raw}}},
    {"TrustByMac",
     [] {
         return request_trust(HBS_CMD_SET_TRUSTED, 1, {0x11, mac, {}}, "note");
     },
     288,
     {{0, {5}}, {1, {1}}, {2, {0x11}}, {3, mac_raw}, {32, text("note")}}},
    {"TrustByIpv4",
     [] {
         return request_trust(HBS_CMD_SET_TRUSTED, 2, {0x12, {}, v4}, "");
     },
     288,
     {{0, {5}}, {1, {2}}, {2, {0x12}}, {12, v4_raw}}},
    {"ClearTrustByIpv6",
     [] {
         return request_trust(HBS_CMD_CLR_TRUSTED, 1, {0x13, {}, v6}, "");
     },
     288,
     {{0, {6}}, {1, {1}}, {2, {0x13}}, {16, v6_raw}}},
    {"SetMacFilter", [] { return request_filter(full_filter(HBS_CMD_SET_MACFILTER)); }, 1068,
     filter_pieces(7)},
    {"ClearMacFilter", [] { return request_filter(full_filter(HBS_CMD_CLR_MACFILTER)); }, 1068,
     filter_pieces(8)},
    {"ClearRule", [] { return request_filter(full_filter(HBS_CMD_CLR_RULE_TOD)); }, 1068, filter_pieces(11)},
    {"SetRule", [] { return request_filter(full_filter(HBS_CMD_SET_RULE_TOD)); }, 1068, filter_pieces(12)},
    {"ModifyMacFilter", [] { return request_filter(full_filter(HBS_CMD_MOD_MACFILTER)); }, 1068,
     filter_pieces(13)},
    {"ResetDefaults", [] { return request_plain(HBS_CMD_RESET_DEFAULTS); }, 1, {{0, {9}}}},
    {"Dump", [] { return request_plain(HBS_CMD_DUMP); }, 1, {{0, {14}}}},
    {"XwifiChanged", [] { return request_plain(HBS_EVENT_XWIFI_CHANGED); }, 1, {{0, {112}}}},
    {"ServerStarted", [] { return event_server(2, true); }, 12, {{0, {101}}, {4, u32(2)}, {8, u32(1)}}},
    {"ServerStopped", [] { return event_server(8, false); }, 12, {{0, {101}}, {4, u32(8)}}},
    {"SubnetInHostOrder",
     [] {
         return event_subnet(1, v4.ipv4, {10, 0, 0, 1}, 24);
     },
     20,
     {{0, {102}}, {4, u32(1)}, {8, u32(0xC0A8000B)}, {12, u32(0x0A000001)}, {16, u32(24)}}},
    {"WifiAssoc",
     [] { return event_wifi_assoc(HBS_EVENT_WIFI_ASSOC, mac, 9); },
     28,
     {{0, {103}}, {1, text("02:aa:00:00:00:11")}, {24, u32(9)}}},
    {"WifiDisassoc",
     [] { return event_wifi_assoc(HBS_EVENT_WIFI_DISASSOC, mac, 1); },
     28,
     {{0, {104}}, {1, text("02:aa:00:00:00:11")}, {24, u32(1)}}},
    {"WifiInfo", [] { return event_wifi_info(mac); }, 10, {{0, {110}}, {4, mac_raw}}},
    {"Dhcpv4Lease", [] { return event_dhcpv4_lease(full_lease(HBS_EVENT_DHCPV4_LEASE)); }, 616,
     lease_pieces(105)},
    {"Dhcpv4Info", [] { return event_dhcpv4_lease(full_lease(HBS_EVENT_DHCPV4_INFO)); }, 616,
     lease_pieces(107)},
    {"Dhcpv4LeaseOfUnknownPlace",
     [] { return event_dhcpv4_lease({}); },
     616,
     {{0, {105}}, {12, u32(1)}, {608, u32(0xFFFFFFFF)}, {612, u32(0xFFFFFFFF)}}},
    {"Dhcpv4Release",
     [] { return event_dhcpv4_release(mac, v4.ipv4, true, 60); },
     20,
     {{0, {109}}, {1, mac_raw}, {8, v4_raw}, {12, u32(1)}, {16, u32(60)}}},
    {"Dhcpv6Lease",
     [] {
         return event_dhcpv6_lease({ll.ipv6, v6.ipv6, 1795217411, "laptop", "00AA11", "SN", "PC", "f"});
     },
     433,
     {{0, {106}},
      {1, ll_raw},
      {17, v6_raw},
      {36, u32(1795217411)},
      {40, text("laptop")},
      {168, text("00AA11")},
      {175, text("SN")},
      {240, text("PC")},
      {305, text("f")}}},
    {"Dhcpv6Release",
     [] { return event_dhcpv6_release(ll.ipv6, v6.ipv6); },
     33,
     {{0, {108}}, {1, ll_raw}, {17, v6_raw}}},
    {"CommentHostV4",
     [] { return request_comment_host(v4, "comment", "host"); },
     344,
     {{0, {111}}, {2, u16(2)}, {4, v4_raw}, {24, text("comment")}, {280, text("host")}}},
    {"CommentHostV6",
     [] { return request_comment_host(v6, "", ""); },
     344,
     {{0, {111}}, {2, u16(10)}, {8, v6_raw}}},
};

class Datagram : public testing::TestWithParam<expectation> {};

TEST_P(Datagram, HasEachFieldAtItsOffset) {
    const expectation &expected = GetParam();
    bytes wanted(expected.size, 0);
    for (const piece &one : expected.pieces) {
        ASSERT_LE(one.offset + one.content.size(), wanted.size());
        std::copy(one.content.begin(), one.content.end(), wanted.begin() + static_cast<long>(one.offset));
    }
    EXPECT_EQ(expected.build(), wanted);
}

std::string name_of(const testing::TestParamInfo<expectation> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, Datagram, testing::ValuesIn(expectations), name_of);

TEST(DatagramText, FillsItsFieldToTheLastByteButOne) {
    const datagram message = request_comment_host(v4, std::string(255, 'c'), std::string(63, 'h'));
    EXPECT_EQ(message[24 + 254], 'c');
    EXPECT_EQ(message[24 + 255], 0);
    EXPECT_EQ(message[280 + 62], 'h');
    EXPECT_EQ(message[280 + 63], 0);
}

TEST(DatagramText, PassesEveryByteThrough) {
    const std::string hostile = "a'b\"c\\d;$(reboot)\n\x01\xff/&";
    const datagram message = request_comment_host(v4, hostile, "");
    EXPECT_EQ(std::string(message.begin() + 24, message.begin() + 24 + static_cast<long>(hostile.size())),
              hostile);
}

TEST(DatagramText, ThatIsTooLongIsRefusedByItsName) {
    const std::string too_long(256, 'x');
    const auto refused = [](const std::function<datagram()> &build) -> std::string {
        try {
            (void)build();
        } catch (const request_error &error) {
            return error.what();
        }
        return "not refused";
    };
    EXPECT_EQ(refused([&] { return request_comment_host(v4, too_long, ""); }),
              "the comment is too long: at most 255 bytes");
    EXPECT_EQ(refused([&] { return request_comment_host(v4, "", std::string(64, 'x')); }),
              "the host name is too long: at most 63 bytes");
    EXPECT_EQ(refused([&] { return request_trust(HBS_CMD_SET_TRUSTED, 1, {}, too_long); }),
              "the comment is too long: at most 255 bytes");
    const auto with = [&](std::string filter_request::*field) {
        filter_request filter;
        filter.*field = too_long;
        return refused([&] { return request_filter(filter); });
    };
    EXPECT_EQ(with(&filter_request::description), "the description is too long: at most 255 bytes");
    EXPECT_EQ(with(&filter_request::keywords), "the keyword list is too long: at most 255 bytes");
    EXPECT_EQ(with(&filter_request::domains), "the domain list is too long: at most 255 bytes");
    const auto lease_with = [&](std::string dhcpv4_lease::*field) {
        dhcpv4_lease lease;
        lease.*field = std::string(300, 'x');
        return refused([&] { return event_dhcpv4_lease(lease); });
    };
    EXPECT_EQ(lease_with(&dhcpv4_lease::host), "the host name is too long: at most 127 bytes");
    EXPECT_EQ(lease_with(&dhcpv4_lease::ifname), "the interface name is too long: at most 63 bytes");
    EXPECT_EQ(lease_with(&dhcpv4_lease::oui), "the OUI is too long: at most 6 bytes");
    EXPECT_EQ(lease_with(&dhcpv4_lease::serial_number), "the serial number is too long: at most 64 bytes");
    EXPECT_EQ(lease_with(&dhcpv4_lease::product_class), "the product class is too long: at most 64 bytes");
    EXPECT_EQ(lease_with(&dhcpv4_lease::lease_file), "the lease file name is too long: at most 258 bytes");
}

TEST(Rule, HasThreeOrSixValuesTheFirstOfThemHexadecimal) {
    const rule_values three = parse_rule("7f,1,65535");
    EXPECT_EQ(three.value1, 0x7fu);
    EXPECT_EQ(three.value2, 1u);
    EXPECT_EQ(three.value3, 65535u);
    EXPECT_EQ(three.value4, 0u);
    const rule_values six = parse_rule("ffffffff,1,2,3,4,4294967295");
    EXPECT_EQ(six.value1, 0xffffffffu);
    EXPECT_EQ(six.value4, 3u);
    EXPECT_EQ(six.value5, 4u);
    EXPECT_EQ(six.value6, 4294967295u);
}

TEST(Rule, OfAnyOtherFormIsRefused) {
    for (const char *text :
         {"", "1", "1,2", "1,2,3,4", "1,2,3,4,5", "1,2,3,4,5,6,7", "1,2,3,", ",1,2", "1,,2", "x,1,2",
          "1,2,65536", "1,-2,3", "100000000,1,2", "1,2,3 ", "1 2 3", "1,2,3,4,5,6,"})
        EXPECT_THROW((void)parse_rule(text), request_error) << text;
}

} // namespace requests_test
