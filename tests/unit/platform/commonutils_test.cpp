// The file helpers: what they leave in the files, also when something fails.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <commonutils.h>

#include "support/gateway.h"

namespace commonutils_test {

class FileHelpers : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        from = directory() + "/from";
        to = directory() + "/to";
    }
    std::string from;
    std::string to;
};

TEST_F(FileHelpers, WriteAddsAtTheEnd) {
    EXPECT_EQ(0, COMMONUTILS_file_write(to.c_str(), "one\n"));
    EXPECT_EQ(0, COMMONUTILS_file_write(to.c_str(), "two 100%s"));
    EXPECT_EQ(0, COMMONUTILS_file_write(to.c_str(), ""));
    EXPECT_EQ("one\ntwo 100%s", read_file(to));
}

TEST_F(FileHelpers, WriteFails) {
    EXPECT_EQ(-1, COMMONUTILS_file_write((directory() + "/missing/to").c_str(), "x"));
    EXPECT_EQ(-1, COMMONUTILS_file_write(nullptr, "x"));
    EXPECT_EQ(-1, COMMONUTILS_file_write(to.c_str(), nullptr));
    fail("COMMONUTILS_file_write", -1);
    EXPECT_EQ(-1, COMMONUTILS_file_write(to.c_str(), "x"));
    EXPECT_FALSE(file_exists(to));
}

TEST_F(FileHelpers, AppendAddsAWholeFile) {
    std::string big(100000, 'b');
    write_file(from, big);
    EXPECT_EQ(0, COMMONUTILS_file_append(from.c_str(), to.c_str()));
    EXPECT_EQ(big, read_file(to));
    write_file(from, "end\n");
    EXPECT_EQ(0, COMMONUTILS_file_append(from.c_str(), to.c_str()));
    EXPECT_EQ(big + "end\n", read_file(to));
    EXPECT_EQ("end\n", read_file(from));
}

TEST_F(FileHelpers, AppendOfAFileToItselfDoublesIt) {
    write_file(to, "abc");
    EXPECT_EQ(0, COMMONUTILS_file_append(to.c_str(), to.c_str()));
    EXPECT_EQ("abcabc", read_file(to));
}

TEST_F(FileHelpers, AppendFails) {
    EXPECT_EQ(-1, COMMONUTILS_file_append(from.c_str(), to.c_str()));
    EXPECT_FALSE(file_exists(to));
    EXPECT_EQ(-1, COMMONUTILS_file_append(directory().c_str(), to.c_str()));
    EXPECT_EQ(-1, COMMONUTILS_file_append(nullptr, to.c_str()));
    write_file(from, "x");
    EXPECT_EQ(-1, COMMONUTILS_file_append(from.c_str(), nullptr));
    EXPECT_EQ(-1, COMMONUTILS_file_append(from.c_str(), (directory() + "/missing/to").c_str()));
    fail("COMMONUTILS_file_append", -1);
    EXPECT_EQ(-1, COMMONUTILS_file_append(from.c_str(), to.c_str()));
    EXPECT_FALSE(file_exists(to));
}

TEST_F(FileHelpers, CopyCreatesAndReplaces) {
    std::string big(100000, 'b');
    write_file(from, big);
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    EXPECT_EQ(big, read_file(to));
    write_file(from, "small");
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    EXPECT_EQ("small", read_file(to));
    EXPECT_EQ("small", read_file(from));
    EXPECT_FALSE(file_exists(to + ".copy"));
}

TEST_F(FileHelpers, CopyKeepsTheModeOfTheOldFile) {
    write_file(from, "new");
    write_file(to, "old");
    chmod(to.c_str(), 0640);
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    struct stat file = {};
    ASSERT_EQ(0, stat(to.c_str(), &file));
    EXPECT_EQ(0640u, file.st_mode & 07777);
}

TEST_F(FileHelpers, CopyNeverShowsHalfAFile) {
    write_file(from, "new");
    write_file(to, "old content");
    int old = open(to.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(old, 0);
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    char text[32] = {};
    EXPECT_EQ(11, read(old, text, sizeof text)) << "who has the old file open keeps the old file";
    EXPECT_STREQ("old content", text);
    close(old);
}

TEST_F(FileHelpers, CopyTakesOverALeftover) {
    write_file(from, "new");
    write_file(to + ".copy", "left by a power cut, and longer than the new text");
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    EXPECT_EQ("new", read_file(to));
    EXPECT_FALSE(file_exists(to + ".copy"));
}

TEST_F(FileHelpers, CopyFailsAndTheOldFileStays) {
    write_file(to, "old");
    EXPECT_EQ(-1, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    EXPECT_EQ(-1, COMMONUTILS_file_copy(directory().c_str(), to.c_str()));
    EXPECT_EQ(-1, COMMONUTILS_file_copy(nullptr, to.c_str()));
    write_file(from, "new");
    EXPECT_EQ(-1, COMMONUTILS_file_copy(from.c_str(), nullptr));
    EXPECT_EQ(-1, COMMONUTILS_file_copy(from.c_str(), directory().c_str()));
    EXPECT_FALSE(file_exists(directory() + ".copy"));
    EXPECT_EQ(-1, COMMONUTILS_file_copy(from.c_str(), (directory() + "/missing/to").c_str()));
    EXPECT_EQ(-1, COMMONUTILS_file_copy(from.c_str(), std::string(5000, 'x').c_str()));
    fail("COMMONUTILS_file_copy", -1);
    EXPECT_EQ(-1, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    EXPECT_EQ("old", read_file(to));
}

TEST_F(FileHelpers, WhatIsNoPlainFileIsRefusedAtOnce) {
    const std::string pipe = directory() + "/pipe", link = directory() + "/link";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    write_file(from, "new");
    write_file(to, "old");
    ASSERT_EQ(0, symlink(to.c_str(), link.c_str()));
    alarm(20); // ends a test that waits for the other end of the pipe
    for (const std::string &odd : {pipe, link}) {
        EXPECT_EQ(-1, COMMONUTILS_file_copy(odd.c_str(), (directory() + "/new").c_str())) << odd;
        EXPECT_EQ(-1, COMMONUTILS_file_append(odd.c_str(), to.c_str())) << odd;
        EXPECT_EQ(-1, COMMONUTILS_file_append(from.c_str(), odd.c_str())) << odd;
        EXPECT_EQ(-1, COMMONUTILS_file_write(odd.c_str(), "x")) << odd;
    }
    alarm(0);
    EXPECT_EQ("old", read_file(to));
    EXPECT_FALSE(file_exists(directory() + "/new"));
}

TEST_F(FileHelpers, NothingGoesIntoAPipeThatIsRead) {
    const std::string pipe = to + ".copy"; // also where a copy is made
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    write_file(from, "new");
    EXPECT_EQ(-1, COMMONUTILS_file_write(pipe.c_str(), "x"));
    EXPECT_EQ(-1, COMMONUTILS_file_append(from.c_str(), pipe.c_str()));
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    char byte = 0;
    EXPECT_EQ(0, read(reader, &byte, 1));
    EXPECT_EQ("new", read_file(to));
    close(reader);
}

TEST_F(FileHelpers, ACopyIsMadeInNobodysFile) {
    const std::string other = directory() + "/other";
    write_file(other, "theirs");
    ASSERT_EQ(0, symlink(other.c_str(), (to + ".copy").c_str()));
    write_file(from, "new");
    EXPECT_EQ(0, COMMONUTILS_file_copy(from.c_str(), to.c_str()));
    EXPECT_EQ("theirs", read_file(other));
    EXPECT_EQ("new", read_file(to));
}

TEST_F(FileHelpers, AFullDiskChangesNothing) {
    write_file(from, std::string(8000, 'n'));
    write_file(to, "old");
    signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit small = {4096, before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    int appended = COMMONUTILS_file_append(from.c_str(), to.c_str());
    int written = COMMONUTILS_file_write(to.c_str(), std::string(8000, 'w').c_str());
    int copied = COMMONUTILS_file_copy(from.c_str(), to.c_str());
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(-1, appended);
    EXPECT_EQ(-1, written);
    EXPECT_EQ(-1, copied);
    EXPECT_EQ("old", read_file(to));
    EXPECT_FALSE(file_exists(to + ".copy"));
}

TEST_F(FileHelpers, CopiesOfManyThreadsAreWhole) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([this, t] {
            std::string source = from + std::to_string(t);
            write_file(source, std::string(20000, static_cast<char>('a' + t)));
            for (int i = 0; i < 50; i++)
                EXPECT_EQ(0, COMMONUTILS_file_copy(source.c_str(), to.c_str()));
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    std::string text = read_file(to);
    ASSERT_EQ(20000u, text.size());
    EXPECT_EQ(std::string(20000, text[0]), text);
}

} // namespace commonutils_test
