// Taking a notification file away; copies.
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "files/notice_file.h"
#include "support/gateway.h"
#include "trace.h"

// An allocation that cannot be had is what one of the tests is about.
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

class NoticeFile : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_list_mutex_init();
        path = directory() + "/notices";
        temporary = directory() + "/temporary";
        source = {temporary.c_str(), "copy failed", "open failed"};
        (void)trace::take();
    }

    // "none" for null.
    std::string take() {
        char *text = hbs_notice_take(path.c_str(), &source);
        const std::string result = text != nullptr ? text : "none";
        free(text);
        return result;
    }

    std::string path;
    std::string temporary;
    hbs_notice_source source{};
};

TEST_F(NoticeFile, Take_GivesTheTextAndEmptiesTheFile) {
    write_file(path, "first\nsecond\n");
    EXPECT_EQ(take(), "first\nsecond\n");
    EXPECT_EQ(read_file(path), "");
    EXPECT_EQ(read_file(temporary), "first\nsecond\n");
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(NoticeFile, Take_KeepsTheFileItself) {
    write_file(path, "first\n");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    (void)take();
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(NoticeFile, Take_OfAnEmptyFile_DoesNothing) {
    write_file(path, "");
    EXPECT_EQ(take(), "none");
    EXPECT_FALSE(file_exists(temporary));
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(NoticeFile, Take_WithoutAPath_DoesNothing) {
    EXPECT_EQ(hbs_notice_take(nullptr, &source), nullptr);
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(NoticeFile, Take_OfAMissingFile_IsLogged) {
    EXPECT_EQ(take(), "none");
    EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: error opening notification file(" + path +
                                                    "): No such file or directory"));
}

TEST_F(NoticeFile, Take_ReplacesWhatTheTemporaryFileHeld) {
    write_file(temporary, "a much longer text of an earlier batch");
    write_file(path, "new\n");
    EXPECT_EQ(take(), "new\n");
}

TEST_F(NoticeFile, Take_TurnsNulBytesIntoLineEnds) {
    write_file(path, std::string("\0\0first\nsec\0ond\n", 16));
    EXPECT_EQ(take(), "\n\nfirst\nsec\nond\n");
}

TEST_F(NoticeFile, Take_OfALargeFile_GivesAllOfIt) {
    std::string text;
    while (text.size() < 300000)
        text += "line " + std::to_string(text.size()) + "\n";
    write_file(path, text);
    EXPECT_EQ(take(), text);
}

TEST_F(NoticeFile, Take_WhenTheCopyCannotBeWritten_LeavesTheFileAsItIs) {
    std::filesystem::create_directory(temporary);
    write_file(path, "first\n");
    EXPECT_EQ(take(), "none");
    EXPECT_EQ(read_file(path), "first\n");
    EXPECT_THAT(trace::take(), testing::ElementsAre("log copy failed"));
}

TEST_F(NoticeFile, Take_WhenTheCopyIsNotWhole_LeavesTheFileAsItIs) {
    source.temporary = "/dev/full"; // opens, and takes nothing
    write_file(path, "first\n");
    EXPECT_EQ(take(), "none");
    EXPECT_EQ(read_file(path), "first\n");
    EXPECT_THAT(trace::take(), testing::ElementsAre("log copy failed"));
}

TEST_F(NoticeFile, Take_WhenTheFileCannotBeEmptied_IsLoggedAndGivesTheText) {
    const int sealed = memfd_create("notices", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(write(sealed, "first\n", 6), 6);
    ASSERT_EQ(fcntl(sealed, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    path = "/proc/self/fd/" + std::to_string(sealed);
    EXPECT_EQ(take(), "first\n");
    EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: error truncating notification file(" +
                                                    path + "): Operation not permitted"));
    EXPECT_EQ(close(sealed), 0);
}

// The close of a file that stays full is an event for whoever watches it.
TEST_F(NoticeFile, Take_ThatFails_IsNotTriedAgainAtOnce) {
    std::filesystem::create_directory(temporary);
    write_file(path, "first\n");
    const auto start = std::chrono::steady_clock::now();
    std::thread taker([&] { EXPECT_EQ(take(), "none"); });
    EXPECT_TRUE(wait_until([] { return !trace::take().empty(); }, 900));
    const int server = open(path.c_str(), O_WRONLY | O_APPEND);
    EXPECT_TRUE(wait_until([server] { return flock(server, LOCK_EX | LOCK_NB) == 0; }, 400))
        << "the server is kept waiting";
    taker.join();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(close(server), 0);
}

TEST_F(NoticeFile, Take_WaitsForTheServersLock) {
    write_file(path, "first\n");
    const int server = open(path.c_str(), O_WRONLY | O_APPEND);
    ASSERT_EQ(flock(server, LOCK_EX), 0);
    std::string text;
    std::thread taker([&] { text = take(); });
    sleep_milliseconds(100);
    EXPECT_EQ(read_file(path), "first\n");
    ASSERT_EQ(write(server, "second\n", 7), 7);
    ASSERT_EQ(close(server), 0);
    taker.join();
    EXPECT_EQ(text, "first\nsecond\n");
}

TEST_F(NoticeFile, Read_WithoutATemporaryFile_IsLogged) {
    EXPECT_EQ(hbs_notice_read(&source), nullptr);
    EXPECT_THAT(trace::take(), testing::ElementsAre("log open failed"));
}

TEST_F(NoticeFile, Read_WithoutMemoryForTheText_IsLogged) {
    write_file(temporary, "x");
    if (truncate64(temporary.c_str(), off64_t{1} << 46) != 0)
        GTEST_SKIP() << "this file system has no file of that size";
    EXPECT_EQ(hbs_notice_read(&source), nullptr);
    EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: Fail to malloc buffer for tmp file\n"));
}

TEST(NoticeSources, HaveTheirFilesAndMessages) {
    EXPECT_STREQ(hbs_dhcpv4_notice_source.temporary, "/var/tmp/hbs_watch_file.tmp");
    EXPECT_STREQ(hbs_dhcpv4_notice_source.copy_failed, "HOSTBASE: Failed to copy to dhcp4 watch temp file");
    EXPECT_STREQ(hbs_dhcpv4_notice_source.open_failed, "HOSTBASE: Failed to open dhcp4 watch temp file");
    EXPECT_STREQ(hbs_dhcpv6_notice_source.temporary, "/var/tmp/hbs_watch_file_v6.tmp");
    EXPECT_STREQ(hbs_dhcpv6_notice_source.copy_failed, "HOSTBASE: Failed to copy to dhcp6 watch temp file");
    EXPECT_STREQ(hbs_dhcpv6_notice_source.open_failed, "HOSTBASE: Failed to open dhcp6 watch temp file");
}

// --- hbs_file_copy ---

class FileCopy : public NoticeFile {};

TEST_F(FileCopy, CopiesWhatIsLeftOfTheStream) {
    write_file(path, "0123456789");
    FILE *stream = fopen(path.c_str(), "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fgetc(stream), '0');
    EXPECT_EQ(hbs_file_copy(stream, temporary.c_str()), 0);
    EXPECT_EQ(read_file(temporary), "123456789");
    EXPECT_EQ(fgetc(stream), EOF); // neither rewound nor closed
    EXPECT_EQ(fclose(stream), 0);
}

TEST_F(FileCopy, CopiesFilesLargerThanItsBuffer) {
    const std::string text = std::string(65536, 'a') + std::string(65536, 'b') + "end";
    write_file(path, text);
    FILE *stream = fopen(path.c_str(), "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(hbs_file_copy(stream, temporary.c_str()), 0);
    EXPECT_EQ(read_file(temporary), text);
    EXPECT_EQ(fclose(stream), 0);
}

TEST_F(FileCopy, WithoutAStream_DoesNothing) {
    EXPECT_EQ(hbs_file_copy(nullptr, temporary.c_str()), 0);
    EXPECT_FALSE(file_exists(temporary));
}

TEST_F(FileCopy, ToAPlaceThatCannotBeWritten_GivesZeroAllTheSame) {
    write_file(path, "text");
    FILE *stream = fopen(path.c_str(), "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(hbs_file_copy(stream, (directory() + "/missing/copy").c_str()), 0);
    EXPECT_EQ(fclose(stream), 0);
}

} // namespace
