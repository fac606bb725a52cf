// The counts that hbsctl reads in the file of the daemon's lock.
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "base/counters.h"

namespace {

class Counters : public testing::Test {
  protected:
    int file = open("/tmp", O_TMPFILE | O_RDWR, 0600);
    void TearDown() override { (void)close(file); }
    hbs_counts in_file() {
        hbs_counts counts = {};
        EXPECT_EQ(pread(file, &counts, sizeof counts, 0), static_cast<ssize_t>(sizeof counts));
        return counts;
    }
};

TEST_F(Counters, StandInTheFileFromZero) {
    ASSERT_EQ(pwrite(file, "what was there before, and longer than all of it", 48, 0), 48);
    hbs_count(HBS_COUNT_LOST, 3);
    ASSERT_TRUE(hbs_counters_share(file, "1.2.3"));
    for (uint32_t count : in_file().count)
        EXPECT_EQ(count, 0u);
    hbs_count(HBS_COUNT_LOST, 3);
    hbs_count(HBS_COUNT_DATAGRAMS);
    EXPECT_EQ(in_file().count[HBS_COUNT_LOST], 3u);
    EXPECT_EQ(in_file().count[HBS_COUNT_DATAGRAMS], 1u);
    EXPECT_EQ(in_file().count[HBS_COUNT_WAITS], 0u);
    EXPECT_STREQ(in_file().version, "1.2.3");
    EXPECT_EQ(lseek(file, 0, SEEK_END), static_cast<off_t>(sizeof(hbs_counts)));
}

TEST_F(Counters, NoneIsLostAmongThreads) {
    ASSERT_TRUE(hbs_counters_share(file, "1.2.3"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([] {
            for (int k = 0; k < 10000; k++)
                hbs_count(HBS_COUNT_WAITS);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(in_file().count[HBS_COUNT_WAITS], 40000u);
}

TEST_F(Counters, WithoutRoomNothingIsShared) {
    const int nowhere = open("/dev/null", O_RDWR);
    EXPECT_FALSE(hbs_counters_share(nowhere, "1.2.3"));
    hbs_count(HBS_COUNT_LOST); // and counting goes on
    (void)close(nowhere);
}

} // namespace
