// The monitor thread against the real kernel: what is changed in its table arrives, and after more changes
// than the socket can hold the table is read, so that both sides agree.
#include <array>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <net/if.h>
#include <thread>

#include "base/state.h"
#include "daemon/neighbour_monitor.h"
#include "events/neighbours.h"
#include "support/emulation.h"
#include "support/gateway.h"
#include "support/kernel_neighbours.h"

namespace fake {

using mac = std::array<uint8_t, 6>;

struct sighting {
    std::string state;
    mac lladdr{}; // all zero = none
    bool operator==(const sighting &) const = default;
};

std::mutex guard;
// By address bytes. The thread under test outlives the test.
std::map<std::string, sighting> &last = *new std::map<std::string, sighting>;
std::atomic<int> events{0};
std::atomic<int> delay_us{0};

hbs_client *see(const char *state, const uint8_t *lladdr, int family, const uint8_t *address) {
    if (delay_us > 0)
        std::this_thread::sleep_for(std::chrono::microseconds(delay_us));
    sighting seen = {state, {}};
    if (lladdr != nullptr)
        memcpy(seen.lladdr.data(), lladdr, seen.lladdr.size());
    const std::lock_guard hold(guard);
    last[std::string(reinterpret_cast<const char *>(address), family == AF_INET ? 4 : 16)] = seen;
    events++;
    return nullptr;
}

} // namespace fake

hbs_client *hbs_handle_neigh_stale(const uint8_t *mac, int, int family, const uint8_t *address) {
    return fake::see("stale", mac, family, address);
}
hbs_client *hbs_handle_neigh_reachable(const uint8_t *mac, int, int family, const uint8_t *address) {
    return fake::see("reachable", mac, family, address);
}
hbs_client *hbs_handle_neigh_gone(const uint8_t *mac, int, int family, const uint8_t *address) {
    return fake::see("gone", mac, family, address);
}

namespace {

constexpr const char *LAN = "l2sd0.2";

std::string ipv4(int number) {
    const auto high = static_cast<char>(number / 250);
    const auto low = static_cast<char>(1 + number % 250);
    return {10, 9, high, low};
}

fake::mac mac_of(int number) {
    return {0x02,
            0xbb,
            static_cast<uint8_t>(number >> 24),
            static_cast<uint8_t>(number >> 16),
            static_cast<uint8_t>(number >> 8),
            static_cast<uint8_t>(number)};
}

class NeighbourMonitor : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        if (is_emulated())
            GTEST_SKIP() << NO_NEIGHBOUR_MESSAGES;
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        // A new interface has no neighbours yet: a change to what an entry already is would be no event.
        (void)!system("ip link del l2sd0.2 2> /dev/null");
        ASSERT_EQ(system("ip link add l2sd0.2 type veth peer name other && ip link set l2sd0.2 up && "
                         "ip link set other up"),
                  0);
        static bool started = false;
        if (!started) {
            pthread_t thread;
            ASSERT_EQ(pthread_create(&thread, nullptr, nl_listen_thread, nullptr), 0);
            (void)pthread_detach(thread); // it has no end
            started = true;
        }
        // The thread is there once a change arrives.
        ASSERT_TRUE(wait_until([this] {
            (void)kernel.set(ipv4(1000), mac_of(++probes), NUD_STALE);
            return fake::events > 0;
        }));
    }

    // Hundreds of neighbours would fill the first datagram of everybody else's look at the table.
    void TearDown() override {
        if (!is_emulated())
            EXPECT_EQ(system("ip link del l2sd0.2"), 0);
        GatewayTest::TearDown();
    }

    // Whether the last thing that was heard of an address becomes this.
    bool hears(const std::string &address, const fake::sighting &wanted) {
        return wait_until(
            [&] {
                const std::lock_guard hold(fake::guard);
                return fake::last[address] == wanted;
            },
            20000);
    }

    KernelNeighbours kernel{LAN};
    int probes = 0;
};

TEST_F(NeighbourMonitor, ChangesOfTheTable_ReachTheHandlers) {
    const std::string ipv6("\xfd\x00\x00\x09\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x10", 16);
    ASSERT_TRUE(kernel.set(ipv4(1), mac_of(1), NUD_REACHABLE));
    EXPECT_TRUE(hears(ipv4(1), {"reachable", mac_of(1)}));
    ASSERT_TRUE(kernel.set(ipv4(1), mac_of(2), NUD_STALE));
    EXPECT_TRUE(hears(ipv4(1), {"stale", mac_of(2)}));
    ASSERT_TRUE(kernel.set(ipv4(1), mac_of(2), NUD_FAILED));
    EXPECT_TRUE(hears(ipv4(1), {"gone", fake::mac{}}));
    ASSERT_TRUE(kernel.set(ipv6, mac_of(3), NUD_STALE));
    EXPECT_TRUE(hears(ipv6, {"stale", mac_of(3)}));
}

TEST_F(NeighbourMonitor, StormWithASlowHandler_LosesNothingForGood) {
    constexpr int addresses = 300;
    constexpr int changes = 60000;
    fake::delay_us = 2000;
    for (int i = 0; i < changes; i++)
        ASSERT_TRUE(kernel.set(ipv4(i % addresses), mac_of(i), NUD_STALE)) << i;
    fake::delay_us = 0;
    for (int i = changes - addresses; i < changes; i++)
        ASSERT_TRUE(hears(ipv4(i % addresses), {"stale", mac_of(i)})) << i;
    EXPECT_GE(logged_containing("neighbour events lost"), 1u)
        << "the storm was no storm: " << fake::events << " events";
    EXPECT_LT(fake::events, changes);
    RecordProperty("heard", fake::events);
    ASSERT_TRUE(kernel.set(ipv4(1), mac_of(1), NUD_REACHABLE)); // and the thread lives
    EXPECT_TRUE(hears(ipv4(1), {"reachable", mac_of(1)}));
}

} // namespace
