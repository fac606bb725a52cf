// Files that are replaced whole: what they were they stay, and a failure leaves nothing behind.
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "support/gateway.h"
#include "tools/whole_file.h"

namespace whole_file_test {

namespace fs = std::filesystem;

class WholeFile : public testing::Test {
  protected:
    WholeFile() { fs::create_directory(place); }
    ~WholeFile() override { fs::remove_all(place); }

    static mode_t mode_of(const std::string &path) {
        struct stat there = {};
        EXPECT_EQ(stat(path.c_str(), &there), 0);
        return there.st_mode & 07777;
    }
    size_t files() const { return static_cast<size_t>(std::distance(fs::directory_iterator(place), {})); }

    const std::string place = "/tmp/hbsctl_whole_file", path = place + "/file";
};

TEST_F(WholeFile, IsReplacedOrLeftAlone) {
    write_whole_file(path, "one");
    write_whole_file(path, "two");
    EXPECT_EQ(read_whole_file(path), "two");
    EXPECT_EQ(files(), 1u);
    fs::remove(path);
    EXPECT_THROW((void)read_whole_file(path), std::runtime_error);
    EXPECT_FALSE(file_text(path));
    EXPECT_FALSE(file_text(place)) << "a directory";
    EXPECT_THROW(write_whole_file("/nowhere/file", "x"), std::runtime_error);
}

TEST_F(WholeFile, KeepsItsMode) {
    const mode_t before = umask(022);
    write_whole_file(path, "one");
    EXPECT_EQ(mode_of(path), 0644u);
    fs::permissions(path, fs::perms(0600));
    write_whole_file(path, "two");
    EXPECT_EQ(mode_of(path), 0600u);
    umask(before);
}

TEST_F(WholeFile, BehindALinkIsReplacedThere) {
    const std::string link = place + "/link", dangling = place + "/dangling";
    write_whole_file(path, "one");
    fs::create_symlink("file", link);
    write_whole_file(link, "two");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(read_file(path), "two");
    fs::create_symlink("new", dangling);
    write_whole_file(dangling, "three");
    EXPECT_TRUE(fs::is_symlink(dangling));
    EXPECT_EQ(read_file(place + "/new"), "three");
}

TEST_F(WholeFile, IsWrittenToWhenItIsNoPlainOne) {
    write_whole_file("/dev/null", "x");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(WholeFile, AFailureLeavesTheOldOneAndNothingBesides) {
    write_whole_file(path, "old");
    rlimit usual = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    const rlimit little = {1000, usual.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    EXPECT_THROW(write_whole_file(path, std::string(5000, 'x')), std::runtime_error);
    EXPECT_THROW(write_whole_file(place + "/other", std::string(5000, 'x')), std::runtime_error);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
    EXPECT_EQ(read_file(path), "old");
    EXPECT_EQ(files(), 1u);
}

} // namespace whole_file_test
