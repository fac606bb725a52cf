// Neighbour messages as bytes: which handler they reach, what is said of those that reach none.
#include <arpa/inet.h>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <map>
#include <net/if.h>

#include "base/text.h"
#include "daemon/neighbour_message.h"
#include "events/neighbours.h"
#include "support/trace.h"

namespace fake {

// From the start of the process, because the indices are looked up once. A name that is missing has index 0.
std::map<std::string, unsigned> interfaces = {{"wan0", 11}, {"mta0", 12}, {"l2sd0.2", 14}};
int look_ups = 0;

hbs_client *traced(const char *what, const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    const std::string text =
        family == AF_INET ? hbs_ipv4_to_text(address).text : hbs_ipv6_to_text(address).text;
    trace::add(std::string(what) + " " + (mac != nullptr ? hbs_mac_to_text(mac).text : "none") + " on " +
               std::to_string(ifindex) + " " + text);
    return nullptr;
}

} // namespace fake

extern "C" unsigned if_nametoindex(const char *name) noexcept {
    fake::look_ups++;
    const auto found = fake::interfaces.find(name);
    return found != fake::interfaces.end() ? found->second : 0;
}

hbs_client *hbs_handle_neigh_stale(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    return fake::traced("stale", mac, ifindex, family, address);
}
hbs_client *hbs_handle_neigh_reachable(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    return fake::traced("reachable", mac, ifindex, family, address);
}
hbs_client *hbs_handle_neigh_gone(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    return fake::traced("gone", mac, ifindex, family, address);
}

using testing::ElementsAre;

namespace {

const std::string MAC("\x02\xaa\x00\x00\x00\x11", 6);
const std::string IPV4("\xc0\xa8\x00\x0a", 4);
const std::string IPV6("\xfd\x00\x00\x02\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x10", 16);

// A message in the making: the header and attributes as the kernel writes them.
struct Message {
    std::vector<uint8_t> bytes;

    Message(int family, uint16_t state, int ifindex = 7, uint16_t type = RTM_NEWNEIGH)
        : bytes(NLMSG_HDRLEN + sizeof(ndmsg)) {
        ndmsg header{};
        header.ndm_family = static_cast<uint8_t>(family);
        header.ndm_state = state;
        header.ndm_ifindex = ifindex;
        memcpy(&bytes[NLMSG_HDRLEN], &header, sizeof(header));
        nlmsghdr head{};
        head.nlmsg_type = type;
        memcpy(bytes.data(), &head, sizeof(head));
        set_length(static_cast<uint32_t>(bytes.size()));
    }

    Message &set_length(uint32_t length) {
        memcpy(bytes.data(), &length, sizeof(length));
        return *this;
    }

    Message &attribute(uint16_t type, const std::string &value) {
        rtattr head{};
        head.rta_type = type;
        head.rta_len = static_cast<uint16_t>(sizeof(head) + value.size());
        const size_t at = bytes.size();
        bytes.resize(at + RTA_ALIGN(head.rta_len));
        memcpy(&bytes[at], &head, sizeof(head));
        memcpy(&bytes[at + sizeof(head)], value.data(), value.size());
        return set_length(static_cast<uint32_t>(bytes.size()));
    }
};

Message ipv4(uint16_t state) {
    return Message(AF_INET, state).attribute(NDA_DST, IPV4).attribute(NDA_LLADDR, MAC);
}
Message ipv6(uint16_t state) {
    return Message(AF_INET6, state).attribute(NDA_DST, IPV6).attribute(NDA_LLADDR, MAC);
}

// What the message makes happen. It lies in a block of its own size, at an odd address.
trace::list handle(const Message &message) {
    std::vector<uint8_t> block(message.bytes.size() + 1);
    memcpy(&block[1], message.bytes.data(), message.bytes.size());
    hbs_handle_neigh_message(&block[1], message.bytes.size());
    return trace::take();
}

class NeighbourMessage : public testing::Test {
  protected:
    void SetUp() override { hbs_list_mutex_init(); }
};

std::string logged(const std::string &text) {
    return "log HOSTBASE: handle_neigh: " + text;
}

TEST_F(NeighbourMessage, Reachable) {
    EXPECT_THAT(handle(ipv4(0x02)), ElementsAre(logged("Reachable - Address is: 192.168.0.10"),
                                                "reachable 02:aa:00:00:00:11 on 7 192.168.0.10"));
}

TEST_F(NeighbourMessage, Stale) {
    EXPECT_THAT(handle(ipv6(0x04)), ElementsAre(logged("Stale - Address is: fd00:2::10"),
                                                "stale 02:aa:00:00:00:11 on 7 fd00:2::10"));
}

TEST_F(NeighbourMessage, Delay_IsGone) {
    EXPECT_THAT(handle(ipv4(0x08)), ElementsAre(logged("Delay/Fail (0x08)- Address is: 192.168.0.10"),
                                                "gone 02:aa:00:00:00:11 on 7 192.168.0.10"));
}

TEST_F(NeighbourMessage, Failed_IsGone) {
    EXPECT_THAT(handle(ipv6(0x20)), ElementsAre(logged("Delay/Fail (0x20)- Address is: fd00:2::10"),
                                                "gone 02:aa:00:00:00:11 on 7 fd00:2::10"));
}

TEST_F(NeighbourMessage, EveryOtherState_IsLoggedOnly) {
    for (const int state : {0x00, 0x01, 0x06, 0x0a, 0x0c, 0x10, 0x28, 0x40, 0x80, 0xff}) {
        char text[64];
        (void)snprintf(text, sizeof(text), "Other (0x%02x) - Address is: 192.168.0.10", state);
        EXPECT_THAT(handle(ipv4(static_cast<uint16_t>(state))), ElementsAre(logged(text)));
    }
}

TEST_F(NeighbourMessage, DelayTogetherWithStale_IsOther) {
    EXPECT_THAT(handle(ipv4(0x0c)), ElementsAre(logged("Other (0x0c) - Address is: 192.168.0.10")));
}

TEST_F(NeighbourMessage, FailedWithoutLladdr_IsGoneWithNone) {
    EXPECT_THAT(handle(Message(AF_INET, 0x20).attribute(NDA_DST, IPV4)),
                ElementsAre(logged("Delay/Fail - Address is: 192.168.0.10"), "gone none on 7 192.168.0.10"));
}

TEST_F(NeighbourMessage, AnyOtherStateWithoutLladdr_IsDropped) {
    for (const uint16_t state : {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x21, 0x40, 0x80})
        EXPECT_THAT(handle(Message(AF_INET, state).attribute(NDA_DST, IPV4)), ElementsAre()) << state;
}

TEST_F(NeighbourMessage, WithoutDestination_IsSkipped) {
    EXPECT_THAT(handle(Message(AF_INET, 0x20).attribute(NDA_LLADDR, MAC)), ElementsAre());
    EXPECT_THAT(handle(Message(AF_INET, 0x20)), ElementsAre());
}

TEST_F(NeighbourMessage, Deleted_IsHandledLikeNew) {
    EXPECT_EQ(
        handle(Message(AF_INET, 0x02, 7, RTM_DELNEIGH).attribute(NDA_DST, IPV4).attribute(NDA_LLADDR, MAC))
            .size(),
        2u);
}

TEST_F(NeighbourMessage, LladdrOfAWrongLength_NeverReachesAHandler) {
    for (size_t length = 0; length < 40; length++) {
        const std::string lladdr(length, '\x02');
        for (const uint16_t state : {0x02, 0x04, 0x08, 0x20}) {
            const auto lines =
                handle(Message(AF_INET, state).attribute(NDA_DST, IPV4).attribute(NDA_LLADDR, lladdr));
            EXPECT_EQ(lines.size(), length == 6 ? 2u : 0u) << length;
        }
    }
}

TEST_F(NeighbourMessage, DestinationOfAWrongLength_NeverReachesAHandler) {
    for (size_t length = 0; length < 40; length++) {
        const std::string address(length, '\x02');
        for (const int family : {AF_INET, AF_INET6}) {
            const size_t right = family == AF_INET ? 4 : 16;
            EXPECT_EQ(
                handle(Message(family, 0x02).attribute(NDA_DST, address).attribute(NDA_LLADDR, MAC)).size(),
                length == right ? 2u : 0u);
            EXPECT_EQ(handle(Message(family, 0x20).attribute(NDA_DST, address)).size(),
                      length == right ? 2u : 0u);
        }
    }
}

TEST_F(NeighbourMessage, OtherFamilies_AreSkipped) {
    for (int family = 0; family < 256; family++) {
        if (family != AF_INET && family != AF_INET6) {
            EXPECT_THAT(handle(Message(family, 0x02).attribute(NDA_DST, IPV4).attribute(NDA_LLADDR, MAC)),
                        ElementsAre());
        }
    }
}

TEST_F(NeighbourMessage, BridgeForwardingEntry_IsSkipped) {
    EXPECT_THAT(
        handle(Message(AF_BRIDGE, 0x02).attribute(NDA_LLADDR, MAC).attribute(NDA_MASTER, "\x01\x02\x03\x04")),
        ElementsAre());
}

TEST_F(NeighbourMessage, AttributesOfAHigherType_AreSkipped) {
    EXPECT_EQ(handle(Message(AF_INET, 0x02)
                         .attribute(NDA_VLAN, "12")
                         .attribute(NDA_DST, IPV4)
                         .attribute(NDA_MAX + 5, std::string(100, 'x'))
                         .attribute(NDA_LLADDR, MAC)
                         .attribute(NDA_CACHEINFO, std::string(16, 'c')))
                  .size(),
              2u);
}

TEST_F(NeighbourMessage, RepeatedAttribute_TheLastCounts) {
    EXPECT_EQ(handle(ipv4(0x02).attribute(NDA_DST, std::string("\x0a\x00\x00\x01", 4))).back(),
              "reachable 02:aa:00:00:00:11 on 7 10.0.0.1");
}

TEST_F(NeighbourMessage, NestedMarkOfAType_IsIgnored) {
    EXPECT_EQ(handle(Message(AF_INET, 0x02)
                         .attribute(NDA_DST | NLA_F_NESTED, IPV4)
                         .attribute(NDA_LLADDR | NLA_F_NET_BYTEORDER, MAC))
                  .size(),
              2u);
}

TEST_F(NeighbourMessage, CutShortAtEveryByte_NeverReachesAHandlerWithHalfAnAddress) {
    const Message whole = ipv6(0x20);
    const size_t with_destination = NLMSG_HDRLEN + sizeof(ndmsg) + sizeof(rtattr) + 16;
    for (size_t length = 0; length < whole.bytes.size(); length++) {
        Message cut = whole;
        cut.bytes.resize(length);
        const auto lines = handle(cut);
        const bool lladdr_whole = length >= whole.bytes.size() - 2; // the rest is padding
        if (lladdr_whole)
            EXPECT_EQ(lines.back(), "gone 02:aa:00:00:00:11 on 7 fd00:2::10") << length;
        else if (length >= with_destination)
            EXPECT_EQ(lines.back(), "gone none on 7 fd00:2::10") << length;
        else
            EXPECT_THAT(lines, ElementsAre()) << length;
    }
}

TEST_F(NeighbourMessage, HeaderThatClaimsMoreThanThereIs_IsReadAsFarAsItGoes) {
    EXPECT_EQ(handle(ipv4(0x02).set_length(100000)).size(), 2u);
}

TEST_F(NeighbourMessage, HeaderThatClaimsLess_EndsThere) {
    EXPECT_THAT(handle(ipv4(0x02).set_length(NLMSG_HDRLEN + sizeof(ndmsg) + 8)), ElementsAre());
}

TEST_F(NeighbourMessage, AttributeLengthsOfEveryValue_AreHarmless) {
    for (int length = 0; length < 256; length++) {
        Message message = ipv4(0x02);
        const auto value = static_cast<uint16_t>(length);
        memcpy(&message.bytes[NLMSG_HDRLEN + sizeof(ndmsg)], &value, sizeof(value));
        const auto lines = handle(message);
        EXPECT_EQ(lines.empty(), length != 8) << length;
    }
}

// --- what is no neighbour message ---

class NeighbourOutput : public NeighbourMessage {
  protected:
    static std::string printed(const Message &message) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const auto lines = handle(message);
        (void)fflush(stdout);
        std::string text = testing::internal::GetCapturedStdout();
        const std::string errors = testing::internal::GetCapturedStderr();
        return text + (errors.empty() ? "" : "stderr: " + errors) + (lines.empty() ? "" : "handled");
    }
};

TEST_F(NeighbourOutput, UnknownTypes_ArePrintedWithLengthTypeAndFlags) {
    for (const uint16_t type : {0, 4, 16, 27, 30, 0xffff}) {
        Message message(AF_INET, 0x02, 7, type);
        const uint16_t flags = 0x305;
        memcpy(&message.bytes[6], &flags, sizeof(flags));
        char expected[64];
        (void)snprintf(expected, sizeof(expected), "Unknown message: 0000001c %08x 00000305\n", type);
        EXPECT_EQ(printed(message), expected);
    }
}

TEST_F(NeighbourOutput, ControlMessages_ArePassedOverSilently) {
    for (const uint16_t type : {1, 2, 3})
        EXPECT_EQ(printed(Message(AF_INET, 0x02, 7, type)), "");
}

TEST_F(NeighbourOutput, NegativePayload_IsPrintedOnStandardError) {
    EXPECT_EQ(printed(ipv4(0x02).set_length(15)), "stderr: BUG: wrong nlmsg len -1\n");
    EXPECT_EQ(printed(ipv4(0x02).set_length(0)), "stderr: BUG: wrong nlmsg len -16\n");
}

TEST_F(NeighbourOutput, PayloadTooShortForItsHeader_IsSkippedSilently) {
    for (uint32_t length = NLMSG_HDRLEN; length < NLMSG_HDRLEN + sizeof(ndmsg); length++)
        EXPECT_EQ(printed(ipv4(0x02).set_length(length)), "");
}

// --- the gateway's own interfaces ---

class WanInterfaces : public NeighbourMessage {};

TEST_F(WanInterfaces, TheirNeighbours_NeverReachAHandler) {
    for (const int ifindex : {11, 12}) {
        EXPECT_TRUE(hbs_is_wan_ifindex(ifindex));
        EXPECT_THAT(
            handle(Message(AF_INET, 0x02, ifindex).attribute(NDA_DST, IPV4).attribute(NDA_LLADDR, MAC)),
            ElementsAre());
    }
    EXPECT_FALSE(hbs_is_wan_ifindex(14));
    EXPECT_EQ(handle(Message(AF_INET, 0x02, 14).attribute(NDA_DST, IPV4).attribute(NDA_LLADDR, MAC)).size(),
              2u);
}

TEST_F(WanInterfaces, AreLookedUpOnce_AlsoThoseThatDoNotExistYet) {
    EXPECT_FALSE(hbs_is_wan_ifindex(13));
    EXPECT_EQ(fake::look_ups, 3);
    fake::interfaces["erouter0"] = 13;
    EXPECT_FALSE(hbs_is_wan_ifindex(13));
    EXPECT_EQ(fake::look_ups, 3);
}

} // namespace
