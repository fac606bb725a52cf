// Tables: alignment, narrow terminals, and names that want to break them.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/client_table.h"
#include "tools/index_table.h"
#include "tools/printable.h"
#include "tools/text_table.h"

namespace table_test {

using lines = std::vector<std::string>;

text_table sample() {
    return {{{"NAME", 4}, {"VALUE"}, {"EXTRA", 0, 1}, {"MORE", 0, 2}},
            {{{"laptop"}, {"1"}, {"e1"}, {"m1"}}, {{"tv"}, {"200000"}, {"e2"}, {"m2"}}}};
}

TEST(TextTable, AlignsItsColumnsAndLeavesNoBlanksAtTheEnd) {
    EXPECT_EQ(draw_table(sample(), {}), (lines{"NAME    VALUE   EXTRA  MORE", //
                                               "laptop  1       e1     m1",   //
                                               "tv      200000  e2     m2"}));
}

TEST(TextTable, DropsTheLeastImportantColumnsWhenRoomIsShort) {
    EXPECT_EQ(draw_table(sample(), {21, false})[0], "NAME    VALUE   EXTRA");
    EXPECT_EQ(draw_table(sample(), {14, false})[1], "laptop  1");
}

TEST(TextTable, CutsACellOnlyAsFarAsItsColumnAllows) {
    const lines drawn = draw_table(sample(), {12, false});
    EXPECT_EQ(drawn, (lines{"NAME  VALUE", "lap…  1", "tv    200000"}));
    EXPECT_EQ(draw_table(sample(), {3, false})[1], "lap…  1") << "what may not be dropped stays";
}

TEST(TextTable, IsCutAtTheEdgeWhereThatIsWanted) {
    const text_table table = {{{"A"}, {"BB"}, {"CCCC"}}, {{{"aa"}, {"bbbb"}, {"cccc", style::good}}}};
    EXPECT_EQ(draw_table(table, {.width = 6, .cut = true}), (lines{"A   BB", "aa  b…"}));
    EXPECT_EQ(draw_table(table, {.width = 4, .cut = true}), (lines{"A", "aa"}));
    EXPECT_EQ(draw_table(table, {.width = 13, .colour = true, .cut = true})[1],
              "aa  bbbb  \033[32mcc…\033[0m");
    EXPECT_EQ(draw_table(table, {.width = 99, .cut = true}), draw_table(table, {}));
    EXPECT_EQ(shown_columns(table, {.width = 6, .cut = true}).size(), 2u);
}

TEST(TextTable, LeavesOutAColumnThatSaysNothing) {
    text_table table = sample();
    table.rows[0][2].text = table.rows[1][2].text = "";
    EXPECT_EQ(draw_table(table, {})[0], "NAME    VALUE   MORE");
    table.rows[0][0].text = table.rows[1][0].text = "";
    EXPECT_EQ(draw_table(table, {})[0], "NAME  VALUE   MORE") << "one that may not be dropped stays";
}

TEST(TextTable, UsesColoursOnlyWhenTold) {
    text_table table = {{{"A"}}, {{{"x", style::good}}}};
    EXPECT_EQ(draw_table(table, {0, false})[1], "x");
    EXPECT_EQ(draw_table(table, {0, true})[1], "\033[32mx\033[0m");
}

TEST(TextTable, HostileTextNeitherBreaksTheLineNorMovesTheCursor) {
    text_table table = sample();
    table.rows[0][0].text = "evil\033[2J\nname";
    const lines drawn = draw_table(table, {});
    EXPECT_EQ(drawn[1].substr(0, 27), "evil\\x1b[2J\\nname  1       ");
    EXPECT_EQ(drawn.size(), 3u);
}

TEST(TextTable, WideCharactersKeepTheColumnsAligned) {
    text_table table = sample();
    table.rows[0][0].text = "客厅";
    table.rows[1][0].text = "ab";
    const lines drawn = draw_table(table, {});
    EXPECT_EQ(drawn[1], "客厅  1       e1     m1");
    EXPECT_EQ(drawn[2], "ab    200000  e2     m2");
}

hbs_client full_client() {
    hbs_client client = {};
    client.client_id = 7;
    const uint8_t mac[] = {0x02, 0xaa, 0, 0, 0, 0x11};
    memcpy(client.mac, mac, 6);
    const uint8_t ipv4[] = {192, 168, 0, 11};
    memcpy(client.ipv4, ipv4, 4);
    strcpy(client.host, "laptop");
    client.adapter_type = HBS_ADAPTER_WIFI;
    client.wifi_index = 2;
    client.nwidx = 1;
    client.flags = HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_DYNIP4 | HBS_CHANGED;
    client.trust = HBS_TRUST_SITE;
    return client;
}

TEST(ClientTable, ShowsWhatMatters) {
    EXPECT_EQ(draw_table(client_table({full_client()}), {}),
              (lines{"MAC                STATE   NET  IPV4          NAME    ADAPTER  FLAGS         TRUST",
                     "02:aa:00:00:00:11  online  1    192.168.0.11  laptop  wifi 3   REACH DYNIP4  T-SITE"}));
}

TEST(ClientTable, FitsEightyCells) {
    hbs_client client = full_client();
    memset(client.ipv6, 0xfd, sizeof client.ipv6);
    memset(client.ll, 0xfe, sizeof client.ll);
    memset(client.host, 'n', sizeof client.host - 1);
    memset(client.comment, 'c', sizeof client.comment - 1);
    client.lease_end[0] = 7;
    for (const std::string &line : draw_table(client_table({client}), {80, false})) {
        EXPECT_LE(display_width(line), 80) << line;
        EXPECT_NE(line.find(line[0] == 'M' ? "NAME" : "nnnn"), std::string::npos);
    }
}

TEST(ClientTable, AClientKnownByAddressOnlyHasADash) {
    hbs_client client = full_client();
    memset(client.mac, 0, 6);
    EXPECT_EQ(client_row(client)[0].text, "-");
}

TEST(ClientTable, WithoutAHostNameTheDeviceNameIsShownUnlessItIsTheInterface) {
    hbs_client client = full_client();
    strcpy(client.device_name, "Anna's laptop");
    EXPECT_EQ(client_name(client), "laptop");
    client.host[0] = '\0';
    EXPECT_EQ(client_name(client), "Anna's laptop");
    strcpy(client.device_name, "l2sd0.2");
    strcpy(client.ifname, "l2sd0.2");
    EXPECT_EQ(client_name(client), "");
}

TEST(ClientTable, AdaptersSayWhere) {
    hbs_client client = full_client();
    EXPECT_EQ(client_adapter(client), "wifi 3");
    client.adapter_type = HBS_ADAPTER_ETHERNET;
    EXPECT_EQ(client_adapter(client), "ethernet");
    client.switch_port = 4;
    EXPECT_EQ(client_adapter(client), "ethernet 4");
    client.adapter_type = HBS_ADAPTER_MOCA;
    EXPECT_EQ(client_adapter(client), "moca");
}

TEST(ClientTable, CountsThoseOnLine) {
    hbs_client away = full_client();
    away.flags = 0;
    EXPECT_EQ(client_totals({}), "0 clients, 0 on line");
    EXPECT_EQ(client_totals({full_client()}), "1 client, 1 on line");
    EXPECT_EQ(client_totals({full_client(), away}), "2 clients, 1 on line");
}

TEST(ClientDetails, LeaveOutWhatSaysNothing) {
    const text_table table = client_details(full_client());
    const auto has = [&](const char *name) {
        return std::any_of(table.rows.begin(), table.rows.end(),
                           [&](const auto &row) { return row[0].text == name; });
    };
    EXPECT_TRUE(has("IPv4"));
    EXPECT_TRUE(has("network"));
    EXPECT_FALSE(has("IPv6"));
    EXPECT_FALSE(has("lease end"));
    EXPECT_FALSE(has("Wi-Fi link"));
}

database indexed() {
    database db;
    hbs_client client = full_client();
    client.dbpos = 52;
    db.clients = {client};
    db.ip = {{0, 0, 7, {201, 1, 4, 192, 168, 0, 11}, 52}, {0, 0, 7, {200, 1, 4, 10, 0, 0, 1}, 1796}};
    hbs_ip_entry ipv6 = {0, 0, 19, {201, 2, 0xfe, 0x80}, 52};
    ipv6.key[17] = 0x11;
    db.dhcp = {ipv6, {0, 0, 7, {200, 1, 192, 168, 0, 11, 0}, 52}};
    db.interfaces = {{0, 0, 2, {201, 3}, 52}};
    db.primary = {{0, 0, 1, {9}, 52}};
    db.rules = {{0, 0, 2, {200, 1}, {2, 0xaa, 0, 0, 0, 0x11}, 2, 0, {0x7f, 1, 2, 52, 4, 5, 6}}};
    return db;
}

TEST(IndexTables, ResolveKeysAndClients) {
    const database db = indexed();
    EXPECT_EQ(draw_table(ip_table(db, db.ip, true), {}),
              (lines{"NET  ADDRESS       CLIENT             NAME", //
                     "1    192.168.0.11  02:aa:00:00:00:11  laptop", "0    10.0.0.1      none at 1796"}));
    EXPECT_EQ(draw_table(ip_table(db, db.dhcp, false), {})[1],
              "1    fe80::11      02:aa:00:00:00:11  laptop");
    EXPECT_EQ(draw_table(ip_table(db, db.dhcp, false), {})[2],
              "0    192.168.0.11  02:aa:00:00:00:11  laptop");
    EXPECT_EQ(draw_table(interface_table(db), {})[1], "1    3         02:aa:00:00:00:11  laptop");
    EXPECT_EQ(draw_table(primary_table(db), {})[1], "9         02:aa:00:00:00:11  laptop");
    EXPECT_EQ(draw_table(rule_table(db), {})[1],
              "1         black  02:aa:00:00:00:11  7f 1 2  52         4.5.6");
}

TEST(IndexTables, AKeyOfNoKnownFormIsShownWordByWord) {
    database db = indexed();
    db.ip = {{0, 0, 3, {200, 9, 4}, 52}};
    EXPECT_EQ(ip_table(db, db.ip, true).rows[0][1].text, "200.9.4");
}

} // namespace table_test
