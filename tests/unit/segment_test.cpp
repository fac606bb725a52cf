// The semaphore: waiting, posting, and taking over from a holder that is gone.
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <semaphore.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

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
    std::thread holder([this] {
        sleep_milliseconds(300);
        (void)sem_post(other_);
    });
    auto start = std::chrono::steady_clock::now();
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
    EXPECT_LT(waited, std::chrono::milliseconds(HBS_SEM_PATIENCE_MS + 2000));
    EXPECT_EQ(1u, logged_count(TAKEN_OVER));
    hbs_sem_post();
    EXPECT_EQ(1, value());
    hbs_sem_wait();
    EXPECT_EQ(1u, logged_count(TAKEN_OVER)) << "the next wait is ordinary again";
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
