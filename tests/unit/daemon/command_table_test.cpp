// Every row of the command table: what it logs, which handler it calls with which fields, what it answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "daemon/command_table.h"
#include "support/datagram.h"

using testing::ElementsAreArray;

namespace {

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
    const std::string clr_rule = "locked clr rule 2 02:aa:00:00:00:11 " + FILTER_VALUES;
    const std::string set_rule = "locked set rule 2 02:aa:00:00:00:11 " + FILTER_VALUES + " at 9";
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
          "reply 0", "tr69 1 datagram 2"},
         {set_static, static_number, RESPONSE_77, "reply 77", "tr69 1 datagram 2"}},
        {"SetStaticLeaseIpv6",
         Datagram(2).u16(4, 10).raw(12, IPV6).raw(28, MAC),
         {set_static, "locked set static lease 0 fd00:2::10 02:aa:00:00:00:11 '' ''", RESPONSE_0, "reply 0",
          "tr69 1 datagram 2"},
         {set_static, RESPONSE_77, "reply 77", "tr69 1 datagram 2"}},
        {"SetStaticLeaseUnknownFamily",
         Datagram(2).u16(4, 7).raw(8, IPV4),
         {set_static, RESPONSE_77, "reply 77", "tr69 1 datagram 2"},
         {set_static, RESPONSE_77, "reply 77", "tr69 1 datagram 2"}},
        {"ClrStaticLeaseIpv4",
         Datagram(3).u16(4, 2).raw(8, IPV4),
         {"tr69 2 datagram 3", clr_static, "locked clr static lease 192.168.0.10", RESPONSE_TO_0, "reply 0"},
         {"tr69 2 datagram 3", clr_static, RESPONSE_TO_77, "reply 77"}},
        {"ClrStaticLeaseIpv6",
         Datagram(3).u16(4, 10).raw(12, IPV6),
         {"tr69 2 datagram 3", clr_static, "locked clr static lease fd00:2::10", RESPONSE_TO_0, "reply 0"},
         {"tr69 2 datagram 3", clr_static, RESPONSE_TO_77, "reply 77"}},
        {"ClrStaticLeaseUnknownFamily",
         Datagram(3).u16(4, 7),
         {"tr69 2 datagram 3", clr_static, RESPONSE_TO_77, "reply 77"},
         {"tr69 2 datagram 3", clr_static, RESPONSE_TO_77, "reply 77"}},
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
         {locked_log("un_listen_thread: HBS_CMD_SET_TRUSTED trust action unknown"),
          tagged(locked_log("Send response to -1 to TAG")), "reply -1"}},
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
         {clr_trusted, locked_log("un_listen_thread: HBS_CMD_CLR_TRUSTED trust action unknown"),
          tagged(locked_log("Send response to -1 to TAG")), "reply -1"}},
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
         {clr_rule, RESPONSE_TO_0, "reply 0"},
         {clr_rule, RESPONSE_TO_0, "reply 0"}},
        {"SetRuleTod",
         filter(12),
         {set_rule, RESPONSE_TO_0, "reply 0"},
         {set_rule, RESPONSE_TO_0, "reply 0"}},
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
         {release6, "locked dhcpv6 release none fe80::11 fd00:2::10", "tr69 104 client 02:aa:00:00:00:11"},
         {release6, "tr69 104 none"}},
        {"Dhcpv4Release",
         Datagram(109).raw(1, MAC).raw(8, IPV4).u32(12, 0xffffffff).u32(16, 60),
         {"locked dhcpv4 release 02:aa:00:00:00:11 192.168.0.10 -1 60"},
         {}},
        {"WifiAssocInfo", Datagram(110).raw(4, MAC), {info, "locked wifi info 02:aa:00:00:00:11"}, {info}},
        {"SetCommentHostIpv4",
         Datagram(111).u16(2, 2).raw(4, IPV4).text(24, "remark").text(280, "printer"),
         {"locked comment host 192.168.0.10 'remark' 'printer'", RESPONSE_TO_0, "reply 0"},
         {RESPONSE_TO_77, "reply 77"}},
        {"SetCommentHostIpv6",
         Datagram(111).u16(2, 10).raw(8, IPV6).text(24, "remark").text(280, "printer"),
         {"locked comment host fd00:2::10 'remark' 'printer'", RESPONSE_TO_0, "reply 0"},
         {RESPONSE_TO_77, "reply 77"}},
        {"SetCommentHostUnknownFamily",
         Datagram(111).u16(2, 5).raw(4, IPV4),
         {RESPONSE_TO_77, "reply 77"},
         {RESPONSE_TO_77, "reply 77"}},
        {"XwifiChanged", Datagram(112), {xwifi, "locked xwifi changed"}, {xwifi}},
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
}

TEST_F(CommandTable, ModMacFilter_RepliesTheResultOfTheClearing) {
    fake::result = 3;
    EXPECT_EQ(dispatch(filter(13)).result, 3);
    EXPECT_EQ(dispatch(filter(7)).result, 1003);
}

TEST_F(CommandTable, RuleCommands_WithoutClient_RepeatTheResult) {
    fake::client_exists = false;
    for (const uint8_t code : {uint8_t{11}, uint8_t{12}}) {
        const auto lines = dispatch(filter(code)).lines;
        ASSERT_EQ(lines.size(), 3u);
        EXPECT_EQ(lines[1], RESPONSE_TO_77);
        EXPECT_EQ(lines[2], "reply 77");
    }
}

TEST_F(CommandTable, SetCommentHost_WithoutClient_RepeatsTheResult) {
    fake::client_exists = false;
    EXPECT_THAT(dispatch(Datagram(111).u16(2, 2).raw(4, IPV4)).lines,
                testing::ElementsAre("locked comment host 192.168.0.10 '' ''", RESPONSE_TO_77, "reply 77"));
}

TEST_F(CommandTable, Dhcpv4Lease_WithoutClient_IsNotAnnounced) {
    fake::client_exists = false;
    EXPECT_EQ(dispatch(dhcpv4(105)).lines.size(), 2u);
}

TEST_F(CommandTable, Dhcpv6Lease_WithoutClient_IsNotAnnounced) {
    fake::client_exists = false;
    EXPECT_EQ(dispatch(dhcpv6(106)).lines.size(), 2u);
}

TEST_F(CommandTable, Dhcpv6Lease_AsksTheKernelBeforeTheLockIsTaken) {
    (void)dispatch(dhcpv6(106));
    EXPECT_THAT(fake::questions, testing::ElementsAre("fe80::11 fd00:2::10"));
    EXPECT_TRUE(fake::neighbour_came);
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

} // namespace
