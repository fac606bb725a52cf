// Files that are replaced whole: what they were they stay, and a failure leaves nothing behind.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

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

// What a stranger put into a directory like /tmp.
class AnybodysPlace : public WholeFile {
  protected:
    static constexpr uid_t stranger = 65534;
    AnybodysPlace() {
        EXPECT_EQ(chmod(place.c_str(), 01777), 0);
        fs::create_directory(inner);
        std::ofstream(target) << "as before";
    }
    void SetUp() override {
        if (lchown(target.c_str(), stranger, stranger) != 0)
            GTEST_SKIP() << "one who cannot make strangers' files";
        ASSERT_EQ(lchown(target.c_str(), 0, 0), 0);
    }
    static void give_away(const std::string &path) { ASSERT_EQ(lchown(path.c_str(), stranger, stranger), 0); }
    static uid_t owner_of(const std::string &path) {
        struct stat there = {};
        EXPECT_EQ(lstat(path.c_str(), &there), 0);
        return there.st_uid;
    }
    static std::string failure_of(const std::string &path) {
        try {
            write_whole_file(path, "mine");
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "none";
    }
    const std::string inner = place + "/inner", target = inner + "/target";
    const std::string refused = path + " cannot be written: Permission denied";
};

TEST_F(AnybodysPlace, AStrangersLinkIsNotFollowed) {
    const std::string own = place + "/own";
    fs::create_symlink(target, path);
    fs::create_symlink(path, own);
    give_away(path);
    EXPECT_EQ(failure_of(path), refused);
    EXPECT_EQ(failure_of(own), own + " cannot be written: Permission denied") << "one link later";
    EXPECT_EQ(read_file(target), "as before");
    fs::remove(target);
    EXPECT_EQ(failure_of(path), refused) << "whether it leads anywhere or not";
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(AnybodysPlace, AStrangersFileIsLeftToHim) {
    std::ofstream(path) << "his";
    give_away(path);
    EXPECT_EQ(failure_of(path), refused);
    EXPECT_EQ(read_file(path), "his");
    EXPECT_EQ(files(), 2u);
    ASSERT_EQ(chown(place.c_str(), stranger, stranger), 0);
    EXPECT_EQ(failure_of(path), "none") << "the directory's owner is no stranger there";
    EXPECT_EQ(owner_of(path), stranger);
    ASSERT_EQ(chown(place.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(place.c_str(), 0777), 0);
    EXPECT_EQ(failure_of(path), "none") << "where anybody may rename, ownership tells nothing";
}

TEST_F(AnybodysPlace, OnesOwnLinkAndFileAreReplacedThere) {
    fs::create_symlink("inner/target", path);
    EXPECT_EQ(failure_of(path), "none");
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(read_file(target), "mine");
    fs::remove(path);
    EXPECT_EQ(failure_of(path), "none");
    EXPECT_EQ(failure_of(path), "none");
    EXPECT_EQ(read_file(path), "mine");
}

TEST_F(AnybodysPlace, OfOthersIsReadWhatASensibleOneWrote) {
    std::ofstream(path) << "leases";
    EXPECT_EQ(text_of_others(path), "leases");
    fs::create_symlink("file", place + "/own");
    EXPECT_EQ(text_of_others(place + "/own"), "leases");
    give_away(path);
    EXPECT_FALSE(text_of_others(path)) << "a stranger's";
    EXPECT_FALSE(text_of_others(place + "/own"));
    EXPECT_EQ(text_of_named(path), "leases") << "it is wanted";
    EXPECT_EQ(file_text(path), "leases") << "which was named, so it is wanted";
    ASSERT_EQ(chmod(place.c_str(), 0755), 0);
    EXPECT_EQ(text_of_others(path), "leases") << "where not anybody makes files";
    ASSERT_EQ(chmod(place.c_str(), 01777), 0);
    give_away(place);
    EXPECT_EQ(text_of_others(path), "leases") << "the directory's owner's";
    ASSERT_EQ(lchown(path.c_str(), 0, 0), 0);
    EXPECT_EQ(text_of_others(path), "leases") << "root's";
}

TEST_F(AnybodysPlace, OfOthersIsReadNoLinkOfAStranger) {
    fs::create_symlink(target, path);
    EXPECT_EQ(text_of_others(path), "as before");
    give_away(path);
    EXPECT_FALSE(text_of_others(path));
}

TEST_F(WholeFile, OfOthersIsReadWhatIsPlainAndOfSensibleSize) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (const std::string &each : {path, place, std::string("/dev/zero")}) {
        EXPECT_FALSE(text_of_others(each)) << each;
        EXPECT_FALSE(text_of_named(each)) << each;
    }
    fs::remove(path);
    EXPECT_FALSE(text_of_others(path));
    std::ofstream(path) << "";
    EXPECT_EQ(text_of_others(path), "");
    fs::resize_file(path, 64 << 20);
    EXPECT_EQ(text_of_others(path)->size(), 64u << 20);
    fs::resize_file(path, (64 << 20) + 1);
    EXPECT_FALSE(text_of_others(path));
}

TEST_F(WholeFile, LinksInACircleAreToldOf) {
    fs::create_symlink("file", path);
    EXPECT_THROW(write_whole_file(path, "x"), std::runtime_error);
    EXPECT_TRUE(fs::is_symlink(path));
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
