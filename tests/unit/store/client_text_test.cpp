// Texts of clients and index entries.
#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "store/client_text.h"

namespace client_text_test {

hbs_client laptop() {
    hbs_client client{};
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    memcpy(client.mac, mac, sizeof mac);
    client.adapter_type = HBS_ADAPTER_WIFI;
    const uint8_t ipv4[4] = {192, 168, 0, 10};
    memcpy(client.ipv4, ipv4, sizeof ipv4);
    strcpy(client.host, "laptop");
    client.flags = HBS_FLAG_ASSOC | HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE;
    return client;
}

std::string line_of(const hbs_client &client) {
    char buffer[512];
    EXPECT_EQ(buffer, hbs_client_to_str(&client, buffer, sizeof buffer));
    return buffer;
}

constexpr const char *LAPTOP = "[00:11:22:33:44:55] on WiFi: index: 0 192.168.0.10 - no IPv6 - (no LL) - "
                               "(laptop) |ASSOC|DYNIP4|ONLINE|";

TEST(ClientText, WifiClientWithDynamicLease_IsThisLine) {
    EXPECT_EQ(LAPTOP, line_of(laptop()));
    hbs_client client = laptop();
    EXPECT_STREQ(LAPTOP, hbs_client_log_text(&client).text);
}

TEST(ClientText, EmptyClient_NamesWhatItLacks) {
    EXPECT_EQ("[00:00:00:00:00:00] on unknown if: index: 0 no IPv4 - no IPv6 - (no LL) - |",
              line_of(hbs_client{}));
}

TEST(ClientText, AllAddresses) {
    hbs_client client = laptop();
    ASSERT_EQ(1, inet_pton(AF_INET6, "2001:db8::10", client.ipv6));
    ASSERT_EQ(1, inet_pton(AF_INET6, "fe80::211:22ff:fe33:4455", client.ll));
    client.nwidx = 11;
    EXPECT_EQ("[00:11:22:33:44:55] on WiFi: index: 11 192.168.0.10 - 2001:db8::10 - (LL "
              "fe80::211:22ff:fe33:4455) - (laptop) |ASSOC|DYNIP4|ONLINE|",
              line_of(client));
}

struct Adapter {
    uint8_t code;
    const char *text;
};

class AdapterText : public testing::TestWithParam<Adapter> {};

TEST_P(AdapterText, IsThatOfTheCode) {
    hbs_client client = laptop();
    client.adapter_type = GetParam().code;
    std::string expected = "[00:11:22:33:44:55] " + std::string(GetParam().text) + "index: 0 ";
    EXPECT_EQ(expected, line_of(client).substr(0, expected.size()));
    EXPECT_EQ(expected, std::string(hbs_client_log_text(&client).text).substr(0, expected.size()));
}

INSTANTIATE_TEST_SUITE_P(Codes, AdapterText,
                         testing::Values(Adapter{0, "on unknown if: "}, Adapter{1, "on Ethernet: "},
                                         Adapter{2, "on USB: "}, Adapter{3, "on Moca: "},
                                         Adapter{4, "on unknown if: "}, Adapter{5, "on WiFi: "},
                                         Adapter{6, "on unknown if: "}, Adapter{255, "on unknown if: "}));

struct Label {
    uint32_t flags, trust;
    const char *text;
};

class Labels : public testing::TestWithParam<Label> {};

TEST_P(Labels, StandForTheirBit) {
    hbs_client client{};
    client.flags = GetParam().flags;
    client.trust = GetParam().trust;
    std::string start = "[00:00:00:00:00:00] on unknown if: index: 0 no IPv4 - no IPv6 - (no LL) - |";
    EXPECT_EQ(start + GetParam().text, line_of(client));
    EXPECT_EQ(start + GetParam().text, hbs_client_log_text(&client).text);
}

INSTANTIATE_TEST_SUITE_P(
    Bits, Labels,
    testing::Values(Label{0x1, 0, "ASSOC|"}, Label{0x2, 0, "REACH|"}, Label{0x10, 0, "DYNIP4|"},
                    Label{0x20, 0, "STIP4|"}, Label{0x40, 0, "USRIP4|"}, Label{0x100, 0, "DYNIP6|"},
                    Label{0x200, 0, "STIP6|"}, Label{0x400, 0, "USRIP6|"}, Label{0x1000, 0, "ONLINE|"},
                    Label{0, 0x1, "T-SITE|"}, Label{0, 0x2, "T-SERV|"}, Label{0, 0x4, "WHITE|"},
                    Label{0, 0x8, "BLACK|"}, Label{0, 0x30, ""}, Label{0xE01F0004, 0, ""},
                    Label{0xFFFFFFFF, 0xFFFFFFFF,
                          "ASSOC|REACH|DYNIP4|STIP4|USRIP4|DYNIP6|STIP6|USRIP6|ONLINE|T-SITE|T-SERV|WHITE|"
                          "BLACK|"}));

TEST(ClientText, Hotspot_IsLastAndOnlyInTheDumpsForm) {
    hbs_client client = laptop();
    client.trust = HBS_TRUST_BLACK;
    client.hotspot = 7;
    EXPECT_EQ(std::string(LAPTOP) + "BLACK|HOTSPOT|", line_of(client));
    EXPECT_EQ(std::string(LAPTOP) + "BLACK|", hbs_client_log_text(&client).text);
}

TEST(ClientText, CutAtEverySize_StaysTerminatedInsideTheBuffer) {
    hbs_client client = laptop();
    const std::string whole = LAPTOP;
    for (size_t size = 1; size <= whole.size() + 2; size++) {
        char buffer[256];
        memset(buffer, 'x', sizeof buffer);
        (void)hbs_client_to_str(&client, buffer, size);
        EXPECT_EQ(whole.substr(0, size - 1), buffer) << "size " << size;
        EXPECT_EQ('x', buffer[size]) << "size " << size;
    }
}

TEST(ClientText, BufferOfNoSize_IsLeftAlone) {
    hbs_client client = laptop();
    char buffer = 'x';
    (void)hbs_client_to_str(&client, &buffer, 0);
    EXPECT_EQ('x', buffer);
}

TEST(ClientText, HostNameWithoutEnd_StopsAtTheField) {
    hbs_client client = laptop();
    memset(client.host, 'h', sizeof client.host);
    strcpy(client.device_name, "not this");
    EXPECT_NE(std::string::npos, line_of(client).find("(" + std::string(64, 'h') + ") |"));
}

TEST(ClientText, HostNameIsData) {
    hbs_client client = laptop();
    strcpy(client.host, "%s%n$(x)\xC3\xA9");
    EXPECT_NE(std::string::npos, line_of(client).find("(%s%n$(x)\xC3\xA9) |"));
}

TEST(ClientText, NoClient_IsAnEmptyText) {
    char buffer[8] = "x";
    EXPECT_STREQ("", hbs_client_to_str(nullptr, buffer, sizeof buffer));
    EXPECT_STREQ("", hbs_client_log_text(nullptr).text);
}

hbs_ip_entry ip_entry(std::initializer_list<uint32_t> words) {
    hbs_ip_entry entry{};
    for (uint32_t word : words)
        entry.key[entry.count++] = word;
    entry.dbpos = 0x34;
    return entry;
}

TEST(EntryText, Ipv4KeyIsDecimal) {
    hbs_ip_entry entry = ip_entry({200, 1, 4, 192, 168, 0, 10});
    EXPECT_STREQ("200 1 4 192 168 0 10 ", hbs_ip_entry_text(&entry).text);
}

TEST(EntryText, Ipv6OctetsAreHexadecimal) {
    hbs_ip_entry entry =
        ip_entry({201, 2, 16, 0xfe, 0x80, 0, 0, 0, 0, 0, 0, 2, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55});
    EXPECT_STREQ("201 2 16 fe 80 0 0 0 0 0 0 2 11 22 ff fe 33 44 55 ", hbs_ip_entry_text(&entry).text);
}

TEST(EntryText, HexadecimalNeedsTypeAndLength) {
    hbs_ip_entry entry = ip_entry({200, 2, 15, 31});
    EXPECT_STREQ("200 2 15 31 ", hbs_ip_entry_text(&entry).text);
    entry = ip_entry({200, 1, 16, 31});
    EXPECT_STREQ("200 1 16 31 ", hbs_ip_entry_text(&entry).text);
}

TEST(EntryText, WordsAboveTheSignedRangePrintSigned) {
    hbs_ip_entry entry = ip_entry({0xFFFFFFFF, 0x80000000});
    EXPECT_STREQ("-1 -2147483648 ", hbs_ip_entry_text(&entry).text);
}

TEST(EntryText, DhcpOptionKeyEndsWithItsClient) {
    char pointer[32];
    (void)snprintf(pointer, sizeof pointer, "%p", reinterpret_cast<void *>(uintptr_t{0x34}));
    hbs_ip_entry entry = ip_entry({200, 1, 192, 168, 0, 10, 0});
    EXPECT_EQ("200 1 192 168 0 10 0 : " + std::string(pointer), hbs_dhcp_entry_text(&entry).text);
    entry = ip_entry({200, 2, 0xfe, 0x80, 0, 0, 0, 0, 0, 0, 2, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55, 0});
    EXPECT_EQ("200 2 fe 80 0 0 0 0 0 0 2 11 22 ff fe 33 44 55 0 : " + std::string(pointer),
              hbs_dhcp_entry_text(&entry).text);
}

TEST(EntryText, InterfaceKeySkipsWordsAbove255) {
    hbs_if_entry entry{0, 0, 2, {200, 1}, 52};
    EXPECT_STREQ("200 1 ", hbs_if_entry_text(&entry).text);
    entry.key[0] = 256;
    EXPECT_STREQ("1 ", hbs_if_entry_text(&entry).text);
    entry.key[0] = 255;
    EXPECT_STREQ("255 1 ", hbs_if_entry_text(&entry).text);
}

TEST(EntryText, InterfaceCountAbove255PrintsNothing) {
    hbs_if_entry entry{0, 0, 256, {200, 1}, 52};
    EXPECT_STREQ("", hbs_if_entry_text(&entry).text);
    entry.count = 255;
    EXPECT_STREQ("200 1 ", hbs_if_entry_text(&entry).text) << "no word behind the key is printed";
}

TEST(EntryText, PrimaryAndRuleKeysAreDecimal) {
    hbs_pri_entry primary{0, 0, 1, {1000}, 52};
    EXPECT_STREQ("1000 ", hbs_pri_entry_text(&primary).text);
    hbs_rule_entry rule{};
    rule.count = 2;
    rule.key[0] = 200;
    rule.key[1] = 300;
    EXPECT_STREQ("200 300 ", hbs_rule_entry_text(&rule).text);
}

TEST(EntryText, ScribbledCounts_PrintNoMoreThanTheKey) {
    hbs_ip_entry ip{};
    ip.count = 0xFFFFFFFF;
    std::string zeros;
    for (int i = 0; i < 19; i++)
        zeros += "0 ";
    EXPECT_EQ(zeros, hbs_ip_entry_text(&ip).text);
    EXPECT_EQ(zeros, std::string(hbs_dhcp_entry_text(&ip).text).substr(0, zeros.size()));
    hbs_pri_entry primary{0, 0, 77, {5}, 6};
    EXPECT_STREQ("5 ", hbs_pri_entry_text(&primary).text);
    hbs_rule_entry rule{};
    rule.count = 77;
    EXPECT_STREQ("0 0 ", hbs_rule_entry_text(&rule).text);
}

TEST(EntryText, CutStaysTerminated) {
    hbs_ip_entry entry = ip_entry({200, 1, 4, 192, 168, 0, 10});
    char buffer[16];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_STREQ("200 1 4", hbs_ip_entry_to_str(&entry, buffer, 8));
    EXPECT_EQ('x', buffer[8]);
    EXPECT_STREQ("200 1 1", hbs_dhcp_entry_to_str((entry = ip_entry({200, 1, 192}), &entry), buffer, 8));
}

} // namespace client_text_test
