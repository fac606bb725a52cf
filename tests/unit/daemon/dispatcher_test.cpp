// The frame around every row: unknown codes, the result that carries over, the lock, the client that is
// announced.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "daemon/dispatcher.h"
#include "daemon/sender_tag.h"
#include "support/command_fakes.h"

namespace {

class Dispatcher : public testing::Test {
  protected:
    void SetUp() override {
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        fake::reset();
        command.buffer = buffer;
        command.sender = "tag";
        command.result = -1;
    }

    // Returns whether a reply is to be sent.
    bool dispatch(std::initializer_list<uint8_t> datagram) {
        std::copy(datagram.begin(), datagram.end(), buffer);
        const bool reply = hbs_dispatch(&command);
        hbs_dispatch_after(&command);
        return reply;
    }

    uint8_t buffer[HBS_MSG_MAX] = {};
    hbs_command command{};
};

TEST_F(Dispatcher, UnknownCodes_AreDroppedWithoutALineOrAReply) {
    for (int code = 0; code < 256; code++)
        if (hbs_command_find(static_cast<uint8_t>(code)) == nullptr)
            EXPECT_FALSE(dispatch({static_cast<uint8_t>(code)})) << code;
    EXPECT_TRUE(trace::take().empty());
    EXPECT_EQ(command.result, -1);
}

TEST_F(Dispatcher, Code10_IsDropped) {
    EXPECT_FALSE(dispatch({10}));
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(Dispatcher, EventsOtherThan102_AreNotAnswered) {
    for (const hbs_command_row &row : hbs_command_rows()) {
        const bool command_code = row.code <= 14 || row.code == 111;
        EXPECT_EQ(dispatch({row.code}), command_code || row.code == 102) << row.name;
    }
}

TEST_F(Dispatcher, FirstCommandWithoutAHandler_RepliesMinusOne) {
    EXPECT_TRUE(dispatch({HBS_CMD_SET_STATIC_LEASE, 0, 0, 0, 7, 7}));
    EXPECT_EQ(command.result, -1);
}

TEST_F(Dispatcher, CommandWithoutAHandler_RepeatsThePreviousResult) {
    fake::result = 12;
    EXPECT_TRUE(dispatch({HBS_CMD_SET_ROUTE_MODE, 1}));
    EXPECT_EQ(command.result, 12);
    fake::result = 0;
    EXPECT_TRUE(dispatch({HBS_CMD_SET_STATIC_LEASE, 0, 0, 0, 7, 7}));
    EXPECT_EQ(command.result, 12);
}

TEST_F(Dispatcher, CommandWhileNotReady_RepeatsThePreviousResult) {
    fake::result = 12;
    EXPECT_TRUE(dispatch({HBS_CMD_SET_ROUTE_MODE, 0}));
    hbs_db_ready = 0;
    fake::result = 0;
    EXPECT_TRUE(dispatch({HBS_CMD_SET_TRUSTED, 1, HBS_SELECT_MAC}));
    EXPECT_EQ(command.result, 12);
}

TEST_F(Dispatcher, Events_LeaveTheResultAlone) {
    command.result = 12;
    for (uint8_t code = HBS_EVENT_SERVER; code <= HBS_EVENT_XWIFI_CHANGED; code++)
        if (code != HBS_EVENT_SUBNET_MASK && code != HBS_CMD_SET_COMMENT_HOST)
            (void)dispatch({code});
    EXPECT_EQ(command.result, 12);
}

TEST_F(Dispatcher, UnknownSelector_MakesTheResultMinusOne) {
    command.result = 12;
    EXPECT_TRUE(dispatch({HBS_CMD_SET_TRUSTED, 1, 0x14}));
    EXPECT_EQ(command.result, -1);
}

TEST_F(Dispatcher, ReleasesTheLock) {
    for (const hbs_command_row &row : hbs_command_rows()) {
        (void)dispatch({row.code});
        EXPECT_FALSE(trace::list_is_locked()) << row.name;
    }
}

TEST_F(Dispatcher, AnnouncesTheClientAsItWasUnderTheLock) {
    fake::client.mac[5] = 1;
    buffer[0] = HBS_EVENT_DHCPV4_LEASE;
    (void)hbs_dispatch(&command);
    fake::client.mac[5] = 2; // by another thread, meanwhile
    hbs_dispatch_after(&command);
    EXPECT_EQ(trace::take().back(), "tr69 101 client 00:00:00:00:00:01");
}

TEST_F(Dispatcher, ClientOfOneEvent_IsNotAnnouncedForTheNext) {
    (void)dispatch({HBS_EVENT_DHCPV4_LEASE});
    (void)trace::take();
    hbs_db_ready = 0;
    (void)dispatch({HBS_EVENT_DHCPV4_LEASE});
    EXPECT_EQ(trace::take().size(), 1u);
}

// The handler fills the three identity fields in place: a datagram that ends before them finds them there.
TEST_F(Dispatcher, InformationEvent_LeavesTheClientsIdentityInTheBuffer) {
    constexpr size_t begin = 212;
    constexpr size_t end = 349;
    std::fill(std::begin(buffer), std::end(buffer), uint8_t{'-'});
    fake::client_exists = false;
    (void)dispatch({HBS_EVENT_DHCPV4_INFO});
    EXPECT_EQ(std::count(buffer + begin, buffer + end, '-'), end - begin) << "no client, no identity";
    fake::client_exists = true;
    (void)dispatch({HBS_EVENT_DHCPV4_INFO});
    EXPECT_EQ(std::count(buffer + begin, buffer + end, 'x'), end - begin);
    EXPECT_EQ(std::count(buffer, buffer + sizeof(buffer), 'x'), end - begin) << "and nothing else";
    (void)trace::take();
}

// The handler cuts the host name where it stands: a datagram that ends before the name's end finds it cut.
TEST_F(Dispatcher, Dhcpv6Lease_LeavesTheHostNameCutInTheBuffer) {
    constexpr size_t host = 40;
    constexpr size_t host_size = 128;
    uint8_t expected[HBS_MSG_MAX];
    std::fill(std::begin(buffer), std::end(buffer), uint8_t{'-'});
    memcpy(buffer + host, "laptop.lan", sizeof("laptop.lan"));
    buffer[0] = HBS_EVENT_DHCPV6_LEASE;
    memcpy(expected, buffer, sizeof(buffer));
    expected[host + strlen("laptop")] = 0;
    (void)dispatch({HBS_EVENT_DHCPV6_LEASE});
    EXPECT_EQ(0, memcmp(expected, buffer, sizeof(buffer))) << "the dot, and nothing else";

    std::fill(buffer + host, buffer + host + host_size, uint8_t{'h'});
    memcpy(expected, buffer, sizeof(buffer));
    (void)dispatch({HBS_EVENT_DHCPV6_LEASE});
    EXPECT_EQ(0, memcmp(expected, buffer, sizeof(buffer))) << "nothing to cut, and no end";
    (void)trace::take();
}

// --- the tag of a sender ---

hbs_sender_tag tag_of(const std::string &path, socklen_t length) {
    sockaddr_storage address{};
    memcpy(reinterpret_cast<char *>(&address) + 2, path.data(), path.size());
    return hbs_sender_tag_of(&address, length);
}

TEST(SenderTag, GivesTheLengthOfThePathAndItsFirstSixBytes) {
    EXPECT_STREQ(tag_of("/tmp/reply", 12).text, "len 10 : 2f 74 6d 70 2f 72");
}

TEST(SenderTag, OfAShortPath_IsFilledWithZeroes) {
    EXPECT_STREQ(tag_of("/a", 5).text, "len 3 : 2f 61 00 00 00 00");
}

TEST(SenderTag, OfAnUnboundSender_HasLengthMinusTwo) {
    EXPECT_STREQ(tag_of("", 0).text, "len -2 : 00 00 00 00 00 00");
}

TEST(SenderTag, BytesAreUnsigned) {
    EXPECT_STREQ(tag_of("\xff\xfe\x80\x7f\x01\x02", 128).text, "len 126 : ff fe 80 7f 01 02");
}

} // namespace
