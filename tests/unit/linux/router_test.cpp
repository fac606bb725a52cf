// The Linux platform from texts and bytes: settings, the kernel's messages, networks, ports, events.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "common_tr69.h"
#include "linux/router_log.h"
#include "linux_conf.h"
#include "linux_event.h"
#include "linux_fdb.h"
#include "linux_lans.h"
#include "linux_neighbours.h"
#include "linux_ports.h"
#include "linux_view.h"

using testing::ElementsAre;

namespace router_test {

// --- settings ---

struct parsed {
    linux_conf conf;
    linux_complaints complaints = {};
};

parsed parse(const std::string &text) {
    const char *path = "/tmp/linux.conf";
    FILE *file = fopen(path, "we");
    (void)fwrite(text.data(), 1, text.size(), file);
    (void)fclose(file);
    parsed result;
    linux_conf_preset(&result.conf);
    linux_conf_parse(path, &result.conf, &result.complaints);
    return result;
}

TEST(LinuxSettings, EveryKeyIsOptional) {
    parsed result;
    linux_conf_preset(&result.conf);
    linux_conf_parse("/tmp/none", &result.conf, &result.complaints);
    EXPECT_EQ(0u, result.complaints.count);
    EXPECT_EQ(3u, result.conf.level);
    EXPECT_TRUE(result.conf.presence);
    EXPECT_TRUE(linux_names_match(&result.conf.ignore, "docker0"));
    EXPECT_TRUE(linux_names_match(&result.conf.ignore, "br-0123456789ab"));
    EXPECT_FALSE(linux_names_match(&result.conf.ignore, "br-lan"));
}

TEST(LinuxSettings, WhatMakesSenseIsUsedAndTheRestIsNamed) {
    const parsed result =
        parse("log.level = info\nlog.level = loud\n = 3\nnetwork.9 = a\nnetwork.8 = lan8 # eighth\n"
              "port.0 = x\nport.4 = a-name-that-is-too-long\nport.2= p2\nwan = ppp* wwan0\n"
              "network.8.pool = 10.0.0.1\npresence = maybe\nno equals\n#comment\n\n  log.to = syslog");
    EXPECT_EQ(9u, result.conf.level);
    EXPECT_STREQ("lan8", result.conf.network[7]);
    EXPECT_STREQ("p2", result.conf.port[1]);
    EXPECT_TRUE(linux_names_match(&result.conf.wan, "ppp3"));
    EXPECT_TRUE(result.conf.syslog);
    EXPECT_FALSE(result.conf.pool[7].given);
    std::vector<std::string> named;
    for (size_t i = 0; i < result.complaints.count; i++)
        named.push_back(std::to_string(result.complaints.item[i].line) + " " + result.complaints.item[i].key);
    EXPECT_THAT(named, ElementsAre("2 log.level", "3 ", "4 network.9", "6 port.0", "7 port.4",
                                   "10 network.8.pool", "11 presence", "12 no equals"));
}

TEST(LinuxSettings, ABadValueLeavesAGoodOne) {
    const parsed result = parse("log.to = syslog\nlog.to = paper\nwifi.settle = 7\nwifi.settle = x\n"
                                "network.1.lease_time = 600\nnetwork.1.lease_time = soon\nssid.3 = wlan7\n"
                                "ssid.17 = wlan8\n");
    EXPECT_EQ(4u, result.complaints.count);
    EXPECT_TRUE(result.conf.syslog);
    EXPECT_TRUE(result.conf.wifi_settle.given);
    EXPECT_EQ(7u, result.conf.wifi_settle.value);
    EXPECT_TRUE(result.conf.lease_time[0].given);
    EXPECT_EQ(600u, result.conf.lease_time[0].value);
    EXPECT_STREQ("wlan7", result.conf.ssid[2]);
}

TEST(LinuxSettings, ALineThatIsTooLongIsPassedOver) {
    const parsed result = parse("wan = " + std::string(5000, 'x') + "\nport.2 = eth2 #" +
                                std::string(1008, '-') + "\nport.1 = eth1 #" + std::string(1007, '-'));
    EXPECT_EQ(2u, result.complaints.count);
    EXPECT_STREQ("eth1", result.conf.port[0]);
}

TEST(LinuxSettings, MoreComplaintsThanPlacesAreCounted) {
    std::string text;
    for (int i = 0; i < 40; i++)
        text += "what" + std::to_string(i) + "\n";
    EXPECT_EQ(40u, parse(text).complaints.count);
}

// --- the kernel's messages ---

std::vector<uint8_t> attribute(uint16_t type, const void *data, size_t size) {
    const rtattr head = {static_cast<uint16_t>(RTA_LENGTH(size)), type};
    std::vector<uint8_t> bytes(RTA_SPACE(size));
    memcpy(bytes.data(), &head, sizeof head);
    memcpy(bytes.data() + sizeof head, data, size);
    return bytes;
}

template <typename Header>
std::vector<uint8_t> message(uint16_t type, Header header,
                             const std::vector<std::vector<uint8_t>> &attributes) {
    std::vector<uint8_t> bytes(NLMSG_SPACE(sizeof header));
    memcpy(bytes.data() + NLMSG_HDRLEN, &header, sizeof header);
    for (const auto &each : attributes)
        bytes.insert(bytes.end(), each.begin(), each.end());
    nlmsghdr head = {};
    head.nlmsg_len = static_cast<uint32_t>(bytes.size());
    head.nlmsg_type = type;
    memcpy(bytes.data(), &head, sizeof head);
    return bytes;
}

struct fdb_row {
    uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    uint32_t bridge = 5;
    uint16_t state = NUD_REACHABLE;
    uint8_t family = AF_BRIDGE;
    uint16_t vlan = 7;
};

std::vector<uint8_t> fdb_message(const fdb_row &row) {
    ndmsg header = {};
    header.ndm_family = row.family;
    header.ndm_ifindex = 9;
    header.ndm_state = row.state;
    const nda_cacheinfo ages = {0, 0, 1234, 0};
    return message(RTM_NEWNEIGH, header,
                   {attribute(NDA_LLADDR, row.mac, 6), attribute(NDA_MASTER, &row.bridge, 4),
                    attribute(NDA_VLAN, &row.vlan, 2), attribute(NDA_CACHEINFO, &ages, sizeof ages)});
}

bool matches(const fdb_row &row, linux_fdb_entry *entry) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const std::vector<uint8_t> bytes = fdb_message(row);
    return linux_fdb_match({bytes.data(), bytes.size()}, 5, mac, entry);
}

TEST(LinuxForwarding, AnEntryOfAnyVlanCounts) {
    linux_fdb_entry entry = {};
    ASSERT_TRUE(matches({}, &entry));
    EXPECT_EQ(9, entry.port);
    EXPECT_EQ(1234u, entry.age);
}

TEST(LinuxForwarding, OthersDoNot) {
    linux_fdb_entry entry = {};
    EXPECT_FALSE(matches({.mac = {2, 0, 0, 0, 0, 2}}, &entry));
    EXPECT_FALSE(matches({.bridge = 6}, &entry));
    EXPECT_FALSE(matches({.state = NUD_PERMANENT}, &entry)) << "the bridge's own address";
    EXPECT_FALSE(matches({.family = AF_INET}, &entry));
}

TEST(LinuxForwarding, AMessageThatIsCutShortIsNone) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const std::vector<uint8_t> whole = fdb_message({});
    for (size_t size = 0; size < whole.size(); size++) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        linux_fdb_entry entry = {};
        if (linux_fdb_match({cut.data(), cut.size()}, 5, mac, &entry))
            EXPECT_GE(size, NLMSG_LENGTH(sizeof(ndmsg)) + RTA_LENGTH(6));
    }
}

std::vector<uint8_t> neighbour_message(uint8_t family, uint16_t state) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const uint8_t address[16] = {192, 168, 1, 2};
    ndmsg header = {};
    header.ndm_family = family;
    header.ndm_state = state;
    return message(
        RTM_NEWNEIGH, header,
        {attribute(NDA_DST, address, family == AF_INET6 ? 16 : 4), attribute(NDA_LLADDR, mac, sizeof mac)});
}

bool answers(const std::vector<uint8_t> &bytes, size_t size, uint8_t number) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, number};
    return linux_neighbour_match({bytes.data(), size}, mac);
}

TEST(LinuxNeighbours, AnAddressThatIsConfirmedOrAskedForIsASignOfLife) {
    for (const uint8_t family : {AF_INET, AF_INET6}) {
        for (const uint16_t state : {NUD_REACHABLE, NUD_DELAY, NUD_PROBE}) {
            const std::vector<uint8_t> bytes = neighbour_message(family, state);
            EXPECT_TRUE(answers(bytes, bytes.size(), 1));
            EXPECT_FALSE(answers(bytes, bytes.size(), 2));
        }
        for (const uint16_t state : {NUD_STALE, NUD_FAILED, NUD_INCOMPLETE, NUD_PERMANENT, NUD_NOARP}) {
            const std::vector<uint8_t> bytes = neighbour_message(family, state);
            EXPECT_FALSE(answers(bytes, bytes.size(), 1)) << state;
        }
    }
    const std::vector<uint8_t> bridge = neighbour_message(AF_BRIDGE, NUD_REACHABLE);
    EXPECT_FALSE(answers(bridge, bridge.size(), 1)) << "the forwarding table has ages of its own";
}

TEST(LinuxNeighbours, AMessageThatIsCutShortIsNone) {
    const std::vector<uint8_t> whole = neighbour_message(AF_INET, NUD_REACHABLE);
    for (size_t size = 0; size + 2 < whole.size(); size++)
        EXPECT_FALSE(answers(whole, size, 1)) << size;
}

std::vector<uint8_t> link_message(int index, const char *name, int master, bool bridge, bool running,
                                  std::vector<uint8_t> more = {}, uint16_t type = RTM_NEWLINK) {
    ifinfomsg header = {};
    header.ifi_index = index;
    header.ifi_flags = IFF_UP | (running ? LINUX_LOWER_UP : 0u);
    std::vector<std::vector<uint8_t>> attributes = {attribute(IFLA_IFNAME, name, strlen(name) + 1)};
    if (master != 0)
        attributes.push_back(attribute(IFLA_MASTER, &master, 4));
    if (bridge) {
        const std::vector<uint8_t> kind = attribute(IFLA_INFO_KIND, "bridge", 7);
        attributes.push_back(attribute(IFLA_LINKINFO, kind.data(), kind.size()));
    }
    attributes.push_back(std::move(more));
    return message(type, header, attributes);
}

std::vector<uint8_t> address_message(int index, std::vector<uint8_t> bytes, uint8_t length,
                                     uint8_t scope = 0) {
    ifaddrmsg header = {};
    header.ifa_family = bytes.size() == 4 ? AF_INET : AF_INET6;
    header.ifa_index = static_cast<uint32_t>(index);
    header.ifa_prefixlen = length;
    header.ifa_scope = scope;
    return message(RTM_NEWADDR, header, {attribute(IFA_ADDRESS, bytes.data(), bytes.size())});
}

std::vector<uint8_t> default_route(int index) {
    rtmsg header = {};
    header.rtm_type = RTN_UNICAST;
    return message(RTM_NEWROUTE, header, {attribute(RTA_OIF, &index, 4)});
}

struct router_fixture : testing::Test {
    linux_view view = {};
    linux_conf conf;
    linux_lan_numbers numbers = {};
    router_fixture() { linux_conf_preset(&conf); }
    void take(const std::vector<uint8_t> &bytes) { linux_view_take(&view, {bytes.data(), bytes.size()}); }
    common_router_table table() {
        linux_left_out left_out;
        (void)linux_lan_numbers_give(&view, &conf, &numbers, &left_out);
        linux_left_out_log(&left_out);
        common_router_table made;
        linux_lans_table(&view, &conf, &numbers, &made);
        return made;
    }
};

TEST_F(router_fixture, ABridgeWithAnAddressIsALan) {
    take(link_message(2, "br0", 0, true, true));
    take(link_message(3, "eth0", 0, false, true));
    take(link_message(4, "brwan", 0, true, true));
    take(link_message(5, "empty", 0, true, true));
    take(address_message(2, {192, 168, 1, 1}, 24));
    take(address_message(3, {192, 168, 2, 1}, 24));
    take(address_message(4, {192, 168, 3, 1}, 24));
    take(address_message(5, std::vector<uint8_t>(16, 0xfe), 64, RT_SCOPE_LINK));
    take(default_route(4));
    const common_router_table made = table();
    ASSERT_EQ(1u, made.count);
    EXPECT_STREQ("br0", made.entry[0].params.ifname);
    EXPECT_EQ(1, made.entry[0].params.rndidx);
    EXPECT_EQ(24u, made.entry[0].params.prefix_length);
    EXPECT_TRUE(linux_is_outward(&view, 4, &conf));
    EXPECT_FALSE(linux_is_outward(&view, 2, &conf));
    EXPECT_EQ(3, linux_link_named(&view, "eth0")->index);
    EXPECT_EQ(nullptr, linux_link_named(&view, "eth"));
}

TEST_F(router_fixture, OnePrefixIsPublishedAndTheOthersAreKept) {
    take(link_message(2, "br0", 0, true, true));
    take(address_message(2, {192, 168, 1, 1}, 24));
    take(address_message(2, {10, 0, 0, 1}, 8));
    std::vector<uint8_t> prefix(16);
    prefix[0] = 0xfd;
    take(address_message(2, prefix, 48));
    take(address_message(2, prefix, 64));
    prefix[1] = 1;
    take(address_message(2, prefix, 64));
    const common_router_table made = table();
    EXPECT_EQ(1, made.entry[0].params.ipv6_enabled);
    EXPECT_EQ(0, made.entry[0].params.ipv6_prefix[1]);
    ASSERT_EQ(3u, made.entry[0].others);
    EXPECT_EQ(8u, made.entry[0].other[0].length);
    EXPECT_EQ(48u, made.entry[0].other[1].length);
}

TEST_F(router_fixture, MoreSubnetsThanFitAreToldOfOnceWhileItIsSo) {
    const auto with_subnets = [this](size_t count) {
        view = {};
        take(link_message(2, "br0", 0, true, true));
        for (size_t i = 0; i < count; i++)
            take(address_message(2, {10, static_cast<uint8_t>(i), 0, 1}, 24));
        return table().entry[0].others;
    };
    router_logged.clear();
    EXPECT_EQ(COMMON_ROUTER_OTHERS, with_subnets(COMMON_ROUTER_OTHERS + 1));
    EXPECT_TRUE(router_logged.empty());
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(COMMON_ROUTER_OTHERS, with_subnets(COMMON_ROUTER_OTHERS + 3));
    EXPECT_THAT(router_logged, ElementsAre("br0 has more subnets than can be told apart"));
    (void)with_subnets(1);
    (void)with_subnets(COMMON_ROUTER_OTHERS + 2);
    EXPECT_EQ(2u, router_logged.size());
}

TEST_F(router_fixture, NumbersAreKept) {
    const char *path = "/tmp/networks";
    (void)snprintf(numbers.name[2], IFNAMSIZ, "br0");
    ASSERT_TRUE(linux_lan_numbers_save(path, &numbers));
    linux_lan_numbers loaded = {};
    (void)snprintf(conf.network[0], IFNAMSIZ, "first");
    EXPECT_TRUE(linux_lan_numbers_load(path, &conf, &loaded));
    EXPECT_STREQ("first", loaded.name[0]);
    EXPECT_STREQ("br0", loaded.name[2]);
    numbers = loaded;
    take(link_message(2, "br1", 0, true, true));
    take(address_message(2, {192, 168, 1, 1}, 24));
    EXPECT_EQ(2, table().entry[0].params.rndidx);
}

TEST_F(router_fixture, WhoIsLeftOutIsNamedOnceWhileItIs) {
    const auto add = [this](int index, const char *name) {
        take(link_message(index, name, 0, true, true));
        take(address_message(index, {10, static_cast<uint8_t>(index), 0, 1}, 24));
    };
    for (int i = 1; i <= RNDDB_MAX_ENTRIES; i++)
        add(i, ("lan" + std::to_string(i)).c_str());
    add(20, "ninth");
    add(21, "tenth");
    router_logged.clear();
    for (int i = 0; i < 3; i++)
        (void)table();
    EXPECT_THAT(router_logged, ElementsAre("ninth is left out: there are 8 networks already",
                                           "tenth is left out: there are 8 networks already"));
}

TEST_F(router_fixture, PortsHaveTheirNumbersByName) {
    take(link_message(2, "br0", 0, true, true));
    take(address_message(2, {192, 168, 1, 1}, 24));
    take(link_message(10, "eth10", 2, false, true));
    take(link_message(11, "eth9", 2, false, false));
    take(link_message(12, "eth1", 2, false, true));
    take(link_message(13, "other", 0, false, true));
    linux_ports ports = {};
    linux_dips dips = {};
    (void)snprintf(conf.port[1], IFNAMSIZ, "eth10");
    linux_ports_update(&ports, &view, &conf, &dips);
    EXPECT_EQ(1u, linux_port_of(&ports, 12));
    EXPECT_EQ(2u, linux_port_of(&ports, 10));
    EXPECT_EQ(3u, linux_port_of(&ports, 11));
    EXPECT_EQ(0u, linux_port_of(&ports, 13));
    uint32_t states[EXTSWT_PORTS];
    linux_ports_states(&ports, states);
    EXPECT_THAT(std::vector<uint32_t>(states, states + 4), ElementsAre(1, 1, 0, 1));
    // The device of port 1 goes and another comes: it does not get the number.
    view = {};
    take(link_message(2, "br0", 0, true, true));
    take(address_message(2, {192, 168, 1, 1}, 24));
    take(link_message(14, "eth0", 2, false, true));
    linux_ports_update(&ports, &view, &conf, &dips);
    EXPECT_EQ(4u, linux_port_of(&ports, 14));
    linux_ports_states(&ports, states);
    EXPECT_EQ(0u, states[0]);
}

std::vector<uint8_t> changes(uint32_t count) {
    return attribute(IFLA_CARRIER_CHANGES, &count, sizeof count);
}

// One port, and what the watcher learns of it by tables and by messages.
struct LinuxDips : router_fixture {
    linux_ports ports = {};
    // Returns whether the port was down in between.
    bool look(int index, bool running, std::vector<uint8_t> carrier_changes) {
        view = {};
        take(link_message(2, "br0", 0, true, true));
        take(address_message(2, {192, 168, 1, 1}, 24));
        take(link_message(index, "eth1", 2, false, running, std::move(carrier_changes)));
        linux_dips dips = {};
        linux_ports_update(&ports, &view, &conf, &dips);
        EXPECT_EQ(0, std::count(dips.port + 1, dips.port + EXTSWT_PORTS, true));
        return dips.port[0];
    }
    bool hear(const std::vector<uint8_t> &bytes) const {
        linux_dips dips = {};
        linux_ports_note(&ports, {bytes.data(), bytes.size()}, &dips);
        return dips.port[0];
    }
    bool hear(bool running, uint32_t count, uint16_t type = RTM_NEWLINK) const {
        return hear(link_message(12, "eth1", 2, false, running, changes(count), type));
    }
};

TEST_F(LinuxDips, ACarrierThatWentAndCameBackIsSeenByItsCount) {
    EXPECT_FALSE(look(12, true, changes(4))) << "it is new";
    EXPECT_FALSE(look(12, true, changes(4)));
    EXPECT_TRUE(look(12, true, changes(6)));
    EXPECT_FALSE(look(12, true, changes(6))) << "once";
    EXPECT_TRUE(look(13, true, changes(6))) << "another device of that name";
}

TEST_F(LinuxDips, WhatTheStatesTellIsNoDip) {
    EXPECT_FALSE(look(12, true, changes(4)));
    EXPECT_FALSE(look(12, false, changes(5)));
    EXPECT_FALSE(look(12, true, changes(6)));
    EXPECT_FALSE(look(12, false, changes(9))) << "it is down now";
}

TEST_F(LinuxDips, AKernelThatDoesNotCountChangesTellsOfNone) {
    for (const size_t size : {0, 1, 2, 3, 5, 8}) {
        const uint64_t number = 4 + size;
        EXPECT_FALSE(look(12, true, attribute(IFLA_CARRIER_CHANGES, &number, size))) << size;
        EXPECT_EQ(0u, ports.port[0].carrier_changes);
    }
    EXPECT_FALSE(look(12, true, {}));
    EXPECT_TRUE(hear(link_message(12, "eth1", 2, false, false))) << "there the message is all there is";
}

TEST_F(LinuxDips, AMessageOfALossIsOneUnlessTheTablesShowedIt) {
    EXPECT_FALSE(look(12, true, changes(4)));
    EXPECT_TRUE(hear(false, 5));
    EXPECT_TRUE(hear(false, 4)) << "taken down by a person, whose device does not count that";
    EXPECT_FALSE(hear(true, 6));
    EXPECT_TRUE(look(12, true, changes(6)));
    EXPECT_FALSE(hear(false, 5)) << "the tables were quicker";
    EXPECT_TRUE(hear(true, 6, RTM_DELLINK)) << "it left its bridge";
    EXPECT_FALSE(hear(link_message(12, "eth1", 2, false, false)))
        << "the bridge's own, beside the one that counts";
    EXPECT_FALSE(hear(link_message(99, "eth9", 2, false, false, changes(9)))) << "no port";
}

TEST_F(LinuxDips, AMessageThatIsCutShortIsNone) {
    EXPECT_FALSE(look(12, true, changes(4)));
    const std::vector<uint8_t> whole = link_message(12, "eth1", 2, false, false, changes(5));
    for (size_t size = 0; size < whole.size(); size++)
        EXPECT_FALSE(hear({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)})) << size;
    EXPECT_TRUE(hear(whole));
    EXPECT_FALSE(hear(address_message(12, {192, 168, 1, 1}, 24)));
}

TEST_F(router_fixture, MoreThanFitsIsNoted) {
    for (size_t i = 0; i < LINUX_LINKS; i++)
        take(link_message(static_cast<int>(i) + 1, "some", 0, false, true));
    EXPECT_FALSE(view.cut);
    take(link_message(9999, "one-more", 0, false, true));
    EXPECT_TRUE(view.cut);
    view = {};
    for (size_t i = 0; i <= LINUX_ADDRESSES; i++)
        take(address_message(2, {10, 0, 0, 1}, 8));
    EXPECT_TRUE(view.cut);
    view = {};
    for (size_t i = 0; i <= LINUX_OUTWARD; i++)
        take(default_route(static_cast<int>(i) + 1));
    EXPECT_TRUE(view.cut);
}

TEST_F(router_fixture, MessagesThatAreCutShortDoNoHarm) {
    const std::vector<uint8_t> bridge = link_message(2, "br0", 5, true, true);
    for (size_t size = 0; size <= bridge.size(); size++)
        take({bridge.begin(), bridge.begin() + static_cast<ptrdiff_t>(size)});
    EXPECT_GE(view.links, 1u);
    rtmsg header = {};
    header.rtm_type = RTN_UNICAST;
    const rtnexthop ways[] = {{sizeof(rtnexthop), 0, 0, 7}, {200, 0, 0, 8}};
    take(message(RTM_NEWROUTE, header, {attribute(RTA_MULTIPATH, ways, sizeof ways)}));
    EXPECT_TRUE(linux_is_outward(&view, 7, &conf));
}

// --- events ---

TEST(LinuxEvent, IsOneLineOfJson) {
    uint8_t payload[524] = {};
    payload[common_tr69_code_at] = 105;
    memcpy(payload + common_tr69_body_at, "02:AA:00:00:00:11", 18);
    memcpy(payload + common_tr69_body_at + 136, "a\"b\\\n\xff", 7);
    common_line line;
    linux_event_write(&line, payload, 7);
    const std::string text(line.text, line.length);
    EXPECT_EQ(0u, text.find(R"({"number":7,"code":105,"mac":"02:AA:00:00:00:11","network":0,"adapter":0,)"))
        << text;
    EXPECT_NE(std::string::npos, text.find(R"("host":"a\"b\\\u000a\u00ff")")) << text;
    EXPECT_EQ('}', text.back());
}

} // namespace router_test
