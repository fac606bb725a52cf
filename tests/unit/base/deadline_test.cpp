// Moments of the monotonic clock, and a condition that takes them.
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <gtest/gtest.h>
#include <pthread.h>

#include "base/deadline.h"

namespace deadline_test {

int64_t nanoseconds_of(const timespec &moment) {
    return int64_t{moment.tv_sec} * 1000000000 + moment.tv_nsec;
}

TEST(Deadline, LiesSoManyMillisecondsAheadWithItsNanosecondsBelowASecond) {
    for (const int milliseconds : {0, 1, 500, 999, 1000, 1001, 2000, 60999}) {
        const int64_t before = nanoseconds_of(hbs_monotonic_in(0));
        const timespec moment = hbs_monotonic_in(milliseconds);
        const int64_t after = nanoseconds_of(hbs_monotonic_in(0));
        const int64_t ahead = int64_t{milliseconds} * 1000000;
        EXPECT_GE(nanoseconds_of(moment), before + ahead);
        EXPECT_LE(nanoseconds_of(moment), after + ahead);
        EXPECT_GE(moment.tv_nsec, 0);
        EXPECT_LT(moment.tv_nsec, 1000000000);
    }
}

TEST(Deadline, IsWhereAConditionThatNobodySignalsIsGivenUp) {
    pthread_mutex_t held = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t never;
    hbs_monotonic_condition(&never);
    const timespec deadline = hbs_monotonic_in(20);
    ASSERT_EQ(pthread_mutex_lock(&held), 0);
    int result = 0;
    while (result == 0)
        result = pthread_cond_timedwait(&never, &held, &deadline);
    EXPECT_EQ(result, ETIMEDOUT);
    EXPECT_GE(nanoseconds_of(hbs_monotonic_in(0)), nanoseconds_of(deadline));
    EXPECT_EQ(pthread_mutex_unlock(&held), 0);
    EXPECT_EQ(pthread_cond_destroy(&never), 0);
}

} // namespace deadline_test
