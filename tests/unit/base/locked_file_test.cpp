// Files opened under a lock that other programs take as well.
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/locked_file.h"
#include "support/gateway.h"
#include "support/waiting_call.h"

namespace locked_file_test {

class LockedFile : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        path_ = directory() + "/file";
        write_file(path_, "old\n");
    }

    // Another program's try for the file, by name.
    bool others_get(int operation) const {
        const int descriptor = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        const bool got = flock(descriptor, operation | LOCK_NB) == 0;
        close(descriptor);
        return got;
    }

    std::string path_;
};

TEST_F(LockedFile, SharedLetsOthersReadButNotEdit) {
    FILE *stream = hbs_locked_open(path_.c_str(), "r", hbs_lock::shared);
    ASSERT_NE(nullptr, stream);
    EXPECT_TRUE(others_get(LOCK_SH));
    EXPECT_FALSE(others_get(LOCK_EX));
    fclose(stream);
    EXPECT_TRUE(others_get(LOCK_EX));
}

TEST_F(LockedFile, ExclusiveKeepsOthersOut) {
    FILE *stream = hbs_locked_open(path_.c_str(), "r+", hbs_lock::exclusive);
    ASSERT_NE(nullptr, stream);
    EXPECT_FALSE(others_get(LOCK_SH));
    fclose(stream);
    EXPECT_TRUE(others_get(LOCK_SH));
}

TEST_F(LockedFile, IsNullAndTellsWhyWhenItCannotBeOpened) {
    errno = 0;
    EXPECT_EQ(nullptr, hbs_locked_open((directory() + "/missing").c_str(), "r", hbs_lock::shared));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(LockedFile, IsNotInheritedByPrograms) {
    FILE *stream = hbs_locked_open(path_.c_str(), "r", hbs_lock::shared);
    EXPECT_NE(0, fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC);
    fclose(stream);
}

// Locks the file, lets the waiter come, does something to the name, and lets go.
template <typename Action> std::string content_after_waiting(const std::string &path, Action action) {
    const int holder = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(0, flock(holder, LOCK_EX));
    std::string content = "(null)";
    WaitingCall waiter([&] {
        FILE *stream = hbs_locked_open(path.c_str(), "r", hbs_lock::exclusive);
        if (stream == nullptr)
            return;
        char line[32] = "";
        (void)!fgets(line, sizeof line, stream);
        content = line;
        fclose(stream);
    });
    EXPECT_TRUE(waiter.is_waiting());
    action();
    close(holder);
    waiter.join();
    return content;
}

TEST_F(LockedFile, WaitsForTheLock) {
    EXPECT_EQ("changed\n", content_after_waiting(
                               path_, [&] { write_file(path_, "changed\n"); }));
}

TEST_F(LockedFile, OpensAFileThatWasReplacedMeanwhileAgain) {
    EXPECT_EQ("new\n", content_after_waiting(
                           path_,
                           [&] {
                               write_file(path_ + ".other", "new\n");
                               rename((path_ + ".other").c_str(), path_.c_str());
                           }));
}

TEST_F(LockedFile, IsNullWhenTheFileWasRemovedMeanwhile) {
    EXPECT_EQ("(null)", content_after_waiting(
                            path_, [&] { unlink(path_.c_str()); }));
}

// --- what others can do to it ---

// Milliseconds that the call takes.
template <typename Action> long time_of(Action action) {
    timespec start{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    action();
    clock_gettime(CLOCK_MONOTONIC, &end);
    return (end.tv_sec - start.tv_sec) * 1000 + (end.tv_nsec - start.tv_nsec) / 1000000;
}

TEST_F(LockedFile, ThatIsNeverLetGo_IsGivenUpAfterItsPatience) {
    const int holder = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(holder, LOCK_SH)); // all that a reader needs
    const long took = time_of([&] {
        EXPECT_EQ(nullptr, hbs_locked_open(path_.c_str(), "r", hbs_lock::exclusive));
        EXPECT_EQ(ETIMEDOUT, errno);
    });
    EXPECT_GE(took, HBS_LOCK_PATIENCE);
    EXPECT_LT(took, HBS_LOCK_PATIENCE + 20000) << "it has an end, however busy the machine is";
    EXPECT_TRUE(logged("HOSTBASE: " + path_ + " is locked by another process - gave up after 3000 ms"));
    close(holder);
    FILE *stream = hbs_locked_open(path_.c_str(), "r", hbs_lock::exclusive);
    EXPECT_NE(nullptr, stream);
    fclose(stream);
}

TEST_F(LockedFile, ManyThatAreNeverLetGo_ShareOnePatience) {
    constexpr int FILES = 8;
    std::vector<int> holders;
    for (int i = 0; i < FILES; i++) {
        write_file(path_ + std::to_string(i), "");
        holders.push_back(open((path_ + std::to_string(i)).c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(0, flock(holders.back(), LOCK_SH));
    }
    const long took = time_of([&] {
        for (int i = 0; i < FILES; i++)
            EXPECT_EQ(nullptr,
                      hbs_locked_open((path_ + std::to_string(i)).c_str(), "r", hbs_lock::exclusive));
    });
    EXPECT_LT(took, FILES * HBS_LOCK_PATIENCE / 2) << "far from one patience for each";
    // Another thread has a patience of its own, and a short wait is always granted.
    std::string content = "(null)";
    content = content_after_waiting(path_, [] {});
    EXPECT_EQ("old\n", content);
    for (const int holder : holders)
        close(holder);
}

TEST_F(LockedFile, FifoOrLink_IsNullAtOnce) {
    ASSERT_EQ(0, mkfifo((path_ + ".fifo").c_str(), 0666));
    EXPECT_EQ(nullptr, hbs_locked_open((path_ + ".fifo").c_str(), "r+", hbs_lock::exclusive));
    ASSERT_EQ(0, symlink(path_.c_str(), (path_ + ".link").c_str()));
    EXPECT_EQ(nullptr, hbs_locked_open((path_ + ".link").c_str(), "r", hbs_lock::shared));
    EXPECT_EQ(ELOOP, errno);
}

} // namespace locked_file_test
