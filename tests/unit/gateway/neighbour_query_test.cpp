// The one-shot look into the real kernel's neighbour table.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "gateway/neighbour_query.h"
#include "support/emulation.h"
#include "support/presence.h"

namespace fake {

std::function<void()> before_request; // runs once, between the query's socket and its request
bool swallow = false;                 // the kernel never hears of the request
int send_error = 0;

} // namespace fake

extern "C" ssize_t sendto(int socket, const void *bytes, size_t length, int flags, const sockaddr *to,
                          socklen_t size) {
    if (const auto run = std::exchange(fake::before_request, nullptr))
        run();
    if (fake::send_error != 0) {
        errno = fake::send_error;
        return -1;
    }
    if (fake::swallow)
        return static_cast<ssize_t>(length);
    return syscall(SYS_sendto, socket, bytes, length, flags, to, size);
}

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class NeighbourQuery : public PresenceTest {
  protected:
    void SetUp() override {
        PresenceTest::SetUp();
        fake::before_request = nullptr;
        fake::swallow = false;
        fake::send_error = 0;
    }

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
    EXPECT_THAT(log_lines(), IsEmpty());
}

class NeighbourQueryOfKernel : public NeighbourQuery {
  protected:
    void SetUp() override {
        NeighbourQuery::SetUp();
        if (is_emulated())
            GTEST_SKIP() << NO_NEIGHBOUR_MESSAGES;
        ASSERT_EQ(0, system("ip link add query0 type veth peer name query1 && ip link set query0 up && "
                            "ip link set query1 up"));
    }

    // The box's kernel outlives this test; the next one finds its table as it was.
    void TearDown() override {
        if (if_nametoindex("query0") != 0)
            EXPECT_EQ(0, system("ip link del query0"));
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

TEST_F(NeighbourQueryOfKernel, NotificationAheadOfTheAnswer_IsPassedOver) {
    neighbour("fe80::20", MAC_A, "reachable");
    int changes = 0;
    fake::before_request = [&changes] {
        for (const char *state : {"stale", "reachable", "stale"}) {
            neighbour("fe80::21", MAC_B, state);
            ++changes;
        }
    };
    uint8_t mac[6] = {};
    ASSERT_EQ(0, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    EXPECT_EQ(3, changes);
    EXPECT_STREQ(MAC_A, hbs_mac_to_text(mac).text);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(NeighbourQueryOfKernel, NotificationAboutTheAddress_IsNoAnswer) {
    neighbour("fe80::20", MAC_A, "stale");
    fake::before_request = [] {
        neighbour("fe80::20", MAC_B, "reachable");
        neighbour("fe80::20", MAC_A, "stale");
    };
    uint8_t mac[6] = {};
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
}

TEST_F(NeighbourQueryOfKernel, MoreNotificationsThanTheSocketHolds_DoNotMakeItFail) {
    neighbour("fe80::20", MAC_A, "reachable");
    fake::before_request = [this] {
        const std::string lines = directory() + "/changes";
        std::string text;
        for (int i = 0; i < 4000; ++i)
            text += "neigh replace fe80::21 lladdr 02:ab:00:00:00:12 nud " +
                    std::string(i % 2 == 0 ? "stale" : "reachable") + " dev query0\n";
        write_file(lines, text);
        ASSERT_EQ(0, system(("ip -batch " + lines).c_str()));
    };
    uint8_t mac[6] = {};
    ASSERT_EQ(0, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    EXPECT_STREQ(MAC_A, hbs_mac_to_text(mac).text);
}

TEST_F(NeighbourQueryOfKernel, Silence_IsWaitedOutFor200Milliseconds) {
    fake::swallow = true;
    uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(190));
    EXPECT_LT(waited, std::chrono::seconds(20)) << "it has an end, however busy the machine is";
    EXPECT_THAT(log_lines(),
                ElementsAre("HOSTBASE: Error happens upon recv from neighbor netlink socket (ret:-1)"));
    EXPECT_THAT(mac, ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST_F(NeighbourQueryOfKernel, NotificationsWithoutAnAnswer_DoNotProlongTheWait) {
    fake::swallow = true;
    std::atomic<bool> done{false};
    std::thread changer([&done] {
        for (int i = 0; !done; ++i)
            neighbour("fe80::21", MAC_B, i % 2 == 0 ? "stale" : "reachable");
    });
    uint8_t mac[6] = {};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    const auto waited = std::chrono::steady_clock::now() - start;
    done = true;
    changer.join();
    EXPECT_LT(waited, std::chrono::seconds(20)) << "it has an end, however busy the machine is";
}

TEST_F(NeighbourQuery, RequestThatCannotBeSent_IsLogged) {
    fake::send_error = ENOBUFS;
    uint8_t mac[6] = {};
    EXPECT_EQ(-1, query(AF_INET6, ipv6_of("fe80::20").data(), mac));
    EXPECT_THAT(log_lines(), ElementsAre("HOSTBASE: Failed to send neighbor query to netlink socket"));
}

} // namespace
