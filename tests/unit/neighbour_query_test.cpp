// The one-shot look into the real kernel's neighbour table.
#include <gmock/gmock.h>
#include <net/if.h>

#include "gateway/neighbour_query.h"
#include "support/presence.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class NeighbourQuery : public PresenceTest {
  protected:
    static int query(int family, const uint8_t *address, uint8_t (&mac)[6]) {
        return hbs_query_neigh_lladdr(family, address, mac);
    }
};

TEST_F(NeighbourQuery, BadArguments_AreRefusedSilently) {
    uint8_t mac[6] = {};
    const Ipv6 address = ipv6_of("fe80::20");
    for (const int family : {0, 1, 7, 255})
        EXPECT_EQ(-1, query(family, address.data(), mac));
    EXPECT_EQ(-1, query(AF_INET6, nullptr, mac));
    EXPECT_EQ(-1, hbs_query_neigh_lladdr(AF_INET6, address.data(), nullptr));
#if HBS_NETLINK
    EXPECT_THAT(log_lines(), IsEmpty());
#endif
}

#if HBS_NETLINK

class NeighbourQueryOfKernel : public NeighbourQuery {
  protected:
    void SetUp() override {
        NeighbourQuery::SetUp();
        if (if_nametoindex("query0") == 0) {
            ASSERT_EQ(0, system("ip link add query0 type veth peer name query1 && ip link set query0 up && "
                                "ip link set query1 up"));
        }
        ASSERT_EQ(0, system("ip neigh flush dev query0 && ip -6 neigh flush dev query0"));
    }

    static void neighbour(const std::string &address, const std::string &mac, const std::string &state) {
        ASSERT_EQ(0,
                  system(("ip neigh replace " + address + " lladdr " + mac + " nud " + state + " dev query0")
                             .c_str()));
    }
};

TEST_F(NeighbourQueryOfKernel, ReachableEntries_GiveTheirMac) {
    neighbour("fe80::20", MAC_A, "reachable");
    neighbour("192.168.7.20", MAC_B, "reachable");
    uint8_t mac[6] = {};
    ASSERT_EQ(0, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    EXPECT_STREQ(MAC_A, hbs_mac_to_text(mac).text);
    ASSERT_EQ(0, query(AF_INET, ipv4_of("192.168.7.20").data(), mac));
    EXPECT_STREQ(MAC_B, hbs_mac_to_text(mac).text);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(NeighbourQueryOfKernel, StaleOrMissingEntry_GivesNothing) {
    neighbour("fe80::20", MAC_A, "stale");
    uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::21").data(), mac));
    EXPECT_THAT(mac, ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST_F(NeighbourQueryOfKernel, Queries_LeaveNoSocketBehind) {
    uint8_t mac[6] = {};
    for (int i = 0; i < 2000; ++i)
        (void)query(AF_INET6, ipv6_of("fe80::20").data(), mac);
    EXPECT_THAT(log_lines(), IsEmpty());
}

#else

TEST_F(NeighbourQuery, WithoutNetlink_SaysThatThereIsNoSocket) {
    uint8_t mac[6] = {};
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    EXPECT_THAT(log_lines(),
                ElementsAre("HOSTBASE: Cannot open netlink socket for querying neighbor entries"));
}

#endif

} // namespace
