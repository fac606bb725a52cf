// What the TR-069 agent is told: every field of every event, as it arrives there.
#include <algorithm>
#include <cstring>

#include <hbs_msg.h>

#include "events/tr69_events.h"
#include "events/tr69_payload.h"
#include "store/segment.h"
#include "support/events.h"

namespace tr69_events_test {

constexpr const char *MAC_TEXT = "02:ab:00:00:00:11";
constexpr const char *UPPER = "02:AB:00:00:00:11";
constexpr const char *FRAME = " format=1 head=zero tail=zero";
constexpr const char *IDENTITY = " oui=\"A1B2C3\" serial=\"SN-1\" class=\"PC-1\"";

struct Event {
    int code;
    std::string mac;
    int number = 0;
    int adapter = 0;
    std::string ipv4, ipv6, ll, host;
    int flag = 0;
    std::string identity = IDENTITY;
};

std::string journal_line(const Event &event) {
    return "tr69 event " + std::to_string(event.code) + " mac=\"" + event.mac +
           "\" number=" + std::to_string(event.number) + " adapter=" + std::to_string(event.adapter) +
           " ipv4=\"" + event.ipv4 + "\" ipv6=\"" + event.ipv6 + "\" ll=\"" + event.ll + "\" host=\"" +
           event.host + "\" flag=" + std::to_string(event.flag) + event.identity + FRAME;
}

constexpr const char *NO_IDENTITY = " oui=\"\" serial=\"\" class=\"\"";

class Tr69Events : public EventTest {
  protected:
    hbs_client *client_ = nullptr;

    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        client_ = published_client(MAC_TEXT, "192.168.1.20", HBS_FLAG_DYNIP4, 1);
        hbs_copy_text(client_->host, sizeof(client_->host), "laptop");
        hbs_copy_text(client_->oui, sizeof(client_->oui), "A1B2C3");
        hbs_copy_text(client_->serial_number, sizeof(client_->serial_number), "SN-1");
        hbs_copy_text(client_->product_class, sizeof(client_->product_class), "PC-1");
        hbs_publish(client_);
    }

    void give_ipv6() {
        const Ipv6 global = ipv6_of("fd00:2::1975");
        const Ipv6 link_local = ipv6_of("fe80::11");
        std::copy(global.begin(), global.end(), client_->ipv6);
        std::copy(link_local.begin(), link_local.end(), client_->ll);
    }

    void expect_sent(const Event &event) {
        EXPECT_EQ((std::vector<std::string>{journal_line(event)}), journal_lines());
        clear_journal();
    }
};

std::array<uint8_t, HBS_MSG_MAX> set_lease_command(const std::string &host) {
    std::array<uint8_t, HBS_MSG_MAX> bytes{};
    hbs_msg_set_static_lease command{};
    command.code = HBS_CMD_SET_STATIC_LEASE;
    command.nwidx = 0x0102;
    command.family = HBS_FAMILY_IPV4;
    std::memcpy(command.ipv4, ipv4_of("192.168.1.77").data(), 4);
    std::memcpy(command.mac, mac_of("0a:bc:de:00:00:01").data(), 6);
    std::memcpy(command.host, host.data(), std::min(host.size(), sizeof(command.host)));
    std::memcpy(bytes.data(), &command, sizeof(command));
    return bytes;
}

std::array<uint8_t, HBS_MSG_MAX> clear_lease_command(const std::string &ipv4) {
    std::array<uint8_t, HBS_MSG_MAX> bytes{};
    bytes[0] = HBS_CMD_CLR_STATIC_LEASE;
    constexpr uint16_t value = 0x0304;
    std::memcpy(&bytes[2], &value, sizeof(value));
    std::memcpy(&bytes[8], ipv4_of(ipv4).data(), 4);
    return bytes;
}

hbs_msg_set_static_lease read_datagram(const std::array<uint8_t, HBS_MSG_MAX> &bytes) {
    hbs_msg_set_static_lease datagram;
    std::memcpy(&datagram, bytes.data(), sizeof datagram);
    datagram.host[sizeof datagram.host - 1] = '\0'; // as the command thread hands it on
    return datagram;
}

// --- layout ---

TEST(Tr69Payload, OffsetsAreThoseOfTheAgent) {
    hbs_tr69_payload payload{};
    uint8_t bytes[TR69_EVENT_SIZE];
    payload.one = 1;
    payload.code = 101;
    payload.body.number = 0x01020304;
    payload.body.adapter = 5;
    payload.body.described = 1;
    std::memcpy(payload.body.host, "h", 1);
    std::memcpy(bytes, &payload, sizeof(bytes));
    uint32_t number;
    std::memcpy(&number, bytes + 30, sizeof(number));
    EXPECT_EQ(0x01020304u, number); // native order
    EXPECT_EQ(1, bytes[8]);
    EXPECT_EQ(101, bytes[9]);
    EXPECT_EQ('h', bytes[10 + 136]);
    EXPECT_EQ(1, bytes[10 + 200]);
    EXPECT_EQ(340u, sizeof(hbs_tr69_body));
}

// --- commands ---

TEST_F(Tr69Events, StaticLeaseSetCarriesTheCommand) {
    const hbs_msg_set_static_lease datagram = read_datagram(set_lease_command("printer"));
    hbs_send_tr69_static_lease_set(&datagram);
    expect_sent({.code = 1,
                 .mac = "0A:BC:DE:00:00:01",
                 .number = 0x0102,
                 .ipv4 = "192.168.1.77",
                 .host = "printer",
                 .flag = 1,
                 .identity = NO_IDENTITY});
}

TEST_F(Tr69Events, HostNameOfACommandThatDoesNotEndIsCutInsideItsField) {
    auto command = set_lease_command(std::string(64, 'x'));
    std::fill(command.begin() + 290, command.end(), uint8_t{'x'});
    const hbs_msg_set_static_lease datagram = read_datagram(command);
    hbs_send_tr69_static_lease_set(&datagram);
    expect_sent({.code = 1,
                 .mac = "0A:BC:DE:00:00:01",
                 .number = 0x0102,
                 .ipv4 = "192.168.1.77",
                 .host = std::string(63, 'x'),
                 .flag = 1,
                 .identity = NO_IDENTITY});
}

TEST_F(Tr69Events, WhatFollowsTheHostNamesEndIsNotSent) {
    auto command = set_lease_command("ab");
    command[290 + 3] = 'c';
    const hbs_msg_set_static_lease datagram = read_datagram(command);
    hbs_send_tr69_static_lease_set(&datagram);
    ASSERT_EQ(1u, journal_lines().size());
    EXPECT_NE(std::string::npos, journal_lines()[0].find(" host=\"ab\" "));
}

TEST_F(Tr69Events, HostNameOfACommandMayHoldAnyBytes) {
    const hbs_msg_set_static_lease datagram = read_datagram(set_lease_command("a\"$(x)/\n%s"));
    hbs_send_tr69_static_lease_set(&datagram);
    ASSERT_EQ(1u, journal_lines().size());
    EXPECT_NE(std::string::npos, unescape(journal_lines()[0]).find(" host=\"a\"$(x)/\n%s\" "));
}

TEST_F(Tr69Events, StaticLeaseClearedCarriesTheClientThatHoldsTheAddress) {
    const hbs_msg_set_static_lease datagram = read_datagram(clear_lease_command("192.168.1.20"));
    hbs_send_tr69_static_lease_cleared(&datagram);
    expect_sent({.code = 2, .mac = UPPER, .number = 0x0304, .ipv4 = "192.168.1.20", .identity = NO_IDENTITY});
}

TEST_F(Tr69Events, StaticLeaseClearedOfAnAddressThatNobodyHoldsIsSentEmpty) {
    const hbs_msg_set_static_lease datagram = read_datagram(clear_lease_command("192.168.1.21"));
    hbs_send_tr69_static_lease_cleared(&datagram);
    expect_sent({.code = 2, .mac = "", .identity = NO_IDENTITY});
}

// --- client records ---

Event lease_event(const std::string &host) {
    return {.code = 101,
            .mac = UPPER,
            .number = 1,
            .adapter = 1,
            .ipv4 = "192.168.1.20",
            .host = host,
            .flag = 1};
}

TEST_F(Tr69Events, Dhcpv4LeaseIsFullyDescribed) {
    give_ipv6();
    EXPECT_EQ(0, hbs_send_tr69_event(101, client_));
    expect_sent(lease_event("laptop"));
}

TEST_F(Tr69Events, Dhcpv6LeaseCarriesBothIpv6Addresses) {
    give_ipv6();
    EXPECT_EQ(0, hbs_send_tr69_event(102, client_));
    expect_sent({.code = 102,
                 .mac = UPPER,
                 .number = 1,
                 .adapter = 1,
                 .ipv6 = "fd00:2::1975",
                 .ll = "fe80::11",
                 .host = "laptop",
                 .flag = 1});
}

TEST_F(Tr69Events, InformationAndDhcpv6ReleaseCarryTheIdentityOnly) {
    give_ipv6();
    for (int code : {103, 104}) {
        EXPECT_EQ(0, hbs_send_tr69_event(code, client_));
        expect_sent({.code = code, .mac = UPPER});
    }
}

TEST_F(Tr69Events, ExpiredLeaseCarriesTheAdapterToo) {
    for (int code : {105, 108}) {
        EXPECT_EQ(0, hbs_send_tr69_event(code, client_));
        expect_sent({.code = code, .mac = UPPER, .adapter = 1});
    }
}

TEST_F(Tr69Events, RecordIsReadAsItStandsNotAsItIsPublished) {
    hbs_copy_text(client_->host, sizeof(client_->host), "unpublished");
    EXPECT_EQ(0, hbs_send_tr69_event(101, client_));
    expect_sent(lease_event("unpublished"));
}

TEST_F(Tr69Events, UnknownCodeIsRefusedAndNothingIsSent) {
    for (int code : {99, 0, 1, 2, 3, 100, 106, 107, 109, -1, 357})
        EXPECT_EQ(-1, hbs_send_tr69_event(code, client_)) << code;
    EXPECT_TRUE(journal_lines().empty());
}

TEST_F(Tr69Events, MissingRecordIsRefusedAndNothingIsSent) {
    for (int code : {101, 102, 103, 104, 105, 108})
        EXPECT_EQ(-1, hbs_send_tr69_event(code, nullptr)) << code;
    EXPECT_EQ(-1, hbs_send_tr69_client_event(106, nullptr));
    EXPECT_TRUE(journal_lines().empty());
}

TEST_F(Tr69Events, AgentThatRefusesAnEventIsNotAFailure) {
    fail("quarn_tr69SendEvent", -1);
    EXPECT_EQ(0, hbs_send_tr69_event(101, client_));
    EXPECT_EQ(0, hbs_send_tr69_client_event(106, client_));
    EXPECT_TRUE(journal_lines().empty());
}

// --- read back from the database ---

TEST_F(Tr69Events, ClientEventIsReadBackByMac) {
    give_ipv6();
    client_->status_time[0] = 7;
    for (int code : {106, 107, 108}) {
        EXPECT_EQ(0, hbs_send_tr69_client_event(code, client_));
        expect_sent({.code = code,
                     .mac = UPPER,
                     .number = 1,
                     .adapter = 1,
                     .ipv4 = "192.168.1.20",
                     .ipv6 = "fd00:2::1975",
                     .ll = "fe80::11",
                     .host = "laptop",
                     .flag = 1});
    }
}

TEST_F(Tr69Events, ClientWithoutIpv6SendsEmptyTexts) {
    EXPECT_EQ(0, hbs_send_tr69_client_event(106, client_));
    expect_sent(
        {.code = 106, .mac = UPPER, .number = 1, .adapter = 1, .ipv4 = "192.168.1.20", .host = "laptop"});
}

TEST_F(Tr69Events, ClientWithoutIpv4SendsAnEmptyText) {
    std::memset(client_->ipv4, 0, sizeof(client_->ipv4));
    EXPECT_EQ(0, hbs_send_tr69_client_event(106, client_));
    expect_sent({.code = 106, .mac = UPPER, .number = 1, .adapter = 1, .host = "laptop"});
}

TEST_F(Tr69Events, OnlyTheFirstByteOfTheStartDateCounts) {
    for (int code : {106, 107, 108}) {
        std::memset(client_->status_time, 0, sizeof(client_->status_time));
        client_->status_time[1] = 9;
        EXPECT_EQ(0, hbs_send_tr69_client_event(code, client_));
        ASSERT_EQ(1u, journal_lines().size());
        EXPECT_NE(std::string::npos, journal_lines()[0].find(" flag=0 "));
        clear_journal();
    }
}

TEST_F(Tr69Events, WhatReadersDoNotSeeYetIsNotSent) {
    hbs_copy_text(client_->host, sizeof(client_->host), "unpublished");
    client_->adapter_type = HBS_ADAPTER_MOCA;
    EXPECT_EQ(0, hbs_send_tr69_client_event(106, client_));
    expect_sent(
        {.code = 106, .mac = UPPER, .number = 1, .adapter = 1, .ipv4 = "192.168.1.20", .host = "laptop"});
}

TEST_F(Tr69Events, ClientEventWaitsForNoReader) {
    hbs_sem_wait(); // as a reader that is slow
    EXPECT_EQ(0, hbs_send_tr69_client_event(106, client_));
    EXPECT_EQ(0u, logged_containing("taken over"));
    expect_sent(
        {.code = 106, .mac = UPPER, .number = 1, .adapter = 1, .ipv4 = "192.168.1.20", .host = "laptop"});
    hbs_sem_post();
}

TEST_F(Tr69Events, WhatAnotherProcessWroteIntoTheSegmentIsNotSent) {
    hbs_client *slot = &hbs_segment_shared()->client_pool[0];
    std::memset(slot->host, 'x', sizeof(slot->host));
    slot->adapter_type = HBS_ADAPTER_MOCA;
    EXPECT_EQ(0, hbs_send_tr69_client_event(106, client_));
    expect_sent(
        {.code = 106, .mac = UPPER, .number = 1, .adapter = 1, .ipv4 = "192.168.1.20", .host = "laptop"});
}

TEST_F(Tr69Events, ClientWithoutAMacSendsNoOthersFields) {
    hbs_client *nomac = hbs_add(mac_of("00:00:00:00:00:00").data());
    nomac->adapter_type = HBS_ADAPTER_ETHERNET;
    hbs_shm_commit(nomac);
    EXPECT_EQ(0, hbs_send_tr69_client_event(107, nomac));
    expect_sent({.code = 107, .mac = "00:00:00:00:00:00", .identity = NO_IDENTITY});
}

TEST_F(Tr69Events, UnpublishedClientSendsWhatItsRecordHolds) {
    hbs_client *fresh = hbs_add(mac_of("02:ab:00:00:00:12").data());
    fresh->adapter_type = HBS_ADAPTER_ETHERNET;
    EXPECT_EQ(0, hbs_send_tr69_client_event(107, fresh));
    expect_sent({.code = 107, .mac = "02:AB:00:00:00:12", .identity = NO_IDENTITY});
}

} // namespace tr69_events_test
