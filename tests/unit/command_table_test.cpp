// Every row of the command table: what it logs, which handler it calls with which fields, what it answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_fakes.h"
#include "daemon/command_table.h"
#include "daemon/dispatcher.h"

using testing::ElementsAreArray;

namespace {

constexpr const char *TAG = "len 6 : 2f 74 6d 70 2f 61";

using bytes = std::vector<uint8_t>;

constexpr uint8_t MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
constexpr uint8_t NEW_MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x22};
constexpr uint8_t IPV4[4] = {192, 168, 0, 10};
constexpr uint8_t IPV6[16] = {0xfd, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10};
constexpr uint8_t LL[16] = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x11};

// Builds a datagram by offsets, as a sender of another program would.
struct Datagram {
    bytes data;

    explicit Datagram(uint8_t code) : data(HBS_MSG_MAX, 0) { data[0] = code; }

    template <size_t size> Datagram &raw(size_t offset, const uint8_t (&value)[size]) {
        memcpy(&data[offset], value, size);
        return *this;
    }
    Datagram &u8(size_t offset, uint8_t value) {
        data[offset] = value;
        return *this;
    }
    Datagram &u16(size_t offset, uint16_t value) {
        memcpy(&data[offset], &value, sizeof(value));
        return *this;
    }
    Datagram &u32(size_t offset, uint32_t value) {
        memcpy(&data[offset], &value, sizeof(value));
        return *this;
    }
    Datagram &text(size_t offset, const std::string &value) {
        memcpy(&data[offset], value.data(), value.size());
        return *this;
    }
    Datagram &fill(size_t offset, size_t size, char value) {
        memset(&data[offset], value, size);
        return *this;
    }
};

// Result that a reply carries before a datagram is dispatched.
constexpr int32_t CARRIED = 77;

struct Outcome {
    trace::list lines; // the reply stands among them as "reply N"
    int32_t result;
};

Outcome dispatch(const Datagram &datagram, int32_t carried = CARRIED) {
    fake::buffer = datagram.data.data();
    hbs_command command{};
    command.buffer = datagram.data.data();
    command.sender = TAG;
    command.result = carried;
    if (hbs_dispatch(&command)) {
        trace::add(std::string("reply ") + command.result);
    }
    hbs_dispatch_after(&command);
    return {trace::take(), command.result};
}

class CommandTable : public testing::Test {
  protected:
    void SetUp() override {
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        fake::reset();
        memcpy(fake::client.mac, MAC, sizeof(MAC));
        fake::client.dbpos = 4242;
    }
};

struct Row {
    const char *name; // of the case
    Datagram datagram;
    trace::list ready;     // the whole trace, the fake handlers answering 0 and finding the client
    trace::list not_ready; // the same with hbs_db_ready 0
};

void PrintTo(const Row &row, std::ostream *out) {
    *out << row.name;
}

std::string tagged(std::string text) {
    return text.replace(text.find("TAG"), 3, TAG);
}

std::string locked_log(const std::string &text) {
    return "locked log HOSTBASE: " + text;
}

Datagram filter(uint8_t code) {
    return Datagram(code)
        .u8(1, 2)
        .raw(2, MAC)
        .u32(8, 0xbeef)
        .u16(12, 2)
        .u16(14, 3)
        .text(16, "remark")
        .raw(272, NEW_MAC)
        .u32(280, 9)
        .u32(284, 4)
        .u32(288, 5)
        .u32(292, 6)
        .text(296, "described")
        .text(552, "keywords")
        .text(808, "domains")
        .u32(1064, 99);
}

Datagram dhcpv4(uint8_t code) {
    return Datagram(code)
        .raw(1, MAC)
        .raw(8, IPV4)
        .u32(12, 1)
        .u32(16, 3600)
        .text(20, "laptop")
        .text(148, "l2sd0.2")
        .text(212, "001122")
        .text(219, "serial")
        .text(284, "class")
        .text(349, "lease")
        .u32(608, HBS_UNKNOWN_U32)
        .u32(612, 5);
}

Datagram dhcpv6(uint8_t code) {
    return Datagram(code)
        .raw(1, LL)
        .raw(17, IPV6)
        .u32(36, 1800000000)
        .text(40, "laptop.lan")
        .text(168, "001122")
        .text(175, "serial")
        .text(240, "class")
        .text(305, "lease6");
}

const std::string RESPONSE_TO_0 = tagged(locked_log("Send response to 0 to TAG"));
const std::string RESPONSE_TO_77 = tagged(locked_log("Send response to 77 to TAG"));
const std::string RESPONSE_0 = tagged(locked_log("Send response 0 to TAG"));
const std::string RESPONSE_77 = tagged(locked_log("Send response 77 to TAG"));

const std::string FILTER_VALUES = "beef 2 3 4 5 6 'remark' 'described' 'keywords' 'domains' 99";

std::vector<Row> rows() {
    const std::string set_static = tagged(locked_log("SET STATIC LEASE CMD from TAG"));
    const std::string static_number = "locked log HBS_CMD_SET_STATIC_LEASE: address is 0xc0a8000a\n";
    const std::string clr_static = tagged(locked_log("CLEAR STATIC LEASE CMD from TAG"));
    const std::string set_internal = tagged(locked_log("SET INTERNAL LEASE CMD from TAG"));
    const std::string internal_number = "locked log HBS_CMD_SET_INTERNAL_LEASE: address is 0xc0a8000a\n";
    const std::string by_mac = tagged(locked_log("SET TRUSTED BY MAC 02:aa:00:00:00:11 from TAG"));
    const std::string by_ipv4 = tagged(locked_log("SET TRUSTED BY IPV4 192.168.0.10 from TAG"));
    const std::string by_ipv6 = tagged(locked_log("SET TRUSTED BY IPV6 fd00:2::10 from TAG"));
    const std::string clr_trusted = tagged(locked_log("CLR TRUSTED CMD from TAG"));
    const std::string set_filter = locked_log("un_listen_thread: HBS_CMD_SET_MACFILTER : comment is remark");
    const std::string clr_filter = locked_log("un_listen_thread: HBS_CMD_CLR_MACFILTER");
    const std::string route_mode = "log HOSTBASE: un_listen_thread: HBS_CMD_SET_ROUTE_MODE : 1";
    const std::string reset = tagged("log HOSTBASE: HBS_CMD_RESET_DEFAULTS from TAG");
    const std::string server = tagged("log HOSTBASE: HBS_EVENT_SERVER from TAG index 2, started 1");
    const std::string subnet = tagged(locked_log("HBS_EVENT_SUBNET_MASK from TAG"));
    const std::string assoc = tagged(locked_log("WIFI ASSOC EVT from TAG : mac 02:AA:00:00:00:11, index 3"));
    const std::string disassoc = tagged(locked_log("WIFI DISASSOC EVT from TAG : mac 02:AA:00:00:00:11"));
    const std::string info = tagged(locked_log("WIFI ASSOC INFO INFO UPDATE EVT from TAG"));
    const std::string lease4 =
        tagged(locked_log("DHCPV4 LEASE EVT from TAG : mac 02:aa:00:00:00:11, ip 192.168.0.10"));
    const std::string lease6 =
        tagged(locked_log("DHCPV6 LEASE EVT from TAG : address fd00:2::10 (fe80::11)"));
    const std::string release6 =
        tagged(locked_log("DHCPV6 RELEASE EVT from TAG : address fd00:2::10 (fe80::11)"));
    const std::string xwifi = locked_log("HBS XWIFI CHANGED event received");
    const std::string clear_black =
        "locked clear rules /nvram/8/client_black_rules.txt 02:aa:00:00:00:11 beef 2 3";
    const std::string update_black =
        "locked update rules /nvram/8/client_black_rules.txt 02:aa:00:00:00:11 beef 2 3 4 5 6";
    return {
        {"RouteMode",
         Datagram(1).u8(1, 1),
         {route_mode, "locked route mode 1", RESPONSE_TO_0, "reply 0"},
         {route_mode, "locked route mode 1", RESPONSE_TO_0, "reply 0"}},
        {"SetStaticLeaseIpv4",
         Datagram(2)
             .u16(2, 0x0108)
             .u16(4, 2)
             .raw(8, IPV4)
             .raw(28, MAC)
             .text(34, "remark")
             .text(290, "printer"),
         {set_static, static_number,
          "locked set static lease 8 192.168.0.10 02:aa:00:00:00:11 'remark' 'printer'", RESPONSE_0,
          "reply 0", "tr69 1 buffer"},
         {set_static, static_number, RESPONSE_77, "reply 77", "tr69 1 buffer"}},
        {"SetStaticLeaseIpv6",
         Datagram(2).u16(4, 10).raw(12, IPV6).raw(28, MAC),
         {set_static, "locked set static lease 0 fd00:2::10 02:aa:00:00:00:11 '' ''", RESPONSE_0, "reply 0",
          "tr69 1 buffer"},
         {set_static, RESPONSE_77, "reply 77", "tr69 1 buffer"}},
        {"SetStaticLeaseUnknownFamily",
         Datagram(2).u16(4, 7).raw(8, IPV4),
         {set_static, RESPONSE_77, "reply 77", "tr69 1 buffer"},
         {set_static, RESPONSE_77, "reply 77", "tr69 1 buffer"}},
        {"ClrStaticLeaseIpv4",
         Datagram(3).u16(4, 2).raw(8, IPV4),
         {"tr69 2 buffer", clr_static, "locked clr static lease 192.168.0.10", RESPONSE_TO_0, "reply 0"},
         {"tr69 2 buffer", clr_static, RESPONSE_TO_77, "reply 77"}},
        {"ClrStaticLeaseIpv6",
         Datagram(3).u16(4, 10).raw(12, IPV6),
         {"tr69 2 buffer", clr_static, "locked clr static lease fd00:2::10", RESPONSE_TO_0, "reply 0"},
         {"tr69 2 buffer", clr_static, RESPONSE_TO_77, "reply 77"}},
        {"ClrStaticLeaseUnknownFamily",
         Datagram(3).u16(4, 7),
         {"tr69 2 buffer", clr_static, RESPONSE_TO_77, "reply 77"},
         {"tr69 2 buffer", clr_static, RESPONSE_TO_77, "reply 77"}},
        {"SetInternalLeaseIpv4",
         Datagram(4).u16(2, 2).raw(4, IPV4).raw(24, MAC),
         {set_internal, internal_number, "locked set internal lease 192.168.0.10 02:aa:00:00:00:11",
          RESPONSE_0, "reply 0"},
         {set_internal, internal_number, RESPONSE_77, "reply 77"}},
        {"SetInternalLeaseIpv6",
         Datagram(4).u16(2, 10).raw(8, IPV6).raw(24, MAC),
         {set_internal, "locked set internal lease fd00:2::10 02:aa:00:00:00:11", RESPONSE_0, "reply 0"},
         {set_internal, RESPONSE_77, "reply 77"}},
        {"SetInternalLeaseUnknownFamily",
         Datagram(4).u16(2, 3),
         {set_internal, RESPONSE_77, "reply 77"},
         {set_internal, RESPONSE_77, "reply 77"}},
        {"SetTrustedByMac",
         Datagram(5).u8(1, 1).u8(2, 0x11).raw(3, MAC).text(32, "mine"),
         {by_mac, "locked trust 1 1 02:aa:00:00:00:11 'mine'", RESPONSE_TO_0, "reply 0"},
         {by_mac, RESPONSE_TO_77, "reply 77"}},
        {"SetTrustedByIpv4",
         Datagram(5).u8(1, 2).u8(2, 0x12).raw(12, IPV4).text(32, "mine"),
         {by_ipv4, "locked trust 2 1 192.168.0.10 'mine'", RESPONSE_TO_0, "reply 0"},
         {by_ipv4, RESPONSE_TO_77, "reply 77"}},
        {"SetTrustedByIpv6",
         Datagram(5).u8(1, 1).u8(2, 0x13).raw(16, IPV6).text(32, "mine"),
         {by_ipv6, "locked trust 1 1 fd00:2::10 'mine'", RESPONSE_TO_0, "reply 0"},
         {by_ipv6, RESPONSE_TO_77, "reply 77"}},
        {"SetTrustedUnknownSelector",
         Datagram(5).u8(1, 1).u8(2, 0x14),
         {locked_log("un_listen_thread: HBS_CMD_SET_TRUSTED trust action unknown"),
          tagged(locked_log("Send response to -1 to TAG")), "reply -1"},
         {RESPONSE_TO_77, "reply 77"}},
        {"ClrTrustedByMac",
         Datagram(6).u8(1, 1).u8(2, 0x11).raw(3, MAC).text(32, "not read"),
         {clr_trusted, "locked trust 1 0 02:aa:00:00:00:11 ''", RESPONSE_TO_0, "reply 0"},
         {clr_trusted, RESPONSE_TO_77, "reply 77"}},
        {"ClrTrustedByIpv4",
         Datagram(6).u8(1, 2).u8(2, 0x12).raw(12, IPV4),
         {clr_trusted, "locked trust 2 0 192.168.0.10 ''", RESPONSE_TO_0, "reply 0"},
         {clr_trusted, RESPONSE_TO_77, "reply 77"}},
        {"ClrTrustedByIpv6",
         Datagram(6).u8(1, 2).u8(2, 0x13).raw(16, IPV6),
         {clr_trusted, "locked trust 2 0 fd00:2::10 ''", RESPONSE_TO_0, "reply 0"},
         {clr_trusted, RESPONSE_TO_77, "reply 77"}},
        {"ClrTrustedUnknownSelector",
         Datagram(6).u8(2, 0x10),
         {clr_trusted, locked_log("un_listen_thread: HBS_CMD_CLR_TRUSTED trust action unknown"),
          tagged(locked_log("Send response to -1 to TAG")), "reply -1"},
         {clr_trusted, RESPONSE_TO_77, "reply 77"}},
        {"SetMacFilter",
         filter(7),
         {set_filter, "locked set filter 2 02:aa:00:00:00:11 " + FILTER_VALUES, RESPONSE_TO_0, "reply 0"},
         {set_filter, RESPONSE_TO_77, "reply 77"}},
        {"ClrMacFilter",
         filter(8),
         {clr_filter, "locked clr filter 2 02:aa:00:00:00:11 " + FILTER_VALUES, RESPONSE_TO_0, "reply 0"},
         {clr_filter, RESPONSE_TO_77, "reply 77"}},
        {"ResetDefaults",
         Datagram(9),
         {reset, "locked reset", RESPONSE_TO_0, "reply 0"},
         {reset, "locked reset", RESPONSE_TO_0, "reply 0"}},
        {"ClrRuleTod",
         filter(11),
         {"locked find 02:aa:00:00:00:11", clear_black,
          "locked remove rule index 2 02:aa:00:00:00:11 beef 2 3", RESPONSE_TO_0, "reply 0"},
         {"locked find 02:aa:00:00:00:11", clear_black,
          "locked remove rule index 2 02:aa:00:00:00:11 beef 2 3", RESPONSE_TO_0, "reply 0"}},
        {"SetRuleTod",
         filter(12),
         {"locked find 02:aa:00:00:00:11", update_black,
          "locked update rule index 2 02:aa:00:00:00:11 beef 2 3 4242 4 5 6 at 9", RESPONSE_TO_0, "reply 0"},
         {"locked find 02:aa:00:00:00:11", update_black,
          "locked update rule index 2 02:aa:00:00:00:11 beef 2 3 4242 4 5 6 at 9", RESPONSE_TO_0, "reply 0"}},
        {"ModMacFilter",
         filter(13),
         {"locked set filter 2 02:aa:00:00:00:22 " + FILTER_VALUES,
          "locked clr filter 2 02:aa:00:00:00:11 " + FILTER_VALUES, RESPONSE_TO_0, "reply 0"},
         {RESPONSE_TO_77, "reply 77"}},
        {"Dump", Datagram(14), {"locked dump", "reply 0"}, {"locked dump", "reply 0"}},
        {"Server",
         Datagram(101).u32(4, 2).u32(8, 1),
         {server, "locked dhcp server 2 1"},
         {server, "locked dhcp server 2 1"}},
        {"SubnetMask",
         Datagram(102).u32(4, 1).u32(8, 0xc0a80001).u32(12, 0xc0a80101).u32(16, 24),
         {subnet, "locked subnet 1 c0a80001 c0a80101 24",
          tagged(locked_log("Send HBS_EVENT_SUBNET_MASK response to 0 to TAG")), "reply 0"},
         {subnet, tagged(locked_log("Send HBS_EVENT_SUBNET_MASK response to 77 to TAG")), "reply 77"}},
        {"WifiAssoc",
         Datagram(103).text(1, "02:AA:00:00:00:11").u32(24, 3),
         {assoc, "locked wifi association 02:aa:00:00:00:11 3"},
         {assoc}},
        {"WifiDisassoc",
         Datagram(104).text(1, "02:AA:00:00:00:11").u32(24, 3),
         {disassoc, "locked wifi disassociation 02:aa:00:00:00:11"},
         {disassoc}},
        {"Dhcpv4Lease",
         dhcpv4(105),
         {lease4,
          "locked dhcpv4 lease 02:aa:00:00:00:11 192.168.0.10 1 3600 'laptop' 'l2sd0.2' '001122' 'serial' "
          "'class' "
          "'lease' -1 5",
          "tr69 101 client 02:aa:00:00:00:11"},
         {lease4}},
        {"Dhcpv6Lease",
         dhcpv6(106),
         {lease6,
          "locked dhcpv6 lease fe80::11 fd00:2::10 1800000000 'laptop.lan' '001122' 'serial' 'class' "
          "'lease6'",
          "tr69 102 client 02:aa:00:00:00:11"},
         {lease6}},
        {"Dhcpv4Info",
         dhcpv4(107),
         {"locked dhcpv4 info 02:aa:00:00:00:11 192.168.0.10 -1 5", "tr69 103 client 02:aa:00:00:00:11"},
         {"tr69 103 none"}},
        {"Dhcpv6Release",
         dhcpv6(108),
         {release6, "locked dhcpv6 release none fe80::11", "tr69 104 client 02:aa:00:00:00:11"},
         {release6, "tr69 104 none"}},
        {"Dhcpv4Release",
         Datagram(109).raw(1, MAC).raw(8, IPV4).u32(12, 0xffffffff).u32(16, 60),
         {"locked dhcpv4 release 02:aa:00:00:00:11 192.168.0.10 -1 60"},
         {}},
        {"WifiAssocInfo", Datagram(110).raw(4, MAC), {info, "locked wifi info 02:aa:00:00:00:11"}, {info}},
        {"SetCommentHostIpv4",
         Datagram(111).u16(2, 2).raw(4, IPV4).text(24, "remark").text(280, "printer"),
         {"locked find 192.168.0.10", "locked comment host 1 'remark' 'printer'", RESPONSE_TO_0, "reply 0"},
         {RESPONSE_TO_77, "reply 77"}},
        {"SetCommentHostIpv6",
         Datagram(111).u16(2, 10).raw(8, IPV6).text(24, "remark").text(280, "printer"),
         {"locked find fd00:2::10", "locked comment host 1 'remark' 'printer'", RESPONSE_TO_0, "reply 0"},
         {RESPONSE_TO_77, "reply 77"}},
        {"SetCommentHostUnknownFamily",
         Datagram(111).u16(2, 5).raw(4, IPV4),
         {RESPONSE_TO_77, "reply 77"},
         {RESPONSE_TO_77, "reply 77"}},
        {"XwifiChanged", Datagram(112), {xwifi, "locked recheck hotspot"}, {xwifi}},
    };
}

class EachRow : public CommandTable, public testing::WithParamInterface<Row> {};

TEST_P(EachRow, WhenReady_DoesWhatItsCodeSays) {
    EXPECT_THAT(dispatch(GetParam().datagram).lines, ElementsAreArray(GetParam().ready));
}

TEST_P(EachRow, WhenNotReady_SkipsItsHandlerIfItNeedsReady) {
    hbs_db_ready = 0;
    EXPECT_THAT(dispatch(GetParam().datagram).lines, ElementsAreArray(GetParam().not_ready));
}

INSTANTIATE_TEST_SUITE_P(CommandTable, EachRow, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row> &row) { return std::string(row.param.name); });

TEST_F(CommandTable, EveryCodeOfTheProtocolHasARow) {
    std::vector<int> codes;
    for (const hbs_command_row &row : hbs_command_rows()) {
        codes.push_back(row.code);
        EXPECT_NE(row.handle, nullptr) << row.name;
        EXPECT_EQ(hbs_command_find(row.code), &row);
    }
    EXPECT_THAT(codes, testing::ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 101, 102, 103, 104,
                                            105, 106, 107, 108, 109, 110, 111, 112));
}

TEST_F(CommandTable, EveryOtherCodeHasNone) {
    for (int code = 0; code < 256; code++) {
        const bool known = (code >= 1 && code <= 14 && code != 10) || (code >= 101 && code <= 112);
        EXPECT_EQ(hbs_command_find(static_cast<uint8_t>(code)) != nullptr, known) << code;
    }
}

TEST_F(CommandTable, ResultOfAHandler_IsWhatTheReplyCarries) {
    fake::result = -1;
    EXPECT_EQ(dispatch(Datagram(1).u8(1, 1), 5).result, -1);
    fake::result = 3;
    EXPECT_EQ(dispatch(Datagram(2).u16(4, 2)).result, 3);
    EXPECT_EQ(dispatch(Datagram(3).u16(4, 2)).result, 3);
    EXPECT_EQ(dispatch(Datagram(4).u16(2, 2)).result, 3);
    EXPECT_EQ(dispatch(Datagram(5).u8(2, 0x11)).result, 3);
    EXPECT_EQ(dispatch(Datagram(6).u8(2, 0x13)).result, 3);
    EXPECT_EQ(dispatch(filter(8)).result, 3);
    EXPECT_EQ(dispatch(Datagram(9)).result, 3);
    EXPECT_EQ(dispatch(Datagram(102)).result, 3);
    EXPECT_EQ(dispatch(Datagram(111).u16(2, 2)).result, 3);
}

TEST_F(CommandTable, ModMacFilter_RepliesTheResultOfTheClearing) {
    fake::result = 3;
    EXPECT_EQ(dispatch(filter(13)).result, 3);
    EXPECT_EQ(dispatch(filter(7)).result, 1003);
}

TEST_F(CommandTable, RuleCommands_ResultIsZeroWhateverTheFileSays) {
    fake::result = -1;
    EXPECT_EQ(dispatch(filter(11)).result, 0);
    EXPECT_EQ(dispatch(filter(12)).result, 0);
}

TEST_F(CommandTable, RuleCommands_OfAnyOtherType_UseTheWhiteFile) {
    EXPECT_THAT(
        dispatch(filter(11).u8(1, 9)).lines,
        testing::Contains("locked clear rules /nvram/8/client_white_rules.txt 02:aa:00:00:00:11 beef 2 3"));
    EXPECT_THAT(dispatch(filter(12).u8(1, 1)).lines,
                testing::Contains(
                    "locked update rules /nvram/8/client_white_rules.txt 02:aa:00:00:00:11 beef 2 3 4 5 6"));
}

TEST_F(CommandTable, RuleCommands_WithoutClient_DoNothingAndRepeatTheResult) {
    fake::client_exists = false;
    for (const uint8_t code : {uint8_t{11}, uint8_t{12}}) {
        EXPECT_THAT(dispatch(filter(code)).lines,
                    testing::ElementsAre("locked find 02:aa:00:00:00:11", RESPONSE_TO_77, "reply 77"));
    }
}

TEST_F(CommandTable, SetCommentHost_WithoutClient_RepeatsTheResult) {
    fake::client_exists = false;
    EXPECT_THAT(dispatch(Datagram(111).u16(2, 2).raw(4, IPV4)).lines,
                testing::ElementsAre("locked find 192.168.0.10", RESPONSE_TO_77, "reply 77"));
}

TEST_F(CommandTable, Dhcpv4Lease_WithoutClient_IsNotAnnounced) {
    fake::client_exists = false;
    EXPECT_EQ(dispatch(dhcpv4(105)).lines.size(), 2u);
}

TEST_F(CommandTable, Dhcpv6Lease_WithoutClient_IsNotAnnounced) {
    fake::client_exists = false;
    EXPECT_EQ(dispatch(dhcpv6(106)).lines.size(), 2u);
}

TEST_F(CommandTable, Dhcpv4Info_WithoutClient_IsAnnouncedAllTheSame) {
    fake::client_exists = false;
    EXPECT_EQ(dispatch(dhcpv4(107)).lines.back(), "tr69 103 none");
}

TEST_F(CommandTable, Dhcpv6Release_WithoutClient_IsAnnouncedAllTheSame) {
    fake::client_exists = false;
    EXPECT_EQ(dispatch(dhcpv6(108)).lines.back(), "tr69 104 none");
}

TEST_F(CommandTable, StaticLeaseOfZero_IsStatic) {
    EXPECT_THAT(dispatch(dhcpv4(105).u32(12, 0)).lines[1], testing::HasSubstr("192.168.0.10 0 3600"));
    EXPECT_THAT(dispatch(dhcpv4(105).u32(12, 0x100)).lines[1], testing::HasSubstr("192.168.0.10 1 3600"));
}

TEST_F(CommandTable, WifiEvents_WithATextThatIsNoMac_AreLoggedOnly) {
    for (const uint8_t code : {uint8_t{103}, uint8_t{104}}) {
        const auto lines = dispatch(Datagram(code).text(1, "02:aa:zz")).lines;
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_THAT(lines[0], testing::HasSubstr("mac 02:aa:zz"));
    }
}

// Texts without a NUL end with their field and do not run into the next one.

TEST_F(CommandTable, UnterminatedMacText_EndsWithItsField) {
    EXPECT_THAT(dispatch(Datagram(104).fill(1, 40, 'a')).lines[0],
                testing::EndsWith(": mac " + std::string(17, 'a')));
}

TEST_F(CommandTable, UnterminatedLeaseTexts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(127, 'h') + "' '" + std::string(63, 'i') + "' '" +
                                 std::string(6, 'o') + "' '" + std::string(64, 's') + "' '" +
                                 std::string(64, 'p') + "' '" + std::string(258, 'f') + "'";
    auto datagram = dhcpv4(105).fill(20, 128, 'h').fill(148, 64, 'i').fill(212, 7, 'o').fill(219, 65, 's');
    EXPECT_THAT(dispatch(datagram.fill(284, 65, 'p').fill(349, 259, 'f')).lines[1],
                testing::HasSubstr(expected));
}

TEST_F(CommandTable, UnterminatedDhcpv6Texts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(127, 'h') + "' '" + std::string(6, 'o') + "' '" +
                                 std::string(64, 's') + "' '" + std::string(64, 'p') + "' '" +
                                 std::string(127, 'f') + "'";
    auto datagram = dhcpv6(106).fill(40, 128, 'h').fill(168, 7, 'o').fill(175, 65, 's').fill(240, 65, 'p');
    EXPECT_THAT(dispatch(datagram.fill(305, HBS_MSG_MAX - 305, 'f')).lines[1], testing::HasSubstr(expected));
}

TEST_F(CommandTable, UnterminatedStaticLeaseTexts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(255, 'c') + "' '" + std::string(63, 'h') + "'";
    auto datagram = Datagram(2).u16(4, 2).fill(34, 256, 'c').fill(290, HBS_MSG_MAX - 290, 'h');
    EXPECT_THAT(dispatch(datagram).lines[2], testing::EndsWith(expected));
}

TEST_F(CommandTable, UnterminatedFilterTexts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(255, 'c') + "' '" + std::string(255, 'd') + "' '" +
                                 std::string(255, 'k') + "' '" + std::string(255, 'm') + "' 99";
    auto datagram = filter(7).fill(16, 256, 'c').fill(296, 256, 'd').fill(552, 256, 'k').fill(808, 256, 'm');
    const auto lines = dispatch(datagram).lines;
    EXPECT_THAT(lines[0], testing::EndsWith(": comment is " + std::string(255, 'c')));
    EXPECT_THAT(lines[1], testing::EndsWith(expected));
}

TEST_F(CommandTable, UnterminatedTrustComment_EndsWithItsField) {
    EXPECT_THAT(dispatch(Datagram(5).u8(2, 0x11).fill(32, 400, 'c')).lines[1],
                testing::EndsWith(" '" + std::string(255, 'c') + "'"));
}

TEST_F(CommandTable, UnterminatedCommentAndHost_EndWithTheirFields) {
    const std::string expected = "'" + std::string(255, 'c') + "' '" + std::string(63, 'h') + "'";
    EXPECT_THAT(dispatch(Datagram(111).u16(2, 2).fill(24, 256, 'c').fill(280, 500, 'h')).lines[1],
                testing::EndsWith(expected));
}

} // namespace
