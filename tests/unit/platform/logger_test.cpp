// The logger: one line a message, whatever the message holds.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <logger.h>
#include <nvm.h>

#include "support/gateway.h"

namespace logger_test {

void log_text(const std::string &text, uint32_t severity = 9) {
    hbs_log_site site = {severity, 6, 0};
    logger_build_send_log_msg(&site, 0, "%s", text.c_str());
}

class Logger : public GatewayTest {};

TEST_F(Logger, WritesSeverityThenText) {
    hbs_log_site site = {9, 6, 0};
    logger_build_send_log_msg(&site, 0, "HOSTBASE: hbs_add: Client at %d has mac address %s", 7, "aa");
    EXPECT_EQ("info HOSTBASE: hbs_add: Client at 7 has mac address aa\n", read_file(log_path()));
}

TEST_F(Logger, NamesEverySeverity) {
    for (uint32_t severity : {0, 1, 3, 9, 15, 4})
        log_text("x", severity);
    EXPECT_EQ("fatal x\nalert x\nerror x\ninfo x\ndebug x\n4 x\n", read_file(log_path()));
}

TEST_F(Logger, KeepsAMessageOnOneLine) {
    log_text("a\nb\tc\\d\re\x01\x7f\xc3\xa9 \"q\"\n");
    EXPECT_EQ("info a\\nb\\tc\\\\d\\re\\x01\\x7f\\xc3\\xa9 \"q\"\\n\n", read_file(log_path()));
}

TEST_F(Logger, EscapesAByteWhereverItStands) {
    char one[8];
    for (int byte = 1; byte < 256; byte++) {
        const bool plain = byte >= ' ' && byte <= '~' && byte != '\\';
        (void)snprintf(one, sizeof one, plain ? "%c" : "\\x%02x", byte);
        const std::string text = byte == '\n'   ? "\\n"
                                 : byte == '\r' ? "\\r"
                                 : byte == '\t' ? "\\t"
                                 : byte == '\\' ? "\\\\"
                                                : one;
        for (size_t at = 0; at < 19; at++) {
            clear_log();
            log_text(std::string(at, '~') + static_cast<char>(byte) + std::string(18 - at, ' '));
            ASSERT_EQ("info " + std::string(at, '~') + text + std::string(18 - at, ' ') + "\n",
                      read_file(log_path()))
                << "byte " << byte << " at " << at;
        }
    }
}

// The same format and values to the logger and to the C library.
#define EXPECT_LOGGED_AS_PRINTED(...)                                                                        \
    do {                                                                                                     \
        char printed[4096];                                                                                  \
        (void)snprintf(printed, sizeof printed, __VA_ARGS__);                                                \
        clear_log();                                                                                         \
        const hbs_log_site site = {9, 6, 0};                                                                 \
        logger_build_send_log_msg(&site, 0, __VA_ARGS__);                                                    \
        ASSERT_EQ(1u, log_lines().size());                                                                   \
        EXPECT_EQ(printed, log_lines()[0]);                                                                  \
    } while (false)

TEST_F(Logger, WritesWhatPrintfWrites) {
    const std::string text(2000, 'x');
    EXPECT_LOGGED_AS_PRINTED("%d|%d|%d|%d", -1, INT_MIN, INT_MAX, 0);
    EXPECT_LOGGED_AS_PRINTED("%u|%u|%ul|", 4294967295U, 10U, 7U);
    EXPECT_LOGGED_AS_PRINTED("100 %% of %s, %s", "a", "b\n");
    EXPECT_LOGGED_AS_PRINTED("%s %02x:%02x %s %d\n", "first", 10U, 255U, "rest", -7);
    EXPECT_LOGGED_AS_PRINTED("%p %lld %zu %5.2d|%-4s|", reinterpret_cast<void *>(16), 1LL << 40, sizeof(int),
                             3, "l");
    EXPECT_LOGGED_AS_PRINTED("%s%s %x %s", text.c_str(), "", 1U, text.substr(0, 1500).c_str());
}

TEST_F(Logger, TellsOfATextThatIsNotThere) {
    const char *volatile none = nullptr;
    const hbs_log_site site = {9, 6, 0};
    logger_build_send_log_msg(&site, 0, "a %s b", none);
    EXPECT_EQ("info a (null) b\n", read_file(log_path()));
}

TEST_F(Logger, IsReadBackAsItWasLogged) {
    std::string odd = "a\nb\tc\\d\re\x01\x7f\xc3\xa9 \"q\" \\n \\x41\n";
    log_text(odd);
    log_text("plain");
    EXPECT_TRUE(logged(odd));
    EXPECT_EQ(1u, logged_count("plain"));
    EXPECT_FALSE(logged("plai"));
    EXPECT_FALSE(logged("plain\n"));
    EXPECT_EQ(1u, logged_containing("lai"));
    clear_log();
    EXPECT_TRUE(log_lines().empty());
    log_text("");
    ASSERT_EQ(1u, log_entries().size());
    EXPECT_EQ("info", log_entries()[0].severity);
    EXPECT_EQ("", log_entries()[0].text);
}

TEST_F(Logger, CutsNoLongMessage) {
    for (size_t size : {1015u, 1016u, 1017u, 1018u, 1023u, 1024u, 1025u, 100000u}) {
        clear_log();
        std::string text(size - 1, 'x');
        text += '\n';
        log_text(text);
        ASSERT_EQ(1u, log_lines().size());
        EXPECT_EQ(text, log_lines()[0]) << size;
    }
}

TEST_F(Logger, OpensTheFileAgainWhenItWasRemovedOrReplaced) {
    log_text("one");
    unlink(log_path().c_str());
    log_text("two");
    EXPECT_EQ("info two\n", read_file(log_path()));
    write_file(log_path() + ".new", "");
    rename((log_path() + ".new").c_str(), log_path().c_str());
    log_text("three");
    EXPECT_EQ("info three\n", read_file(log_path()));
}

TEST_F(Logger, AppendsToWhatIsThere) {
    write_file(log_path(), "info before\n");
    log_text("after");
    EXPECT_EQ("info before\ninfo after\n", read_file(log_path()));
}

TEST_F(Logger, FallsBackToStandardError) {
    setenv("HBS_HOST_LOG", (directory() + "/missing/log").c_str(), 1);
    testing::internal::CaptureStderr();
    log_text("nowhere else");
    EXPECT_EQ("info nowhere else\n", testing::internal::GetCapturedStderr());
}

TEST_F(Logger, LeavesErrnoAlone) {
    setenv("HBS_HOST_LOG", (directory() + "/missing/log").c_str(), 1);
    unlink(values_path().c_str());
    testing::internal::CaptureStderr();
    errno = 1234;
    log_text("x");
    int after = errno;
    (void)testing::internal::GetCapturedStderr();
    EXPECT_EQ(1234, after);
}

TEST_F(Logger, TakesAsLongAsItIsTold) {
    set("log.delay_ms", 60);
    auto start = std::chrono::steady_clock::now();
    log_text("slow");
    auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::milliseconds(60));
    EXPECT_TRUE(logged("slow"));
}

TEST_F(Logger, DropsWhatIsAboveItsLevel) {
    set("log.level", "error");
    for (uint32_t severity : {0, 1, 3, 9, 15})
        log_text("x", severity);
    EXPECT_EQ("fatal x\nalert x\nerror x\n", read_file(log_path()));
    set("log.level", 9);
    log_text("y", 9);
    log_text("y", 15);
    EXPECT_EQ(1u, logged_count("y"));
}

TEST_F(Logger, TakesEverythingAtALevelThatIsNone) {
    set("log.level", "loud");
    log_text("x", 15);
    EXPECT_TRUE(logged("x"));
}

std::vector<uint32_t> told;

TEST_F(Logger, SaysWhatItTakesAtOnceAndOnEachChange) {
    told.clear();
    logger_register_level_cb([](uint32_t highest) { told.push_back(highest); });
    ASSERT_EQ(std::vector<uint32_t>{UINT32_MAX}, told);
    set("log.level", "alert");
    log_text("dropped"); // any call looks at the values
    set("log.level", "Debug");
    (void)NVM_GetByte(60);
    unset("log.level");
    (void)NVM_GetByte(60);
    logger_register_level_cb(nullptr);
    EXPECT_EQ((std::vector<uint32_t>{UINT32_MAX, 1, 15, UINT32_MAX}), told);
    EXPECT_FALSE(logged("dropped"));
}

TEST_F(Logger, KeepsLinesOfManyThreadsApart) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; t++) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; i++)
                log_text(std::string(100 + 200 * static_cast<size_t>(t), static_cast<char>('a' + t)) + "\n");
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    auto lines = log_lines();
    ASSERT_EQ(1200u, lines.size());
    for (int t = 0; t < 6; t++) {
        std::string text = std::string(100 + 200 * static_cast<size_t>(t), static_cast<char>('a' + t)) + "\n";
        EXPECT_EQ(200, std::count(lines.begin(), lines.end(), text));
    }
}

} // namespace logger_test
