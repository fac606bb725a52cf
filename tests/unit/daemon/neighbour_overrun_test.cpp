// The monitor thread, the real handlers and the real kernel, after notifications were lost: what the tables
// say that the clients' records do not is made up for, and nothing is told twice.
#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "base/clock.h"
#include "daemon/neighbour_monitor.h"
#include "events/route_mode.h"
#include "events/wifi.h"
#include "support/emulation.h"
#include "support/kernel_neighbours.h"
#include "support/presence.h"

using testing::ElementsAre;

namespace fake {

std::atomic<uint32_t> drops{0};
std::atomic<bool> counts_drops{true};
std::atomic<bool> loses{false}; // what comes in for other threads than this one is lost
const std::thread::id tester = std::this_thread::get_id();
std::atomic<int> lost{0};
std::atomic<int> listening{-1}; // the monitor's socket
std::atomic<int> reading{0};    // calls in which something may be taken or lost just now

void note_monitor(int socket) {
    sockaddr_nl name = {};
    socklen_t size = sizeof(name);
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&name), &size) == 0 && name.nl_groups != 0)
        listening = socket;
}

} // namespace fake

extern "C" int getsockopt(int socket, int level, int name, void *value, socklen_t *size) noexcept {
    if (level != SOL_SOCKET || name != SO_MEMINFO)
        return static_cast<int>(syscall(SYS_getsockopt, socket, level, name, value, size));
    if (!fake::counts_drops) {
        errno = ENOPROTOOPT;
        return -1;
    }
    uint32_t information[SK_MEMINFO_VARS] = {};
    information[SK_MEMINFO_DROPS] = fake::drops;
    *size = std::min<socklen_t>(*size, sizeof(information));
    memcpy(value, information, *size);
    return 0;
}

extern "C" ssize_t recvmsg(int socket, msghdr *message, int flags) {
    if (std::this_thread::get_id() == fake::tester)
        return syscall(SYS_recvmsg, socket, message, flags);
    fake::note_monitor(socket);
    fake::reading++;
    ssize_t length = syscall(SYS_recvmsg, socket, message, flags);
    int error = errno;
    if (fake::loses && length >= 0) {
        fake::lost++;
        length = -1;
        error = EAGAIN;
    }
    fake::reading--;
    errno = error;
    return length;
}

namespace {

constexpr const char *LAN = "l2sd0.2";

class NeighbourOverrun : public PresenceTest {
  protected:
    void SetUp() override {
        PresenceTest::SetUp();
        if (is_emulated())
            GTEST_SKIP() << NO_NEIGHBOUR_MESSAGES;
        fake::loses = false;
        fake::counts_drops = true;
        (void)!system("ip link del l2sd0.2 2> /dev/null");
        ASSERT_EQ(system("ip link add l2sd0.2 type veth peer name other && ip link set l2sd0.2 up && "
                         "ip link set other up"),
                  0);
    }

    void TearDown() override {
        if (!is_emulated())
            EXPECT_EQ(system("ip link del l2sd0.2"), 0);
        PresenceTest::TearDown();
    }

    // Once in a process: the thread has no end.
    void start_monitor() {
        if (!std::exchange(started_, true)) {
            pthread_t thread;
            ASSERT_EQ(pthread_create(&thread, nullptr, nl_listen_thread, nullptr), 0);
            (void)pthread_detach(thread);
        }
        pass_a_mark();
    }

    void change(const std::string &address, const char *mac, uint16_t state) {
        const bool is_ipv4 = address.find('.') != std::string::npos;
        const Ipv4 ipv4 = is_ipv4 ? ipv4_of(address) : Ipv4{};
        const Ipv6 ipv6 = is_ipv4 ? Ipv6{} : ipv6_of(address);
        const std::string bytes =
            is_ipv4 ? std::string(ipv4.begin(), ipv4.end()) : std::string(ipv6.begin(), ipv6.end());
        ASSERT_TRUE(kernel_.set(bytes, mac_of(mac), state));
    }

    // Returns when everything up to now was handled: a change of an address outside every network.
    void pass_a_mark() {
        ASSERT_TRUE(wait_until([this] {
            const std::string mark = "10.9.0." + std::to_string(++marks_ % 250 + 1);
            const std::string line = "HOSTBASE: handle_neigh: Stale - Address is: " + mark;
            const size_t before = logged_count(line);
            change(mark, MAC_UNKNOWN, marks_ % 2 == 0 ? NUD_REACHABLE : NUD_STALE);
            change(mark, MAC_B, NUD_STALE);
            return wait_until([&] { return logged_count(line) > before; }, 200);
        }));
    }

    // What is changed here is never heard of.
    template <typename Changes> void lose(Changes changes) {
        const int before = fake::lost;
        fake::loses = true;
        changes();
        ASSERT_TRUE(wait_until([before] { return fake::lost > before; }));
        ASSERT_TRUE(wait_until(everything_is_read));
        fake::loses = false;
    }

    // The kernel queues a notification before the change returns. In this order: what is taken from the queue
    // is being read until it is lost.
    static bool everything_is_read() {
        pollfd queue = {fake::listening, POLLIN, 0};
        return poll(&queue, 1, 0) == 0 && fake::reading == 0;
    }

    void overrun() {
        const size_t before = logged_containing("neighbour events lost");
        fake::drops += 3;
        pass_a_mark();
        ASSERT_TRUE(wait_until([&] { return logged_containing("neighbour events lost") > before; }));
        pass_a_mark();
    }

    static bool is_online(const char *mac) {
        const hbs_list_hold hold;
        const hbs_client *client = hbs_find_by_mac(mac_of(mac).data());
        return client != nullptr && (client->flags & HBS_FLAG_ONLINE) != 0;
    }

    static bool is_known(const char *mac) {
        const hbs_list_hold hold;
        return hbs_find_by_mac(mac_of(mac).data()) != nullptr;
    }

    // A client with a lease, as old as a test needs it.
    static void leased(const char *mac, const std::string &address) {
        const hbs_list_hold hold;
        hbs_client *client = published_client(mac, address, HBS_FLAG_DYNIP4);
        client->online_time = hbs_monotonic_seconds() - 100;
    }

    static inline bool started_ = false;

  private:
    KernelNeighbours kernel_{LAN};
    int marks_ = 0;
};

TEST_F(NeighbourOverrun, StationThatLeft_StaysOffLine) {
    start_monitor();
    leased(MAC_WIFI, "192.168.0.20");
    {
        const hbs_list_hold hold;
        ASSERT_NE(nullptr, hbs_handle_wifi_association(mac_of(MAC_WIFI).data(), 1));
    }
    change("192.168.0.20", MAC_WIFI, NUD_REACHABLE);
    pass_a_mark();
    ASSERT_TRUE(is_online(MAC_WIFI));
    {
        const hbs_list_hold hold;
        (void)hbs_handle_wifi_disassociation(mac_of(MAC_WIFI).data());
    }
    overrun();
    EXPECT_FALSE(is_online(MAC_WIFI));
}

TEST_F(NeighbourOverrun, StationThatLeftAfterALostNotification_StaysOffLine) {
    start_monitor();
    leased(MAC_WIFI, "192.168.0.20");
    {
        const hbs_list_hold hold;
        ASSERT_NE(nullptr, hbs_handle_wifi_association(mac_of(MAC_WIFI).data(), 1));
    }
    lose([this] { change("192.168.0.20", MAC_WIFI, NUD_REACHABLE); });
    {
        const hbs_list_hold hold;
        (void)hbs_handle_wifi_disassociation(mac_of(MAC_WIFI).data());
    }
    overrun();
    EXPECT_FALSE(is_online(MAC_WIFI));
}

TEST_F(NeighbourOverrun, HostThatIsGone_IsToldOnce) {
    start_monitor();
    leased(MAC_A, "192.168.0.20");
    change("192.168.0.20", MAC_A, NUD_REACHABLE);
    change("192.168.0.20", MAC_A, NUD_FAILED);
    pass_a_mark();
    const size_t told = logged_containing("Got ARP GONE event");
    ASSERT_EQ(1u, told);
    overrun();
    EXPECT_EQ(1u, logged_containing("Got ARP GONE event"));
    EXPECT_EQ(1, std::ranges::count(tr69_codes(), "108"));
}

TEST_F(NeighbourOverrun, StaleEntryOfARemovedClient_MakesNone) {
    start_monitor();
    change("192.168.0.20", MAC_A, NUD_STALE);
    pass_a_mark();
    {
        const hbs_list_hold hold;
        ASSERT_NE(nullptr, hbs_find_by_mac(mac_of(MAC_A).data()));
        (void)hbs_set_route_mode(0);
        (void)hbs_set_route_mode(1);
    }
    ASSERT_FALSE(is_known(MAC_A));
    overrun();
    EXPECT_FALSE(is_known(MAC_A));
}

TEST_F(NeighbourOverrun, EntriesFromBeforeTheStart_MakeNoClients) {
    if (started_)
        GTEST_SKIP() << "an earlier test of this process started the thread";
    change("192.168.0.20", MAC_A, NUD_STALE);
    change("192.168.0.21", MAC_B, NUD_REACHABLE);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(wait_until(
        [start] { return std::chrono::steady_clock::now() - start > std::chrono::milliseconds(1200); }));
    start_monitor();
    overrun();
    EXPECT_FALSE(is_known(MAC_A));
    EXPECT_FALSE(is_known(MAC_WIFI));
}

TEST_F(NeighbourOverrun, KnownState_IsNotToldAgain) {
    start_monitor();
    leased(MAC_A, "192.168.0.20");
    change("192.168.0.20", MAC_A, NUD_REACHABLE);
    change("fe80::20", MAC_A, NUD_REACHABLE);
    change("fd00:2::20", MAC_A, NUD_REACHABLE);
    pass_a_mark();
    ASSERT_TRUE(is_online(MAC_A));
    const size_t told = tr69_codes().size();
    clear_log();
    overrun();
    EXPECT_EQ(told, tr69_codes().size());
    for (const char *address : {"192.168.0.20", "fe80::20", "fd00:2::20"})
        EXPECT_FALSE(logged(std::string("HOSTBASE: handle_neigh: Reachable - Address is: ") + address));
}

TEST_F(NeighbourOverrun, LostReachable_PutsTheClientOnLine) {
    start_monitor();
    leased(MAC_A, "192.168.0.20");
    lose([this] { change("192.168.0.20", MAC_A, NUD_REACHABLE); });
    ASSERT_FALSE(is_online(MAC_A));
    overrun();
    EXPECT_TRUE(is_online(MAC_A));
}

TEST_F(NeighbourOverrun, LostDevice_BecomesAClient) {
    start_monitor();
    lose([this] {
        change("192.168.0.20", MAC_A, NUD_STALE);
        change("fd00:2::30", MAC_WIFI, NUD_REACHABLE);
    });
    ASSERT_FALSE(is_known(MAC_A));
    overrun();
    EXPECT_TRUE(is_known(MAC_A));
    EXPECT_TRUE(is_known(MAC_WIFI));
}

TEST_F(NeighbourOverrun, LostStale_ArmsTheTimerOfAWiredClient) {
    start_monitor();
    leased(MAC_A, "192.168.0.20");
    change("192.168.0.20", MAC_A, NUD_REACHABLE);
    pass_a_mark();
    lose([this] { change("192.168.0.20", MAC_A, NUD_STALE); });
    overrun();
    const hbs_list_hold hold;
    EXPECT_NE(0u, hbs_find_by_mac(mac_of(MAC_A).data())->flags & HBS_FLAG_TIMER_ONLINE);
}

TEST_F(NeighbourOverrun, LostFailure_IsToldWithoutAMac) {
    start_monitor();
    leased(MAC_A, "192.168.0.20");
    change("192.168.0.20", MAC_A, NUD_REACHABLE);
    pass_a_mark();
    lose([this] { change("192.168.0.20", MAC_A, NUD_FAILED); });
    ASSERT_EQ(0u, logged_containing("Got ARP GONE event"));
    overrun();
    EXPECT_EQ(1u, logged_containing("Got ARP GONE event"));
    overrun();
    EXPECT_EQ(1u, logged_containing("Got ARP GONE event"));
}

TEST_F(NeighbourOverrun, OfSeveralLostAddresses_TheLastStandsInTheRecord) {
    start_monitor();
    leased(MAC_A, "192.168.0.20");
    lose([this] {
        for (const int number : {31, 33, 35, 34, 32}) {
            change("192.168.0." + std::to_string(number), MAC_A, NUD_STALE);
            sleep_milliseconds(30); // the kernel's ages count ticks
        }
    });
    overrun();
    const hbs_list_hold hold;
    EXPECT_EQ("192.168.0.32", text_of(hbs_find_by_mac(mac_of(MAC_A).data())->ipv4));
    EXPECT_THAT(tr69_codes(), ElementsAre("106"));
}

TEST_F(NeighbourOverrun, KernelThatCountsNoDrops_IsNamedOnce) {
    if (started_)
        GTEST_SKIP() << "an earlier test of this process started the thread";
    constexpr const char *LINE =
        "HOSTBASE: nl_listen_thread: the kernel does not count lost neighbour events";
    fake::counts_drops = false;
    start_monitor();
    pass_a_mark();
    EXPECT_EQ(1u, logged_count(LINE));
    EXPECT_EQ(0u, logged_containing("neighbour events lost"));
}

} // namespace
