// The kernel's neighbour table, asked on a thread of the probes: what the asker gets, and how long it waits.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "base/clock.h"
#include "gateway/neighbour_probe.h"
#include "gateway/neighbour_query.h"
#include "support/gateway.h"

namespace {

constexpr uint8_t LL[16] = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x20};

std::atomic<int> questions;
std::atomic<int> milliseconds; // that the kernel takes
std::atomic<bool> is_known;
std::thread::id asked_on;

using Clock = std::chrono::steady_clock;

} // namespace

int hbs_query_neigh_lladdr(int, const uint8_t *address, uint8_t *mac_out) {
    asked_on = std::this_thread::get_id();
    ++questions;
    sleep_milliseconds(milliseconds);
    if (!is_known)
        return -1;
    std::memcpy(mac_out, address + 10, 6);
    return 0;
}

namespace {

class NeighbourProbe : public testing::Test {
  protected:
    void SetUp() override {
        is_known = true;
        hbs_probe_register(HBS_PROBE_NEIGHBOUR, hbs_probe_neighbour);
    }

    static void start_threads() {
        for (int i = 0; i < HBS_PROBE_THREADS; ++i)
            std::thread(hbs_probe_thread, nullptr).detach();
        EXPECT_TRUE(wait_until(hbs_probe_is_open));
    }

    // The last byte of the MAC that the asker gets, or -1.
    static int ask(uint8_t last = 0x20) {
        uint8_t ll[16];
        std::memcpy(ll, LL, sizeof ll);
        ll[15] = last;
        uint8_t mac[6] = {};
        return hbs_ask_neigh_lladdr(ll, mac) == 0 ? mac[5] : -1;
    }
};

TEST_F(NeighbourProbe, BeforeTheThreadsRun_TheAskerAsksItself) {
    EXPECT_EQ(0x20, ask());
    EXPECT_EQ(std::this_thread::get_id(), asked_on);
}

TEST_F(NeighbourProbe, ThreadAsks_AndTheAskerGetsTheAnswer) {
    start_threads();
    EXPECT_TRUE(wait_until([] { return ask() == 0x20; })); // a machine under load may be late, too
    EXPECT_NE(std::this_thread::get_id(), asked_on);
    is_known = false;
    EXPECT_EQ(-1, ask());
}

TEST_F(NeighbourProbe, SlowKernel_IsWaitedForOnceInASecond) {
    start_threads();
    milliseconds = 300;
    auto quickest = Clock::duration::max(); // the others, too, but for what the machine does meanwhile
    for (uint8_t last = 1; last <= 20; ++last) {
        const auto start = Clock::now();
        EXPECT_EQ(-1, ask(last));
        quickest = std::min(quickest, Clock::now() - start);
    }
    EXPECT_LT(quickest, std::chrono::milliseconds(100)) << "each was waited for";
    EXPECT_TRUE(wait_until([] {
        milliseconds = 0;
        return ask() == 0x20;
    }));
}

TEST_F(NeighbourProbe, AnswerThatComesTooLate_IsNobodyElses) {
    start_threads();
    milliseconds = 300;
    EXPECT_EQ(-1, ask(0x21));
    milliseconds = 0;
    hbs_clock_advance(1);
    EXPECT_TRUE(wait_until([] { return ask(0x22) == 0x22; }));
}

TEST_F(NeighbourProbe, KernelThatWasLateAndKnew_IsAskedAgainAtOnce) {
    start_threads();
    milliseconds = 300;
    EXPECT_EQ(-1, ask(0x21));
    milliseconds = 0;
    hbs_clock_advance(-1000); // the silence would outlast the wait
    EXPECT_TRUE(wait_until([] { return ask(0x22) == 0x22; }));
}

TEST_F(NeighbourProbe, TwoAskers_GetTheirOwnAnswers) {
    start_threads();
    milliseconds = 20;
    std::atomic<int> right = 0, others = 0;
    const auto asker = [&right, &others](uint8_t from) {
        for (uint8_t last = from; last < from + 5; ++last)
            right += wait_until([last, &others] {
                const int answer = ask(last);
                others += answer != -1 && answer != last;
                return answer == last;
            });
    };
    std::thread first(asker, 10);
    std::thread second(asker, 50);
    first.join();
    second.join();
    EXPECT_EQ(10, right);
    EXPECT_EQ(0, others);
}

} // namespace
