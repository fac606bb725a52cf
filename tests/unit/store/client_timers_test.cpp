// The three one-shot timers of a client, real ones.
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <iterator>
#include <sys/resource.h>

#include "base/clock.h"
#include "store/client_timers.h"
#include "support/working_clients.h"

namespace {

std::atomic<bool> refuse_to_arm{false};

struct KindCase {
    int kind;
    uint32_t armed;
    uint32_t hbs_client::*word;
};

constexpr KindCase KINDS[] = {
    {HBS_TIMER_DHCP_WAIT, 0x80000000U, &hbs_client::dhcp_wait_timer},
    {HBS_TIMER_LEASE, 0x20000000U, &hbs_client::lease_timer},
    {HBS_TIMER_ONLINE, 0x40000000U, &hbs_client::online_timer},
};

// Per kind, the client of the last expiry and how often it ran.
std::array<std::atomic<hbs_client *>, 4> expired_client;
std::array<std::atomic<int>, 4> expired_count;

template <int Kind> void on_expired(hbs_client *client) {
    expired_client[Kind] = client;
    ++expired_count[Kind];
}

} // namespace

// Stands before the system's own: arming can be made to fail.
#if __TIMESIZE == 64
extern "C" int timer_settime(timer_t timer, int flags, const itimerspec *value, itimerspec *old) noexcept {
    using settime = int (*)(timer_t, int, const itimerspec *, itimerspec *);
    static const settime real = reinterpret_cast<settime>(dlsym(RTLD_NEXT, "timer_settime"));
    if (refuse_to_arm) {
        errno = EINVAL;
        return -1;
    }
    return real(timer, flags, value, old);
}
constexpr uint32_t UNARMABLE_SECONDS = 10;
#else
constexpr uint32_t UNARMABLE_SECONDS = 0xFFFFFFFF; // negative where time_t has 32 bits
#endif

class Timers : public ClientsTest {
  protected:
    void SetUp() override {
        ClientsTest::SetUp();
        hbs_lease_timers_register(on_expired<1>, on_expired<2>, on_expired<3>);
        for (auto &count : expired_count)
            count = 0;
        client_ = add_client(1);
        client_->flags = 0;
    }
    void TearDown() override {
        refuse_to_arm = false;
        for (hbs_client *client : working_clients())
            hbs_lease_timers_clear(client);
        ClientsTest::TearDown();
    }
    bool exists(int kind) { return hbs_client_timer_slot(client_, kind)->exists; }
    itimerspec setting(int kind) {
        itimerspec now{};
        EXPECT_EQ(0, timer_gettime(hbs_client_timer_slot(client_, kind)->handle, &now));
        return now;
    }
    hbs_client *client_ = nullptr;
};

class EachTimer : public Timers, public testing::WithParamInterface<KindCase> {
  protected:
    int kind() const { return GetParam().kind; }
    uint32_t word() const { return client_->*GetParam().word; }
};

INSTANTIATE_TEST_SUITE_P(Kind, EachTimer, testing::ValuesIn(KINDS),
                         [](const auto &row) { return std::to_string(row.param.kind); });

TEST_P(EachTimer, Start_SetsTheArmedBitAndTheHandleWord) {
    hbs_lease_timer_start(client_, kind(), 3600);
    EXPECT_EQ(GetParam().armed | HBS_CHANGED, client_->flags);
    EXPECT_TRUE(exists(kind()));
    EXPECT_NE(0U, word());
    EXPECT_LT(word(), 16U);
    for (const KindCase &other : KINDS)
        if (other.kind != kind())
            EXPECT_EQ(0U, client_->*other.word);
    EXPECT_TRUE(log_lines().size() <= 1) << "nothing but the line of the add";
}

TEST_P(EachTimer, Start_IsOneShotAfterTheSeconds) {
    hbs_lease_timer_start(client_, kind(), 3600);
    const itimerspec now = setting(kind());
    EXPECT_EQ(0, now.it_interval.tv_sec);
    EXPECT_EQ(0, now.it_interval.tv_nsec);
    EXPECT_GE(now.it_value.tv_sec, 3590);
    EXPECT_LE(now.it_value.tv_sec, 3600);
}

TEST_P(EachTimer, Expiry_RunsTheActionOfTheKindWithTheClient_WhoIsRidOfTheTimer) {
    {
        const hbs_list_hold hold;
        hbs_lease_timer_start(client_, kind(), 1);
    }
    ASSERT_TRUE(wait_until([&] { return expired_count[static_cast<size_t>(kind())] == 1; }, 20000));
    const hbs_list_hold hold;
    EXPECT_EQ(client_, expired_client[static_cast<size_t>(kind())]);
    EXPECT_FALSE(exists(kind()));
    EXPECT_EQ(0U, word());
    EXPECT_EQ(0, hbs_lease_timer_deadline(client_, kind()));
    EXPECT_NE(0U, client_->flags & GetParam().armed) << "left to the action";
}

// A reclaim lets the number of a client that is still there repeat.
TEST_P(EachTimer, OfTwoBearersOfANumber_ItExpiresForTheOneWhoseOwnItWas) {
    hbs_client *second = add_client(2);
    second->client_id = client_->client_id;
    const size_t of = static_cast<size_t>(kind());
    {
        const hbs_list_hold hold;
        hbs_lease_timer_start(client_, kind(), 3600);
        hbs_lease_timer_start(second, kind(), 1);
    }
    ASSERT_TRUE(wait_until([&] { return expired_count[of] == 1; }, 20000)) << "the expiry is lost";
    EXPECT_EQ(second, expired_client[of]);
    const hbs_list_hold hold;
    EXPECT_TRUE(exists(kind()));
    EXPECT_FALSE(hbs_client_timer_slot(second, kind())->exists);
}

TEST_P(EachTimer, OfTwoBearersOfANumber_TheOneWithoutATimerDoesNotHideTheOther) {
    hbs_client *second = add_client(2);
    second->client_id = client_->client_id;
    {
        const hbs_list_hold hold;
        hbs_lease_timer_start(second, kind(), 1);
    }
    const size_t of = static_cast<size_t>(kind());
    ASSERT_TRUE(wait_until([&] { return expired_count[of] == 1; }, 20000)) << "the expiry is lost";
    EXPECT_EQ(second, expired_client[of]);
}

TEST_P(EachTimer, OfAClientWithoutAMac_ExpiresToo) {
    hbs_client *nomac = hbs_add(nullptr);
    {
        const hbs_list_hold hold;
        hbs_lease_timer_start(nomac, kind(), 1);
    }
    const size_t of = static_cast<size_t>(kind());
    ASSERT_TRUE(wait_until([&] { return expired_count[of] == 1; }, 20000)) << "the expiry is lost";
    EXPECT_EQ(nomac, expired_client[of]);
}

TEST_P(EachTimer, ExpireNow_RunsTheActionAndDiscardsTheTimer) {
    hbs_lease_timer_start(client_, kind(), 3600);
    hbs_lease_timer_expire(client_, kind());
    EXPECT_EQ(1, expired_count[static_cast<size_t>(kind())]);
    EXPECT_EQ(client_, expired_client[static_cast<size_t>(kind())]);
    EXPECT_FALSE(exists(kind()));
    EXPECT_NE(0U, client_->flags & GetParam().armed) << "left to the action";
}

TEST_P(EachTimer, Deadline_IsThereFromStartToStop) {
    EXPECT_EQ(0, hbs_lease_timer_deadline(client_, kind()));
    const int64_t now = hbs_monotonic_seconds();
    hbs_lease_timer_start(client_, kind(), 3600);
    EXPECT_GE(hbs_lease_timer_deadline(client_, kind()), now + 3600);
    EXPECT_LE(hbs_lease_timer_deadline(client_, kind()), now + 3602);
    hbs_lease_timer_stop(client_, kind());
    EXPECT_EQ(0, hbs_lease_timer_deadline(client_, kind()));
    hbs_lease_timer_start(client_, kind(), 0xFFFFFFFF);
    EXPECT_GE(hbs_lease_timer_deadline(client_, kind()), now + int64_t{0xFFFFFFFF});
    hbs_lease_timers_clear(client_);
    EXPECT_EQ(0, hbs_lease_timer_deadline(client_, kind()));
    hbs_lease_timer_start(client_, kind(), 0);
    EXPECT_EQ(0, hbs_lease_timer_deadline(client_, kind())) << "0 seconds never expire";
}

// A lease that is renewed in the second in which it ends must not cost the client its record.
TEST_F(Timers, ExpiryThatWaitedForTheLock_CountsOnlyForTheTimerThatIsStillThere) {
    {
        const hbs_list_hold hold;
        for (const KindCase &each : KINDS)
            hbs_lease_timer_start(client_, each.kind, 1);
        const auto all_ended = [&] {
            return std::all_of(std::begin(KINDS), std::end(KINDS), [&](const KindCase &each) {
                const itimerspec left = setting(each.kind);
                return left.it_value.tv_sec == 0 && left.it_value.tv_nsec == 0;
            });
        };
        ASSERT_TRUE(wait_until(all_ended, 20000));
        sleep_milliseconds(200); // the three threads have begun by now
        hbs_lease_timer_stop(client_, HBS_TIMER_DHCP_WAIT);
        hbs_lease_timer_start(client_, HBS_TIMER_LEASE, 3600);
    }
    EXPECT_TRUE(wait_until([&] { return expired_count[HBS_TIMER_ONLINE] == 1; }, 20000));
    sleep_milliseconds(200);
    EXPECT_EQ(0, expired_count[HBS_TIMER_DHCP_WAIT]) << "stopped meanwhile";
    EXPECT_EQ(0, expired_count[HBS_TIMER_LEASE]) << "started anew meanwhile";
    EXPECT_TRUE(exists(HBS_TIMER_LEASE));
}

TEST_P(EachTimer, StartAgain_ReplacesTheTimer) {
    hbs_lease_timer_start(client_, kind(), 1);
    hbs_lease_timer_start(client_, kind(), 100);
    EXPECT_GE(setting(kind()).it_value.tv_sec, 90);
    EXPECT_LE(setting(kind()).it_value.tv_sec, 100);
    // Another timer that was started later expires, and the replaced one has not.
    const int other = kind() % 3 + 1;
    hbs_lease_timer_start(client_, other, 2);
    ASSERT_TRUE(wait_until([&] { return expired_count[static_cast<size_t>(other)] == 1; }, 20000));
    EXPECT_EQ(0, expired_count[static_cast<size_t>(kind())]);
}

TEST_P(EachTimer, Stop_DisarmsIt) {
    hbs_lease_timer_start(client_, kind(), 1);
    hbs_lease_timer_stop(client_, kind());
    EXPECT_FALSE(exists(kind()));
    EXPECT_EQ(0U, word());
    EXPECT_EQ(0U, client_->flags & 0xE0000000U);
    const int other = kind() % 3 + 1;
    hbs_lease_timer_start(client_, other, 2);
    ASSERT_TRUE(wait_until([&] { return expired_count[static_cast<size_t>(other)] == 1; }, 20000));
    EXPECT_EQ(0, expired_count[static_cast<size_t>(kind())]);
}

TEST_P(EachTimer, Stop_ClearsTheArmedBitAlsoWithoutATimer) {
    client_->flags = GetParam().armed | HBS_FLAG_ONLINE;
    hbs_lease_timer_stop(client_, kind());
    EXPECT_EQ(HBS_FLAG_ONLINE | HBS_CHANGED, client_->flags);
}

TEST_P(EachTimer, Clear_WipesTheTrustOfAWaitingClientOnly) {
    client_->trust = HBS_TRUST_WHITE | HBS_TRUST_USER;
    hbs_lease_timer_start(client_, kind(), 3600);
    hbs_lease_timers_clear(client_);
    EXPECT_FALSE(exists(kind()));
    EXPECT_EQ(0U, word());
    EXPECT_EQ(0U, client_->flags & GetParam().armed);
    EXPECT_EQ(kind() == HBS_TIMER_DHCP_WAIT ? 0U : HBS_TRUST_WHITE | HBS_TRUST_USER, client_->trust);
}

TEST_P(EachTimer, Clear_LeavesAnArmedBitWithoutATimer) {
    client_->flags = GetParam().armed;
    client_->trust = HBS_TRUST_WHITE;
    hbs_lease_timers_clear(client_);
    EXPECT_EQ(GetParam().armed, client_->flags);
    EXPECT_EQ(HBS_TRUST_WHITE, client_->trust);
}

TEST_P(EachTimer, WithoutAnAction_CannotBeCreated) {
    hbs_lease_timers_register(nullptr, nullptr, nullptr);
    hbs_lease_timer_start(client_, kind(), 1);
    EXPECT_TRUE(logged("Couldn't create timer"));
    EXPECT_FALSE(exists(kind()));
    EXPECT_NE(0U, client_->flags & GetParam().armed);
}

TEST_P(EachTimer, WhenNoTimerCanBeCreated_SaysSoAndHasNone) {
    hbs_lease_timer_start(client_, kind(), 3600);
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_SIGPENDING, &limit));
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_SIGPENDING, &none));
    clear_log();
    hbs_lease_timer_start(client_, kind(), 10);
    ASSERT_EQ(0, setrlimit(RLIMIT_SIGPENDING, &limit));
    EXPECT_EQ(std::vector<std::string>{"Couldn't create timer"}, log_lines());
    EXPECT_GE(hbs_lease_timer_deadline(client_, kind()), int64_t{hbs_monotonic_seconds()} + 8)
        << "what it was to end is still known";
    EXPECT_FALSE(exists(kind())) << "the one that ran before is gone all the same";
    EXPECT_EQ(0U, word());
    EXPECT_NE(0U, client_->flags & GetParam().armed);
}

TEST_P(EachTimer, WhenTheTimerCannotBeSet_SaysSoAndHasNone) {
    clear_log();
    refuse_to_arm = true;
    hbs_lease_timer_start(client_, kind(), UNARMABLE_SECONDS);
    EXPECT_EQ(std::vector<std::string>{"Couldn't set timer"}, log_lines());
    EXPECT_NE(0, hbs_lease_timer_deadline(client_, kind())) << "what it was to end is still known";
    EXPECT_FALSE(exists(kind()));
    EXPECT_EQ(0U, word());
    EXPECT_NE(0U, client_->flags & GetParam().armed) << "the armed bit stays set";
}

TEST_F(Timers, UnknownKindsDoNothing) {
    const hbs_client before = *client_;
    clear_log();
    for (int kind : {0, 4, -1}) {
        hbs_lease_timer_start(client_, kind, 1);
        hbs_lease_timer_stop(client_, kind);
        hbs_lease_timer_expire(client_, kind);
    }
    EXPECT_EQ(0, memcmp(&before, client_, sizeof before));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Timers, NullOrForeignClientDoesNothing) {
    hbs_client stranger{};
    stranger.trust = 1;
    for (hbs_client *client : {static_cast<hbs_client *>(nullptr), &stranger}) {
        hbs_lease_timer_start(client, HBS_TIMER_LEASE, 1);
        hbs_lease_timer_stop(client, HBS_TIMER_LEASE);
        hbs_lease_timer_expire(client, HBS_TIMER_LEASE);
        hbs_lease_timers_clear(client);
    }
    EXPECT_EQ(0U, stranger.flags);
    EXPECT_EQ(1U, stranger.trust);
}

TEST_F(Timers, TheThreeKindsRunSideBySide) {
    for (const KindCase &row : KINDS)
        hbs_lease_timer_start(client_, row.kind, 3600);
    EXPECT_EQ(0xE0000000U | HBS_CHANGED, client_->flags);
    hbs_lease_timer_stop(client_, HBS_TIMER_LEASE);
    EXPECT_TRUE(exists(HBS_TIMER_DHCP_WAIT));
    EXPECT_FALSE(exists(HBS_TIMER_LEASE));
    EXPECT_TRUE(exists(HBS_TIMER_ONLINE));
    hbs_lease_timers_clear(client_);
    EXPECT_FALSE(exists(HBS_TIMER_DHCP_WAIT));
    EXPECT_FALSE(exists(HBS_TIMER_ONLINE));
}
