// What DHCP servers call the hook with, and the datagrams that come of it.
#include <arpa/inet.h>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include <hbs_msg.h>

#include "hook/lease_note.h"

namespace lease_note_test {

std::map<std::string, std::string> variables;

const char *variable(const char *name) {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
}

void keep(hbs_lease_note *note, void *context) {
    static_cast<std::vector<hbs_lease_note> *>(context)->push_back(*note);
}

std::vector<hbs_lease_note> notes(std::vector<const char *> words) {
    std::vector<hbs_lease_note> found;
    words.insert(words.begin(), "hbs-lease-event");
    const int count = static_cast<int>(words.size());
    words.push_back(nullptr);
    hbs_notes_read(count, words.data(), variable, keep, &found);
    return found;
}

template <typename Message> Message datagram(const hbs_lease_note &note, size_t expected = sizeof(Message)) {
    uint8_t bytes[HBS_MSG_MAX] = {};
    EXPECT_EQ(expected, hbs_note_datagram(&note, 1000, bytes, sizeof bytes));
    Message message;
    memcpy(&message, bytes, sizeof message);
    return message;
}

constexpr const char *MAC = "02:aa:00:00:00:11";

struct LeaseNote : testing::Test {
    LeaseNote() { variables.clear(); }
};

TEST_F(LeaseNote, AddIsALease) {
    variables = {
        {"DNSMASQ_TIME_REMAINING", "3600"}, {"DNSMASQ_INTERFACE", "lan0"}, {"DNSMASQ_CPEWAN_OUI", "02AA00"}};
    const auto found = notes({"add", MAC, "192.168.10.20", "laptop"});
    ASSERT_EQ(1u, found.size());
    const auto message = datagram<hbs_msg_dhcpv4>(found[0]);
    EXPECT_EQ(HBS_EVENT_DHCPV4_LEASE, message.code);
    EXPECT_EQ(0x11, message.mac[5]);
    EXPECT_EQ(20, message.ipv4[3]);
    EXPECT_EQ(1u, message.dynamic);
    EXPECT_EQ(3600u, message.seconds);
    EXPECT_STREQ("laptop", message.host);
    EXPECT_STREQ("lan0", message.ifname);
    EXPECT_STREQ("02AA00", message.oui);
    EXPECT_EQ(HBS_UNKNOWN_U32, message.nwidx);
    EXPECT_EQ(HBS_UNKNOWN_U32, message.adapter_type);
}

TEST_F(LeaseNote, OldIsALeaseAndDelItsEnd) {
    EXPECT_EQ(hbs_note_kind::lease_v4, notes({"old", MAC, "192.168.10.20"}).at(0).kind);
    const auto message = datagram<hbs_msg_dhcpv4_release>(notes({"del", MAC, "192.168.10.20"}).at(0));
    EXPECT_EQ(HBS_EVENT_DHCPV4_RELEASE, message.code);
    EXPECT_EQ(1u, message.seconds);
}

TEST_F(LeaseNote, ALeaseWithoutEndLastsTenYears) {
    EXPECT_EQ(HBS_NOTE_ENDLESS_SECONDS,
              datagram<hbs_msg_dhcpv4>(notes({"add", MAC, "1.2.3.4"}).at(0)).seconds);
    variables["DNSMASQ_TIME_REMAINING"] = "12x";
    EXPECT_EQ(HBS_NOTE_ENDLESS_SECONDS,
              datagram<hbs_msg_dhcpv4>(notes({"add", MAC, "1.2.3.4"}).at(0)).seconds);
}

TEST_F(LeaseNote, SecondsAreThoseThatTheDaemonTakes) {
    const auto seconds_of = [](const char *text) {
        variables["DNSMASQ_TIME_REMAINING"] = text;
        return datagram<hbs_msg_dhcpv4>(notes({"add", MAC, "1.2.3.4"}).at(0)).seconds;
    };
    EXPECT_EQ(1u, seconds_of("0")) << "none would be a lease that nothing ends";
    EXPECT_EQ(86400u, seconds_of("86400"));
    for (const char *long_time : {"315360001", "4294967294", "4294967295", "99999999999"})
        EXPECT_EQ(HBS_NOTE_ENDLESS_SECONDS, seconds_of(long_time)) << long_time;
}

TEST_F(LeaseNote, TheEndOfADhcpv6LeaseLiesBehindItsStart) {
    const auto end_of = [](const char *text, int64_t now) {
        variables["DNSMASQ_TIME_REMAINING"] = text;
        uint8_t bytes[HBS_MSG_MAX] = {};
        const hbs_lease_note note = notes({"add", "00:02:00:00:ab", "fd00::5"}).at(0);
        EXPECT_EQ(sizeof(hbs_msg_dhcpv6), hbs_note_datagram(&note, now, bytes, sizeof bytes));
        hbs_msg_dhcpv6 message;
        memcpy(&message, bytes, sizeof message);
        return message.lease_end;
    };
    EXPECT_EQ(1000u + HBS_NOTE_ENDLESS_SECONDS, end_of("4294967295", 1000));
    EXPECT_EQ(1000u + HBS_NOTE_ENDLESS_SECONDS, end_of("4294966296", 1000)) << "the sum would be 0: no end";
    EXPECT_EQ(UINT32_MAX, end_of("600", UINT32_MAX));
    EXPECT_EQ(1u, end_of("600", -7000)) << "a clock before the epoch";
}

TEST_F(LeaseNote, ALongNameIsCutInsideItsField) {
    const std::string name(500, 'x');
    const auto message = datagram<hbs_msg_dhcpv4>(notes({"add", MAC, "1.2.3.4", name.c_str()}).at(0));
    EXPECT_EQ(sizeof message.host - 1, strlen(message.host));
}

TEST_F(LeaseNote, Dhcpv6FindsTheMacInTheIdentifierToo) {
    variables["DNSMASQ_TIME_REMAINING"] = "600";
    for (const char *duid : {"00:03:00:01:02:aa:00:00:00:11", "00:01:00:01:2a:bb:cc:dd:02:aa:00:00:00:11"}) {
        const auto found = notes({"add", duid, "fd00::5", "six"});
        ASSERT_EQ(1u, found.size()) << duid;
        EXPECT_TRUE(found[0].has_mac);
        EXPECT_EQ(0x11, found[0].mac[5]);
        const auto message = datagram<hbs_msg_dhcpv6>(found[0]);
        EXPECT_EQ(HBS_EVENT_DHCPV6_LEASE, message.code);
        EXPECT_EQ(1600u, message.lease_end);
        EXPECT_STREQ("six", message.host);
    }
    EXPECT_FALSE(notes({"add", "00:02:00:00:ab", "fd00::5"}).at(0).has_mac);
    variables["DNSMASQ_MAC"] = MAC;
    EXPECT_TRUE(notes({"add", "00:02:00:00:ab", "fd00::5"}).at(0).has_mac);
    const auto message = datagram<hbs_msg_dhcpv6_release>(notes({"del", "00:02:00:00:ab", "fd00::5"}).at(0));
    EXPECT_EQ(HBS_EVENT_DHCPV6_RELEASE, message.code);
}

TEST_F(LeaseNote, KeaTellsSeveralLeasesAtOnce) {
    variables = {{"DELETED_LEASES4_SIZE", "1"},        {"DELETED_LEASES4_AT0_ADDRESS", "10.0.0.1"},
                 {"DELETED_LEASES4_AT0_HWADDR", MAC},  {"LEASES4_SIZE", "2"},
                 {"LEASES4_AT0_ADDRESS", "10.0.0.2"},  {"LEASES4_AT0_HWADDR", MAC},
                 {"LEASES4_AT0_VALID_LIFETIME", "60"}, {"LEASES4_AT1_ADDRESS", "10.0.0.3"},
                 {"LEASES4_AT1_HWADDR", "garbage"}};
    const auto found = notes({"leases4_committed"});
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ(hbs_note_kind::release_v4, found[0].kind);
    EXPECT_EQ(hbs_note_kind::lease_v4, found[1].kind);
    EXPECT_EQ(60u, found[1].seconds);
}

TEST_F(LeaseNote, KeasLinkLocalAddressIsTakenAndPrefixesAreNot) {
    variables = {{"LEASES6_SIZE", "2"},         {"LEASES6_AT0_ADDRESS", "fd00::7"},
                 {"LEASES6_AT0_TYPE", "IA_NA"}, {"LEASES6_AT1_ADDRESS", "fd01::"},
                 {"LEASES6_AT1_TYPE", "IA_PD"}, {"QUERY6_REMOTE_ADDR", "fe80::11"}};
    const auto found = notes({"leases6_committed"});
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ(0xFE, found[0].ll[0]);
    variables["QUERY6_REMOTE_ADDR"] = "fd00::9"; // a relay's
    EXPECT_EQ(0, notes({"leases6_committed"}).at(0).ll[0]);
}

TEST_F(LeaseNote, TheEndOfADhcpv6LeaseNamesTheLeasedAddressAlone) {
    variables = {{"DELETED_LEASES6_SIZE", "1"},
                 {"DELETED_LEASES6_AT0_ADDRESS", "fd00::6"},
                 {"LEASES6_SIZE", "1"},
                 {"LEASES6_AT0_ADDRESS", "fd00::7"},
                 {"QUERY6_REMOTE_ADDR", "fe80::11"}};
    const auto found = notes({"leases6_committed"});
    ASSERT_EQ(2u, found.size());
    const auto end = datagram<hbs_msg_dhcpv6_release>(found[0]);
    EXPECT_THAT(end.ll, testing::Each(0)) << "by which the device would lose fd00::7, too";
    EXPECT_EQ(6, end.ipv6[15]);
    const auto lease = datagram<hbs_msg_dhcpv6>(found[1]);
    EXPECT_EQ(0x11, lease.ll[15]);
    EXPECT_EQ(7, lease.ipv6[15]);
}

TEST_F(LeaseNote, WhatIsNotUnderstoodIsNothing) {
    const std::vector<std::vector<const char *>> calls = {
        {},
        {""},
        {"add"},
        {"add", MAC},
        {"add", MAC, ""},
        {"add", MAC, "192.168.10.300"},
        {"add", "02:aa:00:00:00", "1.2.3.4"},
        {"add", "02:aa:00:00:00:11:22", "1.2.3.4"},
        {"arp-add", MAC, "1.2.3.4"},
        {"init"},
        {"relay-snoop", "fd00::", "fe80::1"},
        {"lease4_renew"},
        {"leases4_committed"},
        {"lease4_select"},
    };
    for (const auto &call : calls)
        EXPECT_EQ(0u, notes(call).size());
    variables["LEASES4_SIZE"] = "4000000000";
    EXPECT_EQ(0u, notes({"leases4_committed"}).size());
}

} // namespace lease_note_test
