// Files opened under a lock that other programs take as well.
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/locked_file.h"
#include "support/gateway.h"

namespace {

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
    std::thread waiter([&] {
        FILE *stream = hbs_locked_open(path.c_str(), "r", hbs_lock::exclusive);
        if (stream == nullptr)
            return;
        char line[32] = "";
        (void)!fgets(line, sizeof line, stream);
        content = line;
        fclose(stream);
    });
    sleep_milliseconds(100);
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

} // namespace
