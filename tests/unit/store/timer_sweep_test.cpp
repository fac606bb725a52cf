// Deadlines of clients whose timers were lost or could not be made.
#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
#include <sys/resource.h>

#include "base/clock.h"
#include "store/client_timers.h"
#include "store/timer_sweep.h"
#include "support/working_clients.h"

namespace timer_sweep_test {

constexpr int KINDS[] = {HBS_TIMER_DHCP_WAIT, HBS_TIMER_LEASE, HBS_TIMER_ONLINE};

struct Expiry {
    int kind;
    hbs_client *client;
    bool operator==(const Expiry &) const = default;
};

// Written under the list lock only.
std::vector<Expiry> expiries;
std::function<void(hbs_client *)> besides;

template <int Kind> void on_expired(hbs_client *client) {
    expiries.push_back({Kind, client});
    if (besides)
        besides(client);
}

std::vector<Expiry> expiries_so_far() {
    const hbs_list_hold hold;
    return expiries;
}

// No timer can be made while it lives.
class NoTimers {
  public:
    NoTimers() {
        EXPECT_EQ(0, getrlimit(RLIMIT_SIGPENDING, &before_));
        const rlimit none = {0, before_.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_SIGPENDING, &none));
    }
    ~NoTimers() { EXPECT_EQ(0, setrlimit(RLIMIT_SIGPENDING, &before_)); }
    NoTimers(const NoTimers &) = delete;
    NoTimers &operator=(const NoTimers &) = delete;

  private:
    rlimit before_{};
};

class TimerSweep : public ClientsTest {
  protected:
    void SetUp() override {
        ClientsTest::SetUp();
        hbs_lease_timers_register(on_expired<1>, on_expired<2>, on_expired<3>);
        expiries.clear();
        besides = nullptr;
        client_ = add_client(1);
    }
    void TearDown() override {
        for (hbs_client *client : working_clients())
            hbs_lease_timers_clear(client);
        for (hbs_client *client : nomac_clients())
            hbs_lease_timers_clear(client);
        ClientsTest::TearDown();
    }
    static void start_without_a_timer(hbs_client *client, int kind, uint32_t seconds) {
        const NoTimers none;
        hbs_lease_timer_start(client, kind, seconds);
        EXPECT_FALSE(hbs_client_timer_slot(client, kind)->exists);
    }
    hbs_client *client_ = nullptr;
};

class TimerSweepKind : public TimerSweep, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Kind, TimerSweepKind, testing::ValuesIn(KINDS),
                         [](const auto &row) { return std::to_string(row.param); });

TEST_P(TimerSweepKind, TimerThatCouldNotBeMade_EndsAtItsDeadlineAndOnce) {
    start_without_a_timer(client_, GetParam(), 600);
    hbs_timer_sweep();
    hbs_clock_advance(599);
    hbs_timer_sweep();
    EXPECT_TRUE(expiries.empty()) << "not before its time";
    hbs_clock_advance(3);
    hbs_timer_sweep();
    EXPECT_EQ((std::vector<Expiry>{{GetParam(), client_}}), expiries);
    hbs_timer_sweep();
    EXPECT_EQ(1u, expiries.size());
}

// As when its thread could not be made: there is a timer, and it will not tell any more.
TEST_P(TimerSweepKind, TimerThatDidNotTell_IsEndedAndGone) {
    hbs_lease_timer_start(client_, GetParam(), 3600);
    hbs_clock_advance(3602);
    hbs_timer_sweep();
    EXPECT_EQ((std::vector<Expiry>{{GetParam(), client_}}), expiries);
    EXPECT_FALSE(hbs_client_timer_slot(client_, GetParam())->exists);
}

TEST_P(TimerSweepKind, TimerThatExpired_IsNotEndedAgain) {
    hbs_lease_timer_start(client_, GetParam(), 1);
    ASSERT_TRUE(wait_until([] { return expiries_so_far().size() == 1; }, 20000));
    hbs_clock_advance(10);
    hbs_timer_sweep();
    EXPECT_EQ(1u, expiries_so_far().size());
}

TEST_P(TimerSweepKind, ExpiryThatWaitedForTheLockMeanwhile_IsVoid) {
    {
        const hbs_list_hold hold;
        hbs_lease_timer_start(client_, GetParam(), 1);
        const timer_t timer = hbs_client_timer_slot(client_, GetParam())->handle;
        ASSERT_TRUE(wait_until(
            [timer] {
                itimerspec left{};
                return timer_gettime(timer, &left) == 0 && left.it_value.tv_sec == 0 &&
                       left.it_value.tv_nsec == 0;
            },
            20000));
        sleep_milliseconds(200); // its thread has begun by now
        hbs_clock_advance(10);
        hbs_timer_sweep();
        EXPECT_EQ(1u, expiries.size());
    }
    sleep_milliseconds(200);
    EXPECT_EQ(1u, expiries_so_far().size());
}

TEST_P(TimerSweepKind, StoppedClearedRenewedOrEndless_IsLeftAlone) {
    hbs_client *cleared = add_client(2);
    hbs_client *renewed = add_client(3);
    hbs_client *endless = add_client(4);
    hbs_client *longest = add_client(5);
    for (hbs_client *client : {client_, cleared, renewed})
        start_without_a_timer(client, GetParam(), 10);
    start_without_a_timer(endless, GetParam(), 0);
    start_without_a_timer(longest, GetParam(), 0xFFFFFFFF);
    hbs_lease_timer_stop(client_, GetParam());
    hbs_lease_timers_clear(cleared);
    start_without_a_timer(renewed, GetParam(), 3600);
    hbs_clock_advance(1800);
    hbs_timer_sweep();
    EXPECT_TRUE(expiries.empty());
}

TEST_F(TimerSweep, EveryKindOfEveryClient_ThoseWithoutAMacToo) {
    std::vector<Expiry> expected;
    for (hbs_client *client : {client_, add_client(2), hbs_add(nullptr)}) {
        for (const int kind : KINDS) {
            start_without_a_timer(client, kind, 10);
            expected.push_back({kind, client});
        }
    }
    hbs_clock_advance(12);
    hbs_timer_sweep();
    EXPECT_EQ(expected, expiries);
}

TEST_F(TimerSweep, ExpiryThatEndsClients_DoesNotLoseTheOthers) {
    std::vector<hbs_client *> clients = {client_};
    for (unsigned n = 2; n <= 6; ++n)
        clients.push_back(add_client(n));
    for (hbs_client *client : clients)
        start_without_a_timer(client, HBS_TIMER_LEASE, 10);
    // Each ends itself, and the third the one behind it as well.
    besides = [&](hbs_client *client) {
        if (client == clients[2])
            hbs_client_free(clients[3]);
        hbs_client_free(client);
    };
    hbs_clock_advance(12);
    hbs_timer_sweep();
    EXPECT_EQ(5u, expiries.size());
    EXPECT_EQ(nullptr, hbs_client_first());
}

TEST_F(TimerSweep, WithNobodyThere_DoesNothing) {
    hbs_client_free(client_);
    hbs_timer_sweep();
    EXPECT_TRUE(expiries.empty());
}

} // namespace timer_sweep_test
