// The semaphore: waiting, posting, and taking over from a holder that is gone.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <semaphore.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/sem_deadline.h"
#include "store/segment.h"
#include "support/gateway.h"

namespace {

class Semaphore : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_sem_init();
        other_ = sem_open(HBS_SEMAPHORE_NAME, 0);
        ASSERT_NE(SEM_FAILED, other_);
    }

    int value() const {
        int number = -1;
        EXPECT_EQ(0, sem_getvalue(other_, &number));
        return number;
    }

    sem_t *other_ = SEM_FAILED; // as a reader sees it
};

constexpr const char *TAKEN_OVER = "HOSTBASE: database semaphore not released within 3000 ms, taken over";

TEST_F(Semaphore, IsCreatedClosed) {
    EXPECT_EQ(0, value());
}

TEST_F(Semaphore, WaitTakesAndPostGivesBack) {
    hbs_sem_post();
    EXPECT_EQ(1, value());
    hbs_sem_wait();
    EXPECT_EQ(0, value());
    hbs_sem_post();
    EXPECT_EQ(1, value());
}

TEST_F(Semaphore, HoldPostsAtTheEndOfItsScope) {
    hbs_sem_post();
    {
        hbs_shm_hold hold;
        EXPECT_EQ(0, value());
    }
    EXPECT_EQ(1, value());
}

TEST_F(Semaphore, WaitLastsUntilTheHolderPosts) {
    const auto start = std::chrono::steady_clock::now();
    std::thread holder([this] {
        sleep_milliseconds(300);
        (void)sem_post(other_);
    });
    hbs_sem_wait();
    auto waited = std::chrono::steady_clock::now() - start;
    holder.join();
    EXPECT_GE(waited, std::chrono::milliseconds(250));
    EXPECT_EQ(0, value());
    EXPECT_FALSE(logged(TAKEN_OVER));
}

TEST_F(Semaphore, WhenHolderWasKilled_IsTakenOverAndTheCountIsRepaired) {
    hbs_sem_post();
    pid_t reader = fork();
    ASSERT_GE(reader, 0);
    if (reader == 0) {
        (void)sem_wait(other_);
        pause();
    }
    ASSERT_TRUE(wait_until([this] { return value() == 0; }));
    (void)kill(reader, SIGKILL);
    (void)waitpid(reader, nullptr, 0);
    auto start = std::chrono::steady_clock::now();
    hbs_sem_wait();
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(HBS_SEM_PATIENCE_MS - 100));
    EXPECT_LT(waited, std::chrono::milliseconds(HBS_SEM_PATIENCE_MS + 20000));
    EXPECT_EQ(1u, logged_count(TAKEN_OVER));
    hbs_sem_post();
    EXPECT_EQ(1, value());
    hbs_sem_wait();
    EXPECT_EQ(1u, logged_count(TAKEN_OVER)) << "the next wait is ordinary again";
}

TEST_F(Semaphore, WhenHolderWasOnlySlow_TheCountComesDownAgain) {
    hbs_sem_admit();
    ASSERT_EQ(0, sem_wait(other_)); // the slow holder
    hbs_sem_wait();
    ASSERT_EQ(1u, logged_count(TAKEN_OVER));
    hbs_sem_post();
    (void)sem_post(other_);
    ASSERT_EQ(2, value()) << "one too many";
    { const hbs_shm_hold next; }
    EXPECT_EQ(1, value());
    { const hbs_shm_hold another; }
    EXPECT_EQ(1, value());
}

TEST_F(Semaphore, WhenHolderComesBackDuringTheTakenOverHold_NothingIsPostedTwice) {
    hbs_sem_admit();
    ASSERT_EQ(0, sem_wait(other_));
    hbs_sem_wait();
    (void)sem_post(other_);
    hbs_sem_post();
    EXPECT_EQ(1, value());
}

TEST_F(Semaphore, ExcessIsTakenFromWhatIsFree_NeverFromAHolder) {
    hbs_sem_admit();
    ASSERT_EQ(0, sem_wait(other_)); // slow
    hbs_sem_wait();
    hbs_sem_post();
    ASSERT_EQ(0, sem_wait(other_)); // a second reader is inside, by what the take-over left
    (void)sem_post(other_);         // the slow one comes back
    { const hbs_shm_hold while_the_second_is_inside; }
    EXPECT_EQ(1, value());
    (void)sem_post(other_); // the second leaves
    ASSERT_EQ(2, value());
    { const hbs_shm_hold next; }
    EXPECT_EQ(1, value());
}

TEST_F(Semaphore, WhatEachStartAdmitsStays) {
    hbs_sem_admit();
    hbs_sem_admit(); // as a restart does
    EXPECT_EQ(2, value());
    { const hbs_shm_hold hold; }
    EXPECT_EQ(2, value());
    (void)sem_post(other_);
    { const hbs_shm_hold hold; }
    EXPECT_EQ(2, value());
}

// What the program believes of the wall clock; the monotonic one is left alone.
int wall_clock_ahead; // seconds

int64_t milliseconds_of(const std::function<void()> &action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

// A wall clock that is set back while a process waits is the same as one that was ahead when it began.
TEST_F(Semaphore, WaitIsNotStretchedByTheWallClock) {
    wall_clock_ahead = 10;
    EXPECT_NEAR(HBS_SEM_PATIENCE_MS, milliseconds_of(hbs_sem_wait), 1000);
    EXPECT_EQ(1u, logged_count(TAKEN_OVER));
}

TEST_F(Semaphore, WaitIsNotShortenedByTheWallClock) {
    wall_clock_ahead = -10;
    EXPECT_NEAR(HBS_SEM_PATIENCE_MS, milliseconds_of(hbs_sem_wait), 1000);
    EXPECT_EQ(1u, logged_count(TAKEN_OVER));
}

// --- the wait of C libraries that know the wall clock only ---

TEST_F(Semaphore, Polling_TakesWhatIsThereEvenAtItsDeadline) {
    hbs_sem_post();
    const timespec over = {0, 0};
    EXPECT_TRUE(hbs_sem_poll_until(other_, &over));
    EXPECT_EQ(0, value());
    EXPECT_FALSE(hbs_sem_poll_until(other_, &over));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST_F(Semaphore, Polling_EndsSoonAfterThePost) {
    std::thread holder([this] {
        sleep_milliseconds(200);
        (void)sem_post(other_);
    });
    const timespec deadline = hbs_monotonic_in(10000);
    const int64_t taken = milliseconds_of([&] { EXPECT_TRUE(hbs_sem_poll_until(other_, &deadline)); });
    holder.join();
    EXPECT_LT(taken, 8000) << "long before the deadline";
}

TEST_F(Semaphore, Polling_EndsAtItsDeadlineWhateverTheWallClockSays) {
    for (int ahead : {10, -10}) {
        wall_clock_ahead = ahead;
        const timespec deadline = hbs_monotonic_in(300);
        const int64_t taken = milliseconds_of([&] { EXPECT_FALSE(hbs_sem_poll_until(other_, &deadline)); });
        EXPECT_GE(taken, 290);
        EXPECT_LT(taken, 8000) << "less than the wall clock is ahead or behind";
    }
}

void ignore_signal(int) {}

TEST_F(Semaphore, WaitGoesOnAfterASignal) {
    struct sigaction action {};
    action.sa_handler = ignore_signal; // no SA_RESTART: the wait is interrupted
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    pthread_t waiter = pthread_self();
    std::thread other([this, waiter] {
        for (int i = 0; i < 5; i++) {
            sleep_milliseconds(30);
            (void)pthread_kill(waiter, SIGUSR1);
        }
        (void)sem_post(other_);
    });
    hbs_sem_wait();
    other.join();
    EXPECT_EQ(0, value()) << "taken once, after the post";
    EXPECT_FALSE(logged(TAKEN_OVER));
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, now);
    if (clock == CLOCK_REALTIME)
        now->tv_sec += wall_clock_ahead;
    return static_cast<int>(result);
}
