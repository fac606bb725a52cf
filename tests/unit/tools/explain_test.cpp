// Why a device counts as on line or off line, from what is known of it.
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "tools/explain.h"
#include "tools/explain_sources.h"

using testing::HasSubstr;

namespace explain_test {

explanation with_flags(uint32_t flags) {
    explanation known;
    known.client.flags = flags;
    known.client.mac[5] = 0x11;
    known.now = 100;
    known.client.online_time = 40;
    return known;
}

TEST(Explain, OnLineForEachReason) {
    explanation known = with_flags(HBS_FLAG_ONLINE | HBS_FLAG_ASSOC);
    known.client.wifi_index = 2;
    EXPECT_THAT(verdict(known), HasSubstr("On line, because it is associated to Wi-Fi network 3"));
    EXPECT_THAT(verdict(with_flags(HBS_FLAG_ONLINE | HBS_FLAG_TIMER_ONLINE)), HasSubstr("fell silent"));
    known = with_flags(HBS_FLAG_ONLINE);
    known.neighbours = {{"192.168.0.5", "reachable", "br0", 3}};
    EXPECT_THAT(verdict(known), HasSubstr("it answers"));
    known = with_flags(HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4);
    const uint8_t end[8] = {2026 >> 8, 2026 & 255, 11, 21, 1, 2, 3, 0};
    memcpy(known.client.lease_end, end, sizeof end);
    EXPECT_THAT(verdict(known), HasSubstr("a lease until 2026-11-21 01:02:03"));
    EXPECT_THAT(verdict(with_flags(HBS_FLAG_ONLINE)), HasSubstr("was heard of"));
}

TEST(Explain, OnLineWhereTrafficSaysIt) {
    explanation known = with_flags(HBS_FLAG_ONLINE | HBS_FLAG_TIMER_ONLINE);
    known.router = parse_router_settings("");
    EXPECT_THAT(verdict(known), HasSubstr("only quiet")) << "its time may have been renewed";
    known.forwarding = {{"eth1", "br0", 0, 29, true}};
    EXPECT_THAT(verdict(known), HasSubstr("a bridge heard it 29 s ago"));
    known.forwarding[0].age = 30;
    EXPECT_THAT(verdict(known), HasSubstr("only quiet"));
    known.neighbours = {{"192.168.0.5", "stale", "br0", 3}, {"fe80::5", "reachable", "br0", 3}};
    EXPECT_THAT(verdict(known), HasSubstr("it answers"));
    known.client.flags |= HBS_FLAG_ASSOC;
    EXPECT_THAT(verdict(known), HasSubstr("associated"));
    known = with_flags(HBS_FLAG_ONLINE);
    known.router = parse_router_settings("");
    known.kernel_asked = false;
    EXPECT_THAT(verdict(known), HasSubstr("was heard of"));
}

TEST(Explain, OffLineForEachReason) {
    explanation known = with_flags(HBS_FLAG_DYNIP4);
    known.forwarding = {{"eth1", "br0", 0, 5, false}};
    EXPECT_THAT(verdict(known), HasSubstr("its port eth1 has no link"));
    known.forwarding.clear();
    EXPECT_THAT(verdict(known), HasSubstr("knows nothing of it"));
    known.neighbours = {{"192.168.0.5", "failed", "br0", 3}};
    EXPECT_THAT(verdict(known), HasSubstr("gives no answer"));
    EXPECT_THAT(verdict(with_flags(0)), HasSubstr("neither a lease nor an address"));
    known.neighbours = {{"192.168.0.5", "stale", "br0", 3}};
    EXPECT_THAT(verdict(known), HasSubstr("none has come since"));
    known.neighbours = {{"192.168.0.5", "incomplete", "br0", 0}};
    EXPECT_THAT(verdict(known), HasSubstr("is asking for it just now"));
    known.neighbours.clear();
    known.kernel_asked = false;
    EXPECT_THAT(verdict(known), HasSubstr("none has come since")) << "what was not asked says nothing";
}

TEST(Explain, WhatStillHoldsHasNotEnded) {
    explanation known = with_flags(HBS_FLAG_DYNIP4);
    known.kernel_asked = false;
    EXPECT_EQ(verdict(known),
              "Off line, because its link, its lease, its association or its answers ended and "
              "none has come since.");
    known.client.flags |= HBS_FLAG_TIMER_LEASE;
    known.client.adapter_type = HBS_ADAPTER_ETHERNET;
    EXPECT_EQ(verdict(known), "Off line, because its link or its answers ended and none has come since.");
    known.client.adapter_type = HBS_ADAPTER_WIFI;
    EXPECT_EQ(verdict(known),
              "Off line, because its association or its answers ended and none has come since.");
}

TEST(Explain, WhatWouldChangeIt) {
    explanation known = with_flags(HBS_FLAG_ONLINE | HBS_FLAG_TIMER_ONLINE);
    known.client.switch_port = 6;
    EXPECT_THAT(what_would_change_it(known),
                testing::ElementsAre(HasSubstr("Port 6 loses its link"), HasSubstr("silence")));
    EXPECT_THAT(what_would_change_it(with_flags(0)), testing::ElementsAre(HasSubstr("brings it on line")));
}

TEST(Explain, WhatEndsAStationsPresence) {
    explanation known = with_flags(HBS_FLAG_ONLINE | HBS_FLAG_ASSOC);
    EXPECT_THAT(what_would_change_it(known),
                testing::ElementsAre(HasSubstr("Wi-Fi network: off line at once")));
    known.router = parse_router_settings("wifi.settle = 7");
    EXPECT_THAT(what_would_change_it(known), testing::ElementsAre(HasSubstr("at no access point for 7 s")));
    known.client.flags = HBS_FLAG_ONLINE;
    known.client.adapter_type = HBS_ADAPTER_WIFI;
    EXPECT_THAT(what_would_change_it(known),
                testing::ElementsAre(HasSubstr("leaves"), HasSubstr("gives no answer")));
}

TEST(Explain, WhatSilenceDoes) {
    explanation known = with_flags(HBS_FLAG_ONLINE);
    EXPECT_THAT(what_would_change_it(known),
                testing::ElementsAre("It falls silent: off line ten minutes later."));
    known.router = parse_router_settings("");
    EXPECT_THAT(what_would_change_it(known),
                testing::ElementsAre(HasSubstr("not been heard for 30 seconds")));
    known.client.flags = HBS_FLAG_ONLINE | HBS_FLAG_TIMER_ONLINE;
    EXPECT_THAT(what_would_change_it(known), testing::ElementsAre(HasSubstr("not been heard for 30 seconds"),
                                                                  HasSubstr("it is asked for")));
    known.client.flags = HBS_FLAG_DYNIP4;
    EXPECT_THAT(what_would_change_it(known), testing::ElementsAre(HasSubstr("a frame that a bridge hears")));
    known.client.flags = 0;
    EXPECT_THAT(what_would_change_it(known), testing::ElementsAre(testing::Not(HasSubstr("frame"))));
}

TEST(Explain, WhatCameWhenItsPresenceChanged) {
    explanation known = with_flags(HBS_FLAG_ONLINE); // 60 seconds ago
    known.neighbours = {{"192.168.0.5", "reachable", "br0", 61}, {"fe80::5", "stale", "br0", 30}};
    station_entry station;
    station.device = "wlan0";
    station.connected = 62;
    known.stations = {station};
    EXPECT_THAT(what_came_then(known),
                testing::ElementsAre("the kernel's entry of 192.168.0.5 became reachable"));
    known.stations[0].connected = 59;
    known.client.lease_start_uptime = 5040;
    known.uptime = 5100; // it slept for 5000 seconds
    EXPECT_THAT(
        what_came_then(known),
        testing::ElementsAre(HasSubstr("entry"), HasSubstr("access point wlan0"), HasSubstr("first lease")));
    known.neighbours.push_back({"fe80::6", "failed", "br0", 60});
    known.neighbours.push_back({"fe80::7", "delay", "br0", 60});
    EXPECT_THAT(what_came_then(known), testing::SizeIs(3)) << "only an answer brings it on line";
    known.client.flags = 0;
    EXPECT_THAT(what_came_then(known), testing::ElementsAre("the kernel's entry of fe80::6 became failed"))
        << "and nothing else takes it off line";
    known.client.online_time = 0;
    EXPECT_THAT(what_came_then(known), testing::IsEmpty()) << "nobody knows when";
}

TEST(Explain, JsonHasEverything) {
    explanation known = with_flags(HBS_FLAG_ONLINE);
    known.neighbours = {{"192.168.0.5", "stale", "br0", 3}};
    known.forwarding = {{"eth1", "br0", 7, 5, true}};
    const json document = explanation_json(known);
    EXPECT_EQ("stale", document["neighbours"][0]["state"]);
    EXPECT_EQ(7, document["forwarding"][0]["vlan"]);
    EXPECT_EQ(60, document["presence_seconds"]);
    EXPECT_EQ(verdict(known), document["verdict"]);
    for (const uint32_t unknown : {0u, 101u}) {
        known.client.online_time = unknown;
        EXPECT_TRUE(explanation_json(known)["presence_seconds"].is_null()) << unknown;
    }
}

struct entry_bytes {
    nlmsghdr head;
    ndmsg body;
    struct {
        rtattr head;
        uint8_t bytes[8];
    } address, mac, master;
};

entry_bytes entry_of(uint8_t family, uint16_t state) {
    entry_bytes bytes = {};
    bytes.head.nlmsg_len = sizeof bytes;
    bytes.head.nlmsg_type = RTM_NEWNEIGH;
    bytes.body.ndm_family = family;
    bytes.body.ndm_state = state;
    bytes.body.ndm_ifindex = 1;
    bytes.address.head = {RTA_LENGTH(8), 99};
    if (family == AF_INET) {
        bytes.address.head.rta_type = NDA_DST;
        bytes.address.head.rta_len = RTA_LENGTH(4);
    }
    bytes.mac.head = {RTA_LENGTH(6), NDA_LLADDR};
    bytes.mac.bytes[5] = 0x11;
    bytes.master.head = {RTA_LENGTH(4), NDA_MASTER};
    bytes.master.bytes[0] = bytes.master.bytes[3] = 1;
    return bytes;
}

hbs_netlink_bytes bytes_of(const entry_bytes &entry, size_t size = sizeof(entry_bytes)) {
    return {reinterpret_cast<const uint8_t *>(&entry), size};
}

TEST(Explain, KernelEntriesOfTheDeviceAndNoOther) {
    const explanation known = with_flags(0);
    hbs_client other = known.client;
    other.mac[0] = 2;
    const entry_bytes bridge = entry_of(AF_BRIDGE, NUD_REACHABLE);
    EXPECT_TRUE(forwarding_of(bytes_of(bridge), known.client));
    EXPECT_FALSE(forwarding_of(bytes_of(bridge), other));
    EXPECT_FALSE(forwarding_of(bytes_of(bridge, sizeof(nlmsghdr) + 3), known.client));
    EXPECT_FALSE(neighbour_of(bytes_of(bridge), known.client));
    const entry_bytes failed = entry_of(AF_INET, NUD_FAILED);
    ASSERT_FALSE(forwarding_of(bytes_of(failed), known.client));
}

} // namespace explain_test
