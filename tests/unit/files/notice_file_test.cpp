// Taking a notification file away; copies.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "files/notice_file.h"
#include "support/gateway.h"
#include "support/trace.h"
#include "support/waiting_call.h"

// Stood in for, so that a file that cannot be emptied can be had. Else by another name: a static program
// cannot ask for the next one.
static bool truncation_fails = false;
extern "C" int ftruncate(int descriptor, off_t length) noexcept {
    if (!truncation_fails)
        return truncate(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), length);
    errno = EPERM;
    return -1;
}

// The copy is read by this call alone. Negative: none of this thread's fails.
static thread_local int reads_before_one_fails = -1;
extern "C" ssize_t read(int descriptor, void *bytes, size_t size) {
    if (reads_before_one_fails < 0 || reads_before_one_fails-- != 0)
        return syscall(SYS_read, descriptor, bytes, size);
    errno = EIO;
    return -1;
}

// How often a server writes a line, without the lock, to the file whose copy is being measured.
static int lines_meanwhile = 0;
static std::string file_that_grows, copy_of_it;
extern "C" int fstat(int descriptor, struct stat *status) noexcept {
    std::error_code none;
    if (lines_meanwhile > 0 &&
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none) == copy_of_it) {
        lines_meanwhile--;
        std::ofstream(file_that_grows, std::ios::app) << "meanwhile\n";
    }
    return fstatat(descriptor, "", status, AT_EMPTY_PATH);
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

    // The lines, each with a line end; "none" when none were handed over.
    std::string take() {
        std::string text;
        const auto reader = [](char *line, void *context) {
            *static_cast<std::string *>(context) += std::string(line) + "\n";
        };
        const hbs_notice_taken taken = hbs_notice_take(path.c_str(), &source, reader, &text);
        again = taken.again;
        return taken.lines ? text : "none";
    }

    void grow(int lines) {
        file_that_grows = path;
        copy_of_it = temporary;
        lines_meanwhile = lines;
    }

    std::string path;
    std::string temporary;
    hbs_notice_source source{};
    bool again = false; // what the last take said
};

TEST_F(NoticeFile, Take_GivesTheTextAndEmptiesTheFile) {
    write_file(path, "first\nsecond\n");
    EXPECT_EQ(take(), "first\nsecond\n");
    EXPECT_EQ(read_file(path), "");
    EXPECT_EQ(read_file(temporary), "first\nsecond\n");
    EXPECT_FALSE(again);
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
    EXPECT_FALSE(again);
    EXPECT_FALSE(file_exists(temporary));
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(NoticeFile, Take_WithoutAPath_DoesNothing) {
    const hbs_notice_taken taken = hbs_notice_take(nullptr, &source, nullptr, nullptr);
    EXPECT_FALSE(taken.lines || taken.again);
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(NoticeFile, Take_OfAMissingFile_IsLogged) {
    EXPECT_EQ(take(), "none");
    EXPECT_TRUE(again);
    EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: error opening notification file(" + path +
                                                    "): No such file or directory"));
}

TEST_F(NoticeFile, Take_ReplacesWhatTheTemporaryFileHeld) {
    write_file(temporary, "a much longer text of an earlier batch");
    write_file(path, "new\n");
    EXPECT_EQ(take(), "new\n");
}

TEST_F(NoticeFile, Take_TakesNulBytesAsLineEnds) {
    write_file(path, std::string("\0\0first\nsec\0ond\n", 16));
    EXPECT_EQ(take(), "first\nsec\nond\n");
}

TEST_F(NoticeFile, Take_OfALargeFile_GivesAllOfIt) {
    std::string text;
    while (text.size() < 300000)
        text += "line " + std::to_string(text.size()) + "\n";
    write_file(path, text);
    EXPECT_EQ(take(), text);
}

TEST_F(NoticeFile, Take_CutsWordsAndLinesThatNobodyCouldKeep) {
    const std::string word(HBS_NOTICE_WORD_MAX, 'w');
    write_file(path,
               "ADD " + word + std::string(1 << 20, 'w') + "\tend\n" + std::string(1 << 20, ' ') + "\nnext");
    EXPECT_EQ(take(), "ADD " + word + "\tend\n" + std::string(HBS_NOTICE_LINE_MAX, ' ') + "\nnext\n");
}

TEST_F(NoticeFile, Take_WhenTheCopyCannotBeWritten_LeavesTheFileAsItIs) {
    std::filesystem::create_directory(temporary);
    write_file(path, "first\n");
    EXPECT_EQ(take(), "none");
    EXPECT_TRUE(again);
    EXPECT_EQ(read_file(path), "first\n");
    EXPECT_THAT(trace::take(), testing::ElementsAre("log copy failed"));
}

// A value below `limit` for one of the process's limits, for as long as it lives.
class Limit {
  public:
    Limit(__rlimit_resource which, rlim_t limit) : which_(which) {
        EXPECT_EQ(getrlimit(which, &old_), 0);
        const rlimit low = {limit, old_.rlim_max};
        EXPECT_EQ(setrlimit(which, &low), 0);
    }
    ~Limit() { EXPECT_EQ(setrlimit(which_, &old_), 0); }
    Limit(const Limit &) = delete;
    Limit &operator=(const Limit &) = delete;

  private:
    __rlimit_resource which_;
    rlimit old_{};
};

TEST_F(NoticeFile, Take_WhenTheCopyIsNotWhole_LeavesTheFileAsItIs) {
    signal(SIGXFSZ, SIG_IGN);
    write_file(path, "first\n");
    {
        const Limit size(RLIMIT_FSIZE, 3);
        EXPECT_EQ(take(), "none");
    }
    EXPECT_TRUE(again);
    EXPECT_EQ(read_file(path), "first\n");
    EXPECT_THAT(trace::take(), testing::ElementsAre("log copy failed"));
    EXPECT_EQ(take(), "first\n");
}

// Whatever number of descriptors is left: the file is not emptied before its lines can be read.
TEST_F(NoticeFile, Take_WithTooFewDescriptors_LosesNothing) {
    const int lowest = dup(0);
    ASSERT_EQ(close(lowest), 0);
    for (int left = 0; left < 3; left++) {
        write_file(path, "first\n");
        const std::string text = [&] {
            const Limit descriptors(RLIMIT_NOFILE, static_cast<rlim_t>(lowest + left));
            return take();
        }();
        if (text == "none") {
            EXPECT_TRUE(again) << left;
            EXPECT_EQ(read_file(path), "first\n") << left;
            EXPECT_EQ(take(), "first\n") << left;
        }
        EXPECT_EQ(read_file(path), "") << left;
    }
}

TEST_F(NoticeFile, Take_WhenTheFileCannotBeEmptied_IsLoggedAndGivesTheText) {
    write_file(path, "first\n");
    truncation_fails = true;
    EXPECT_EQ(take(), "first\n");
    truncation_fails = false;
    EXPECT_TRUE(again);
    EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: error truncating notification file(" +
                                                    path + "): Operation not permitted"));
}

// The part of a line that was read by then is no line.
TEST_F(NoticeFile, Take_WhenTheCopyCannotBeRead_IsLoggedAndGivesTheLinesBefore) {
    const std::string first(3000, 'a'), second(3000, 'b');
    for (const int before : {0, 1}) {
        write_file(path, "first " + first + "\nsecond " + second + "\n");
        reads_before_one_fails = before;
        const std::string text = take();
        reads_before_one_fails = -1;
        EXPECT_EQ(text.substr(0, 6), before == 0 ? "" : "first ") << before;
        EXPECT_EQ(text.find("second"), std::string::npos) << before;
        EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: error reading notification file(" +
                                                        path + "): Input/output error"));
    }
}

TEST_F(NoticeFile, Take_OfATooLargeFile_DropsItWithOneLine) {
    write_file(path, "first\n");
    ASSERT_EQ(truncate(path.c_str(), HBS_NOTICE_FILE_MAX + 1), 0);
    EXPECT_EQ(take(), "none");
    EXPECT_FALSE(again);
    EXPECT_EQ(read_file(path), "");
    EXPECT_FALSE(file_exists(temporary));
    EXPECT_THAT(trace::take(), testing::ElementsAre("log HOSTBASE: notification file(" + path +
                                                    ") of 16777217 bytes is dropped: more than 16 MiB"));
}

TEST_F(NoticeFile, Take_OfTheLargestFile_GivesItsLines) {
    write_file(path, "first\n");
    ASSERT_EQ(truncate(path.c_str(), HBS_NOTICE_FILE_MAX), 0);
    EXPECT_EQ(take(), "first\n");
}

TEST_F(NoticeFile, Take_OfAFifoOrALink_CannotOpenIt) {
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    EXPECT_EQ(take(), "none");
    EXPECT_TRUE(again);
    std::filesystem::remove(path);
    write_file(directory() + "/victim", "precious\n");
    std::filesystem::create_symlink(directory() + "/victim", path);
    EXPECT_EQ(take(), "none");
    EXPECT_EQ(read_file(directory() + "/victim"), "precious\n");
}

// A FIFO there held the thread, and with it the server's lock.
TEST_F(NoticeFile, Take_WithAFifoOrALinkInTheCopysPlace_ReplacesIt) {
    ASSERT_EQ(mkfifo(temporary.c_str(), 0666), 0);
    write_file(path, "first\n");
    EXPECT_EQ(take(), "first\n");
    std::filesystem::remove(temporary);
    write_file(directory() + "/victim", "precious\n");
    std::filesystem::create_symlink(directory() + "/victim", temporary);
    write_file(path, "second\n");
    EXPECT_EQ(take(), "second\n");
    EXPECT_EQ(read_file(directory() + "/victim"), "precious\n");
}

TEST_F(NoticeFile, Take_OfAFileWhoseLockIsNeverLetGo_LeavesIt) {
    write_file(path, "first\n");
    const int other = open(path.c_str(), O_RDONLY);
    ASSERT_EQ(flock(other, LOCK_SH), 0);
    EXPECT_EQ(take(), "none");
    EXPECT_TRUE(again);
    ASSERT_EQ(close(other), 0);
    EXPECT_EQ(take(), "first\n");
}

TEST_F(NoticeFile, Take_OfAFileThatGrowsMeanwhile_GivesAllOfIt) {
    write_file(path, "first\n");
    grow(2);
    EXPECT_EQ(take(), "first\nmeanwhile\nmeanwhile\n");
    EXPECT_FALSE(again);
    EXPECT_EQ(lines_meanwhile, 0);
    EXPECT_EQ(read_file(path), "");
    EXPECT_TRUE(trace::take().empty());
}

TEST_F(NoticeFile, Take_OfAFileThatDoesNotStopGrowing_LeavesIt) {
    write_file(path, "first\n");
    grow(1000);
    EXPECT_EQ(take(), "none");
    EXPECT_TRUE(again);
    EXPECT_GT(lines_meanwhile, 900);
    lines_meanwhile = 0;
    EXPECT_EQ(read_file(path).find("first\nmeanwhile\n"), 0u);
    EXPECT_THAT(trace::take(), testing::ElementsAre("log copy failed"));
}

TEST_F(NoticeFile, Take_WaitsForTheServersLock) {
    write_file(path, "first\n");
    const int server = open(path.c_str(), O_WRONLY | O_APPEND);
    ASSERT_EQ(flock(server, LOCK_EX), 0);
    std::string text;
    WaitingCall taker([&] { text = take(); });
    EXPECT_TRUE(taker.is_waiting());
    EXPECT_EQ(read_file(path), "first\n");
    ASSERT_EQ(write(server, "second\n", 7), 7);
    ASSERT_EQ(close(server), 0);
    taker.join();
    EXPECT_EQ(text, "first\nsecond\n");
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
