// Routing netlink as bytes: every length that stands in them may lie. And the sockets, against the kernel.
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "base/netlink.h"
#include "support/emulation.h"
#include "support/kernel_neighbours.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace netlink_test {

template <typename Value> std::string raw(const Value &value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof(value));
}

std::string padded(std::string text) {
    return text.append((4 - text.size() % 4) % 4, '\0');
}

std::string attribute(int type, const std::string &value) {
    return padded(raw(rtattr{static_cast<uint16_t>(RTA_LENGTH(value.size())), static_cast<uint16_t>(type)}) +
                  value);
}

std::string message(uint16_t type, const std::string &payload, uint16_t flags = 0) {
    nlmsghdr head{};
    head.nlmsg_type = type;
    head.nlmsg_flags = flags;
    head.nlmsg_len = static_cast<uint32_t>(sizeof(head) + payload.size());
    return padded(raw(head) + payload);
}

std::string error_message(int32_t error) {
    nlmsgerr payload{};
    payload.error = error;
    return message(NLMSG_ERROR, raw(payload));
}

// In a block of its own size, at an odd address: a sanitizer sees every byte read beyond it.
class Block {
  public:
    explicit Block(const std::string &text) : block_(text.size() + 1) {
        std::copy(text.begin(), text.end(), block_.begin() + 1);
    }
    hbs_netlink_bytes bytes() const {
        return {reinterpret_cast<const uint8_t *>(block_.data()) + 1, block_.size() - 1};
    }

  private:
    std::vector<char> block_;
};

struct Walk {
    int result;
    int error;
    std::vector<uint16_t> types; // of the messages that were visited
};

Walk walk(const std::string &text) {
    const Block block(text);
    Walk found = {0, 0, {}};
    const auto visit = [](hbs_netlink_bytes whole, void *context) {
        nlmsghdr head;
        memcpy(&head, whole.data, sizeof(head));
        static_cast<Walk *>(context)->types.push_back(head.nlmsg_type);
    };
    errno = 0;
    found.result = hbs_netlink_walk(block.bytes(), visit, &found);
    found.error = errno;
    return found;
}

TEST(NetlinkWalk, VisitsDataMessagesInOrder) {
    const Walk found = walk(message(RTM_NEWNEIGH, "abc") + message(NLMSG_NOOP, "") +
                            message(NLMSG_OVERRUN, "") + message(RTM_DELNEIGH, ""));
    EXPECT_EQ(found.result, 1);
    EXPECT_THAT(found.types, ElementsAre(RTM_NEWNEIGH, RTM_DELNEIGH));
}

TEST(NetlinkWalk, EndOfADump_EndsIt) {
    const Walk found =
        walk(message(RTM_NEWNEIGH, "") + message(NLMSG_DONE, raw(int32_t{0})) + message(RTM_NEWNEIGH, ""));
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.types.size(), 1u);
    EXPECT_EQ(walk(message(NLMSG_DONE, "")).result, 0);
}

TEST(NetlinkWalk, EndOfADumpThatFailed_IsAnError) {
    const Walk found = walk(message(NLMSG_DONE, raw(int32_t{-ENOMEM})));
    EXPECT_EQ(found.result, -1);
    EXPECT_EQ(found.error, ENOMEM);
}

TEST(NetlinkWalk, ErrorMessages_GiveTheirReason) {
    EXPECT_EQ(walk(error_message(0)).result, 0) << "an acknowledgement";
    for (const int32_t error : {-EPERM, EPERM}) {
        const Walk found = walk(error_message(error));
        EXPECT_EQ(found.result, -1);
        EXPECT_EQ(found.error, EPERM);
    }
    const Walk cut = walk(message(NLMSG_ERROR, raw(int32_t{0})));
    EXPECT_EQ(cut.result, -1);
    EXPECT_EQ(cut.error, EBADMSG);
    EXPECT_EQ(walk(error_message(INT32_MIN)).result, -1);
}

TEST(NetlinkWalk, DisturbedDump_IsAnError) {
    const Walk found = walk(message(RTM_NEWNEIGH, "") + message(RTM_NEWNEIGH, "", NLM_F_DUMP_INTR));
    EXPECT_EQ(found.result, -1);
    EXPECT_EQ(found.error, EINTR);
    EXPECT_EQ(found.types.size(), 1u);
}

TEST(NetlinkWalk, CutAtEveryByte_GivesOnlyWholeMessages) {
    const std::string first = message(RTM_NEWNEIGH, "abcd");
    const std::string whole = first + message(RTM_DELNEIGH, "efgh");
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(walk(whole.substr(0, length)).types.size(), length < first.size() ? 0u : 1u) << length;
}

TEST(NetlinkWalk, LengthsThatLie_EndIt) {
    std::string text = message(RTM_NEWNEIGH, "abcd") + message(RTM_NEWNEIGH, "efgh");
    for (const uint32_t length : {0u, 1u, 15u, 41u, 0x7fffffffu, 0xfffffffcu, 0xfffffffdu, 0xffffffffu}) {
        memcpy(text.data(), &length, sizeof(length));
        EXPECT_THAT(walk(text).types, IsEmpty()) << length;
    }
}

// Values by type, "-" for what is not there.
std::vector<std::string> attributes(const std::string &text, int highest = 3) {
    const Block block(text);
    std::vector<hbs_netlink_bytes> table(static_cast<size_t>(highest) + 1);
    hbs_netlink_attributes(block.bytes(), table.data(), highest);
    std::vector<std::string> values;
    for (const hbs_netlink_bytes &one : table)
        values.push_back(
            one.data == nullptr ? "-" : std::string(reinterpret_cast<const char *>(one.data), one.size));
    return values;
}

TEST(NetlinkAttributes, ByType_HigherTypesSkippedMarksIgnored) {
    EXPECT_THAT(attributes(attribute(2, "two") + attribute(4, "high") + attribute(1 | NLA_F_NESTED, "one") +
                           attribute(NLA_TYPE_MASK, "highest")),
                ElementsAre("-", "one", "two", "-"));
}

TEST(NetlinkAttributes, RepeatedOne_TheLastCounts_AlsoAnEmptyOne) {
    EXPECT_THAT(attributes(attribute(1, "first") + attribute(1, "")), ElementsAre("-", "", "-", "-"));
}

TEST(NetlinkAttributes, CutAtEveryByte_NeverGivesHalfOfOne) {
    const std::string whole = attribute(1, "abcdef") + attribute(2, "ghijkl");
    for (size_t length = 0; length <= whole.size(); ++length)
        EXPECT_THAT(attributes(whole.substr(0, length)),
                    ElementsAre("-", length < 10 ? "-" : "abcdef", length < 22 ? "-" : "ghijkl", "-"))
            << length;
}

TEST(NetlinkAttributes, LengthsOfEveryValue_AreHarmless) {
    for (unsigned length = 0; length < 65536; ++length) {
        std::string text = attribute(1, "abcdef") + attribute(2, "gh");
        const auto value = static_cast<uint16_t>(length);
        memcpy(text.data(), &value, sizeof(value));
        EXPECT_EQ(attributes(text)[1] == "-", length < 4 || length > text.size()) << length;
    }
}

TEST(NetlinkNeighbour, NeedsItsHeader) {
    ndmsg header{};
    header.ndm_state = NUD_STALE;
    const std::string whole = message(RTM_NEWNEIGH, raw(header) + attribute(NDA_DST, "abcd"));
    for (size_t length = 0; length <= whole.size(); ++length) {
        const Block block(whole.substr(0, length));
        hbs_neighbour entry;
        ASSERT_EQ(hbs_netlink_neighbour(block.bytes(), &entry), length >= 28) << length;
        if (length >= 28)
            EXPECT_EQ(entry.attributes[NDA_DST].size, length < whole.size() ? 0u : 4u);
    }
}

// --- against the kernel ---

class NetlinkSocket : public testing::Test {
  protected:
    void SetUp() override {
        if (is_emulated())
            GTEST_SKIP() << NO_NEIGHBOUR_MESSAGES;
    }
};

TEST(NetlinkPort, IsEachSocketsOwn) {
    const int first = hbs_netlink_open();
    const int second = hbs_netlink_open();
    EXPECT_EQ(hbs_netlink_port(first), 0u);
    ASSERT_TRUE(hbs_netlink_bind(first, 0));
    ASSERT_TRUE(hbs_netlink_bind(second, RTMGRP_NEIGH));
    EXPECT_NE(hbs_netlink_port(first), 0u);
    EXPECT_NE(hbs_netlink_port(first), hbs_netlink_port(second));
    (void)close(first);
    (void)close(second);
}

TEST(NetlinkPort, Silence_EndsWithTheTime) {
    const int socket = hbs_netlink_open();
    ASSERT_TRUE(hbs_netlink_bind(socket, 0));
    char buffer[64];
    EXPECT_EQ(hbs_netlink_receive(socket, buffer, sizeof(buffer), 20), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    (void)close(socket);
}

TEST_F(NetlinkSocket, WhatDoesNotFit_IsAnError) {
    const int socket = hbs_netlink_open();
    ASSERT_TRUE(hbs_netlink_bind(socket, 0));
    ASSERT_TRUE(hbs_netlink_request_neighbours(socket, AF_INET, 7));
    char buffer[8];
    EXPECT_EQ(hbs_netlink_receive(socket, buffer, sizeof(buffer), 1000), -1);
    EXPECT_EQ(errno, ENOSPC);
    (void)close(socket);
}

TEST_F(NetlinkSocket, OtherProcesses_AreNotHeard) {
    const int receiver = hbs_netlink_open();
    const int sender = hbs_netlink_open();
    ASSERT_TRUE(hbs_netlink_bind(receiver, 0));
    ASSERT_TRUE(hbs_netlink_bind(sender, 0));
    sockaddr_nl to{};
    to.nl_family = AF_NETLINK;
    to.nl_pid = hbs_netlink_port(receiver);
    char buffer[256];
    for (const size_t size : {size_t{0}, 2 * sizeof(buffer)}) {
        const std::string forged = message(RTM_NEWNEIGH, std::string(size, '\0'));
        ASSERT_GT(sendto(sender, forged.data(), forged.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                         sizeof(to)),
                  0);
        EXPECT_EQ(hbs_netlink_receive(receiver, buffer, sizeof(buffer), 50), -1);
        EXPECT_EQ(errno, ETIMEDOUT) << size;
    }
    (void)close(receiver);
    (void)close(sender);
}

TEST_F(NetlinkSocket, WholeTable_OfMoreThanOneDatagram) {
    ASSERT_EQ(system("ip link del dump0 2> /dev/null; ip link add dump0 type veth peer name dump1 && "
                     "ip link set dump0 up && ip link set dump1 up"),
              0);
    KernelNeighbours kernel("dump0");
    constexpr int count = 300;
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(kernel.set({10, 8, static_cast<char>(i / 250), static_cast<char>(i % 250)},
                               {2, 0xcc, 0, 0, static_cast<uint8_t>(i / 250), static_cast<uint8_t>(i % 250)},
                               NUD_STALE));
    int found = 0;
    const auto visit = [](hbs_netlink_bytes whole, void *context) {
        hbs_neighbour entry;
        const bool sound = hbs_netlink_neighbour(whole, &entry);
        const hbs_netlink_bytes lladdr = entry.attributes[NDA_LLADDR];
        if (sound && lladdr.size == 6 && lladdr.data[1] == 0xcc)
            ++*static_cast<int *>(context);
    };
    EXPECT_TRUE(hbs_netlink_dump_neighbours(AF_INET, visit, &found));
    EXPECT_EQ(found, count);
    EXPECT_EQ(system("ip link del dump0"), 0);
}

} // namespace netlink_test
