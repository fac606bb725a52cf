// The kernel's answer to a neighbour query, fed as bytes.
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string>
#include <vector>

#include "gateway/neighbour_answer.h"
#include "support/gateway.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace neighbour_answer_test {

constexpr uint32_t SEQUENCE = 0x80001234;
const std::string MAC("\x02\xaa\x00\x00\x00\x11", 6);
const std::string OTHER_MAC("\x02\xaa\x00\x00\x00\x12", 6);
const std::string IPV4("\xc0\xa8\x00\x0a", 4);
const std::string IPV6("\xfe\x80\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x10", 16);

struct Message {
    std::string bytes;

    explicit Message(int family, uint16_t state = NUD_REACHABLE, uint16_t type = RTM_NEWNEIGH,
                     uint32_t sequence = SEQUENCE) {
        nlmsghdr head{};
        head.nlmsg_type = type;
        head.nlmsg_seq = sequence;
        ndmsg header{};
        header.ndm_family = static_cast<uint8_t>(family);
        header.ndm_state = state;
        bytes.append(reinterpret_cast<const char *>(&head), sizeof head);
        bytes.append(reinterpret_cast<const char *>(&header), sizeof header);
        set_length(static_cast<uint32_t>(bytes.size()));
    }

    Message &set_length(uint32_t length) {
        std::memcpy(bytes.data(), &length, sizeof length);
        return *this;
    }

    Message &attribute(int type, const std::string &value) {
        nlattr head{};
        head.nla_type = static_cast<uint16_t>(type);
        head.nla_len = static_cast<uint16_t>(sizeof head + value.size());
        bytes.append(reinterpret_cast<const char *>(&head), sizeof head);
        bytes += value;
        bytes.append((4 - value.size() % 4) % 4, '\0');
        return set_length(static_cast<uint32_t>(bytes.size()));
    }
};

Message entry(int family, const std::string &address, const std::string &lladdr = MAC,
              uint16_t state = NUD_REACHABLE) {
    return Message(family, state).attribute(NDA_DST, address).attribute(NDA_LLADDR, lladdr);
}

struct Answer {
    int result;
    std::string mac; // what the output buffer holds afterwards
};

const std::string UNTOUCHED(6, '\x55');

// In a block of its own size, at an odd address, so that a sanitizer sees every byte read beyond it.
Answer look(const std::string &bytes, int family, const std::string &address) {
    std::vector<char> block(bytes.size() + 1);
    std::copy(bytes.begin(), bytes.end(), block.begin() + 1);
    std::string mac = UNTOUCHED;
    const int result = hbs_find_lladdr(reinterpret_cast<const uint8_t *>(block.data()) + 1, bytes.size(),
                                       SEQUENCE, family, reinterpret_cast<const uint8_t *>(address.data()),
                                       reinterpret_cast<uint8_t *>(mac.data()));
    EXPECT_EQ(result == 0, mac != UNTOUCHED);
    return {result, mac};
}

class NeighbourAnswer : public GatewayTest {};

TEST_F(NeighbourAnswer, ReachableEntry_GivesItsMac) {
    EXPECT_EQ(MAC, look(entry(AF_INET, IPV4).bytes, AF_INET, IPV4).mac);
    EXPECT_EQ(MAC, look(entry(AF_INET6, IPV6).bytes, AF_INET6, IPV6).mac);
}

TEST_F(NeighbourAnswer, EveryStateWithTheReachableBit_Counts) {
    for (uint16_t state = 0; state < 256; ++state)
        EXPECT_EQ((state & 0x02) != 0 ? 0 : -1,
                  look(entry(AF_INET6, IPV6, MAC, state).bytes, AF_INET6, IPV6).result)
            << state;
}

TEST_F(NeighbourAnswer, FirstMatch_Decides) {
    const std::string other = entry(AF_INET6, std::string(16, '\x01')).bytes;
    const std::string stale = entry(AF_INET6, IPV6, OTHER_MAC, NUD_STALE).bytes;
    const std::string first = entry(AF_INET6, IPV6).bytes;
    const std::string second = entry(AF_INET6, IPV6, OTHER_MAC).bytes;
    EXPECT_EQ(MAC, look(other + stale + first + second, AF_INET6, IPV6).mac);
}

TEST_F(NeighbourAnswer, OtherSequence_IsSkippedWhateverItsType) {
    std::string foreign;
    for (const uint16_t type : {uint16_t{RTM_NEWNEIGH}, uint16_t{NLMSG_DONE}, uint16_t{NLMSG_ERROR}})
        foreign += Message(AF_INET6, NUD_REACHABLE, type, SEQUENCE - 1)
                       .attribute(NDA_DST, IPV6)
                       .attribute(NDA_LLADDR, OTHER_MAC)
                       .bytes;
    EXPECT_EQ(-1, look(foreign, AF_INET6, IPV6).result);
    EXPECT_EQ(MAC, look(foreign + entry(AF_INET6, IPV6).bytes, AF_INET6, IPV6).mac);
}

TEST_F(NeighbourAnswer, DoneOrError_EndsTheSearch) {
    for (const uint16_t type : {uint16_t{NLMSG_DONE}, uint16_t{NLMSG_ERROR}})
        EXPECT_EQ(
            -1, look(Message(AF_INET6, 0, type).bytes + entry(AF_INET6, IPV6).bytes, AF_INET6, IPV6).result);
}

TEST_F(NeighbourAnswer, OtherTypes_AreSkipped) {
    for (const uint16_t type :
         {uint16_t{NLMSG_NOOP}, uint16_t{RTM_DELNEIGH}, uint16_t{RTM_GETNEIGH}, uint16_t{RTM_NEWADDR}})
        EXPECT_EQ(MAC, look(Message(AF_INET6, NUD_REACHABLE, type)
                                    .attribute(NDA_DST, IPV6)
                                    .attribute(NDA_LLADDR, OTHER_MAC)
                                    .bytes +
                                entry(AF_INET6, IPV6).bytes,
                            AF_INET6, IPV6)
                           .mac);
}

TEST_F(NeighbourAnswer, OtherFamily_IsSkipped) {
    EXPECT_EQ(-1, look(entry(AF_INET, IPV6).bytes, AF_INET6, IPV6).result);
    EXPECT_EQ(-1, look(entry(AF_BRIDGE, IPV6).bytes, AF_INET6, IPV6).result);
    EXPECT_EQ(-1, look(entry(AF_INET6, IPV4).bytes, AF_INET, IPV4).result);
}

TEST_F(NeighbourAnswer, MissingAttribute_IsSkipped) {
    EXPECT_EQ(-1, look(Message(AF_INET6).attribute(NDA_DST, IPV6).bytes, AF_INET6, IPV6).result);
    EXPECT_EQ(-1, look(Message(AF_INET6).attribute(NDA_LLADDR, MAC).bytes, AF_INET6, IPV6).result);
    EXPECT_EQ(-1, look(Message(AF_INET6).bytes, AF_INET6, IPV6).result);
}

TEST_F(NeighbourAnswer, DestinationOfAnotherLength_IsSkipped) {
    for (size_t length = 0; length < 40; ++length) {
        const std::string address = (IPV6 + std::string(24, '\0')).substr(0, length);
        EXPECT_EQ(length == 16 ? 0 : -1, look(entry(AF_INET6, address).bytes, AF_INET6, IPV6).result);
        EXPECT_EQ(-1, look(entry(AF_INET, address).bytes, AF_INET, IPV4).result);
    }
}

TEST_F(NeighbourAnswer, LladdrOfAnotherLength_EndsTheSearchAndIsLogged) {
    for (size_t length = 0; length < 33; ++length) {
        if (length == 6)
            continue;
        clear_log();
        const std::string bytes = entry(AF_INET6, IPV6, std::string(length, '\x02')).bytes;
        EXPECT_EQ(-1, look(bytes + entry(AF_INET6, IPV6).bytes, AF_INET6, IPV6).result);
        EXPECT_THAT(log_lines(),
                    ElementsAre("HOSTBASE: Found matched neighbor entry with wrong length of lladdr (" +
                                std::to_string(length) + ")"));
    }
}

TEST_F(NeighbourAnswer, CutAtEveryByte_NeverGivesHalfAnEntry) {
    const std::string whole = entry(AF_INET6, IPV6).bytes;
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(-1, look(whole.substr(0, length), AF_INET6, IPV6).result) << length;
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(NeighbourAnswer, SecondMessageCut_LeavesTheFirst) {
    const std::string first = entry(AF_INET6, std::string(16, '\x01'), OTHER_MAC).bytes;
    const std::string whole = first + entry(AF_INET6, IPV6).bytes;
    for (size_t length = first.size(); length < whole.size(); ++length)
        EXPECT_EQ(-1, look(whole.substr(0, length), AF_INET6, IPV6).result) << length;
}

TEST_F(NeighbourAnswer, MessageLengthsOfEveryValue_AreHarmless) {
    const std::string whole = entry(AF_INET6, IPV6).bytes;
    for (uint32_t length = 0; length < 2 * whole.size(); ++length) {
        Message message = entry(AF_INET6, IPV6);
        message.set_length(length);
        // Two bytes of the last attribute are padding.
        const bool complete = length >= whole.size() - 2 && length <= whole.size();
        EXPECT_EQ(complete ? 0 : -1, look(message.bytes, AF_INET6, IPV6).result) << length;
    }
    for (const uint32_t length : {0x7fffffffu, 0xfffffff0u, 0xffffffffu}) {
        Message message = entry(AF_INET6, IPV6);
        EXPECT_EQ(-1, look(message.set_length(length).bytes, AF_INET6, IPV6).result);
    }
}

TEST_F(NeighbourAnswer, AttributeLengthsOfEveryValue_AreHarmless) {
    for (int length = 0; length < 65536; length = length < 300 ? length + 1 : length * 2) {
        Message message = entry(AF_INET6, IPV6);
        const auto value = static_cast<uint16_t>(length);
        std::memcpy(&message.bytes[NLMSG_HDRLEN + sizeof(ndmsg)], &value, sizeof value);
        EXPECT_EQ(length == 20 ? 0 : -1, look(message.bytes, AF_INET6, IPV6).result) << length;
    }
}

TEST_F(NeighbourAnswer, OtherAttributesAndMarks_AreSkipped) {
    const std::string bytes = Message(AF_INET6)
                                  .attribute(NDA_CACHEINFO, std::string(16, 'c'))
                                  .attribute(NDA_DST | NLA_F_NESTED, IPV6)
                                  .attribute(NDA_MAX + 5, std::string(101, 'x'))
                                  .attribute(NDA_LLADDR | NLA_F_NET_BYTEORDER, MAC)
                                  .bytes;
    EXPECT_EQ(MAC, look(bytes, AF_INET6, IPV6).mac);
}

TEST_F(NeighbourAnswer, Nothing_IsNothing) {
    EXPECT_EQ(-1, look("", AF_INET6, IPV6).result);
}

} // namespace neighbour_answer_test
