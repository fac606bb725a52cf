// When the lock's waits end, whatever the clock does. The C library's clock and lock are stood in for.
#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <vector>

#include "export/rwlock.h"

static timeval now;
static std::vector<timespec> deadlines;
static std::function<bool()> is_let_go; // asked when a wait ends

extern "C" int gettimeofday(timeval *time, void *) noexcept {
    *time = now;
    return 0;
}

extern "C" int pthread_mutex_timedlock(pthread_mutex_t *, const timespec *deadline) noexcept {
    deadlines.push_back(*deadline);
    return is_let_go() ? 0 : ETIMEDOUT;
}

namespace rwlock_clock_test {

// The times at which the waits of a writer end, each as seconds and nanoseconds.
std::vector<std::pair<time_t, long>> write_lock(const std::function<bool()> &when_a_wait_ends) {
    hbs_lock_record lock{};
    now = {1000, 250000};
    deadlines.clear();
    is_let_go = when_a_wait_ends;
    EXPECT_EQ(0, writer_lock(&lock, 100, "test", 1));
    std::vector<std::pair<time_t, long>> found;
    for (const timespec &each : deadlines)
        found.emplace_back(each.tv_sec, each.tv_nsec);
    return found;
}

TEST(RwlockClock, WaitsEndTenSecondsAfterEachOther) {
    const auto found = write_lock([] {
        now = {deadlines.back().tv_sec, 900000}; // told of a little late each time
        return deadlines.size() == 3;
    });
    EXPECT_THAT(found, testing::ElementsAre(std::pair(1010, 250000000L), std::pair(1020, 250000000L),
                                            std::pair(1030, 250000000L)));
}

TEST(RwlockClock, ClockThatIsSetForward_EndsOneWait) {
    const auto found = write_lock([] {
        now = {1800000000, 500000};
        return deadlines.size() == 2;
    });
    EXPECT_THAT(found, testing::ElementsAre(std::pair(1010, 250000000L), std::pair(1800000010, 500000000L)));
}

} // namespace rwlock_clock_test
