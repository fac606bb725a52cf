// Threads of the platform's own.
#include <csignal>
#include <future>
#include <gtest/gtest.h>
#include <pthread.h>

#include "common_thread.h"

namespace thread_test {

struct Found {
    size_t stack;
    int detach_state;
    bool terminable;
};

std::promise<Found> answer;

void *look_at_itself(void *) {
    Found found = {};
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        (void)pthread_attr_getstacksize(&attributes, &found.stack);
        (void)pthread_attr_getdetachstate(&attributes, &found.detach_state);
        (void)pthread_attr_destroy(&attributes);
    }
    sigset_t blocked;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    found.terminable = sigismember(&blocked, SIGTERM) != 1;
    answer.set_value(found);
    return nullptr;
}

// A sanitizer may add to the stack what it needs itself; what the C library gives by default is megabytes.
TEST(Thread, HasAStackOfItsOwnSizeAndNoSignals) {
    ASSERT_TRUE(common_thread_start(look_at_itself));
    const Found found = answer.get_future().get();
    EXPECT_GE(found.stack, COMMON_THREAD_STACK);
    EXPECT_LT(found.stack, 4 * COMMON_THREAD_STACK);
    EXPECT_EQ(PTHREAD_CREATE_DETACHED, found.detach_state);
    EXPECT_FALSE(found.terminable);
}

TEST(Thread, LeavesTheSignalsOfWhoStartsIt) {
    sigset_t before, after;
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, nullptr, &before));
    ASSERT_TRUE(common_thread_start([](void *argument) { return argument; }));
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, nullptr, &after));
    for (int number : {SIGTERM, SIGINT, SIGCHLD})
        EXPECT_EQ(sigismember(&before, number), sigismember(&after, number));
}

} // namespace thread_test
