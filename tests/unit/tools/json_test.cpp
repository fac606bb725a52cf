// The JSON forms, with texts that are not UTF-8.
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "tools/json_view.h"

namespace json_test {

TEST(ClientJson, OfAnEmptyRecordHasNullsForWhatIsAbsent) {
    const json object = client_json({});
    for (const char *name :
         {"mac", "ipv4", "ipv6", "ll", "lease_end", "lease_v6_end", "status_time", "ssid", "switch_port"})
        EXPECT_TRUE(object.at(name).is_null()) << name;
    for (const char *name : {"host", "device_name", "comment", "ifname", "description"})
        EXPECT_EQ(object.at(name), "") << name;
    EXPECT_EQ(object.at("adapter"), "unknown");
    EXPECT_EQ(object.at("flags"), json::array());
    EXPECT_EQ(object.at("trust"), json::array());
    EXPECT_EQ(object.at("online"), false);
}

TEST(ClientJson, OfAFullRecordHasEverything) {
    hbs_client client = {};
    const uint8_t mac[] = {0x02, 0xaa, 0, 0, 0, 0x11}, ipv4[] = {192, 168, 0, 11};
    memcpy(client.mac, mac, 6);
    memcpy(client.ipv4, ipv4, 4);
    client.ipv6[0] = 0xfd;
    client.ipv6[15] = 1;
    client.ll[0] = 0xfe;
    client.ll[1] = 0x80;
    strcpy(client.host, "laptop");
    strcpy(client.device_name, "Anna's");
    strcpy(client.comment, "note");
    client.adapter_type = HBS_ADAPTER_WIFI;
    client.wifi_index = 4;
    client.nwidx = 3;
    client.flags = HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_ASSOC | HBS_CHANGED;
    client.trust = HBS_TRUST_BLACK;
    client.client_id = 12;
    client.mac_filter = -3;
    const uint8_t date[] = {0x07, 0xEA, 11, 21, 1, 2, 3, 0};
    memcpy(client.lease_end, date, 8);
    const json object = client_json(client);
    EXPECT_EQ(object.at("mac"), "02:aa:00:00:00:11");
    EXPECT_EQ(object.at("ipv4"), "192.168.0.11");
    EXPECT_EQ(object.at("ipv6"), "fd00::1");
    EXPECT_EQ(object.at("ll"), "fe80::");
    EXPECT_EQ(object.at("host"), "laptop");
    EXPECT_EQ(object.at("device_name"), "Anna's");
    EXPECT_EQ(object.at("comment"), "note");
    EXPECT_EQ(object.at("adapter"), "wifi");
    EXPECT_EQ(object.at("network"), 3);
    EXPECT_EQ(object.at("online"), true);
    EXPECT_EQ(object.at("reachable"), true);
    EXPECT_EQ(object.at("associated"), true);
    EXPECT_EQ(object.at("flags"), (json{"ASSOC", "REACH", "ONLINE"}));
    EXPECT_EQ(object.at("trust"), json{"BLACK"});
    EXPECT_EQ(object.at("lease_end"), "2026-11-21T01:02:03+00:00");
    EXPECT_EQ(object.at("client_id"), 12);
    EXPECT_EQ(object.at("ssid"), 5);
    EXPECT_EQ(object.at("mac_filter"), -3);
}

TEST(ClientJson, TimesOfOtherClocksHaveTheirZoneAndTheirAge) {
    hbs_client client = {};
    client.online_time = 990;
    client.lease_start_uptime = 1940;
    const json object = client_json(client, {{1000, 1000}, {1000, 2000}});
    EXPECT_EQ(object.at("since"), "1970-01-01T00:16:30+00:00");
    EXPECT_EQ(object.at("since_seconds"), 10);
    EXPECT_EQ(object.at("lease_start"), "1970-01-01T00:15:40+00:00");
    EXPECT_EQ(object.at("lease_start_seconds"), 60);
    const json without = client_json({}, {{1000, 1000}, {1000, 2000}});
    for (const char *name : {"since", "since_seconds", "lease_start", "lease_start_seconds"})
        EXPECT_TRUE(without.at(name).is_null()) << name;
}

TEST(ClientJson, TheListHasTheShapeThatScriptsRelyOn) {
    EXPECT_EQ(json_text(clients_json({}), -1), R"({"clients":[]})");
    const json document = clients_json({hbs_client{}, hbs_client{}});
    EXPECT_EQ(document.at("clients").size(), 2u);
}

TEST(JsonText, BytesThatAreNotUtf8AreReplaced) {
    hbs_client client = {};
    memcpy(client.host,
           "K\xfc"
           "che\xc3",
           6);
    strcpy(client.comment, "a\"b\\c\nd\x01\x1b[2J");
    const std::string text = json_text(clients_json({client}));
    const json parsed = json::parse(text);
    EXPECT_EQ(parsed["clients"][0]["host"], "K\uFFFDche\uFFFD");
    EXPECT_EQ(parsed["clients"][0]["comment"], "a\"b\\c\nd\x01\x1b[2J");
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

TEST(IndexJson, ResolvesKeysAndClients) {
    database db;
    hbs_client client = {};
    client.dbpos = 52;
    client.mac[5] = 9;
    db.clients = {client};
    db.ip = {{0, 0, 7, {201, 1, 4, 192, 168, 0, 11}, 52}};
    db.dhcp = {{0, 0, 7, {201, 1, 192, 168, 0, 11, 0}, 1796}};
    db.interfaces = {{0, 0, 2, {201, 3}, 52}};
    db.primary = {{0, 0, 1, {9}, 52}};
    db.rules = {{0, 0, 2, {200, 4}, {2, 0xaa, 0, 0, 0, 0x11}, 1, 0, {1, 2, 3, 4, 5, 6, 7}}};
    const json document = indices_json(db);
    EXPECT_EQ(document["ip"][0]["key"], (json{201, 1, 4, 192, 168, 0, 11}));
    EXPECT_EQ(document["ip"][0]["address"], "192.168.0.11");
    EXPECT_EQ(document["ip"][0]["client"], "00:00:00:00:00:09");
    EXPECT_EQ(document["dhcp"][0]["address"], "192.168.0.11");
    EXPECT_TRUE(document["dhcp"][0]["client"].is_null());
    EXPECT_EQ(document["dhcp"][0]["dbpos"], 1796);
    EXPECT_EQ(document["interface"][0]["key"], (json{201, 3}));
    EXPECT_EQ(document["primary"][0]["key"], json{9});
    const json rules = rules_json(db);
    EXPECT_EQ(rules["rules"][0]["instance"], 4);
    EXPECT_EQ(rules["rules"][0]["list"], "white");
    EXPECT_EQ(rules["rules"][0]["mac"], "02:aa:00:00:00:11");
    EXPECT_EQ(rules["rules"][0]["parameters"], (json{1, 2, 3, 4, 5, 6, 7}));
}

} // namespace json_test
