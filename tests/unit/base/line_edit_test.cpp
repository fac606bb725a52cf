// Line edits: content, atomicity, locks, failures, and that the content is what the commands leave.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/line_edit.h"
#include "support/gateway.h"
#include "support/waiting_call.h"

namespace line_edit_test {

class LineEdit : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        path_ = directory() + "/file.txt";
    }

    void put(const std::string &text) { write_file(path_, text); }
    std::string content() const { return read_file(path_); }
    const char *path() const { return path_.c_str(); }
    std::string leftover() const { return path_ + ".hbs-new"; }

    ino_t inode() const {
        struct stat status = {};
        stat(path_.c_str(), &status);
        return status.st_ino;
    }

    mode_t mode() const {
        struct stat status = {};
        stat(path_.c_str(), &status);
        return status.st_mode & 07777;
    }

    std::string path_;
};

TEST_F(LineEdit, AppendAddsALine) {
    put("one\n");
    EXPECT_EQ(0, hbs_lines_append(path(), "two"));
    EXPECT_EQ("one\ntwo\n", content());
}

TEST_F(LineEdit, AppendCreatesAMissingFile) {
    umask(0);
    EXPECT_EQ(0, hbs_lines_append(path(), "one"));
    EXPECT_EQ("one\n", content());
    EXPECT_EQ(0600u, mode()); // what others cannot open they cannot lock
}

TEST_F(LineEdit, AppendEndsALastLineFirst) {
    put("one\nhalf");
    EXPECT_EQ(0, hbs_lines_append(path(), "two"));
    EXPECT_EQ("one\nhalf\ntwo\n", content());
}

TEST_F(LineEdit, AppendTakesTheTextAsItIs) {
    EXPECT_EQ(0, hbs_lines_append(path(), "a 'b' \"c\" $(d) \\ & / ; \xc3\xbc \x01"));
    EXPECT_EQ("a 'b' \"c\" $(d) \\ & / ; \xc3\xbc \x01\n", content());
}

TEST_F(LineEdit, ReplaceChangesEveryEqualLine) {
    put("a\nb\na\nab\n");
    EXPECT_EQ(0, hbs_lines_replace(path(), "a", "x&\\1/y"));
    EXPECT_EQ("x&\\1/y\nb\nx&\\1/y\nab\n", content());
}

TEST_F(LineEdit, ReplaceTakesTheOldLineAsTextNotAsAPattern) {
    put("a.c\nabc\n[x]*\n");
    EXPECT_EQ(0, hbs_lines_replace(path(), "a.c", "1"));
    EXPECT_EQ(0, hbs_lines_replace(path(), "[x]*", "2"));
    EXPECT_EQ("1\nabc\n2\n", content());
}

TEST_F(LineEdit, ReplaceKeepsALastLineWithoutANewline) {
    put("a\nb");
    EXPECT_EQ(0, hbs_lines_replace(path(), "b", "c"));
    EXPECT_EQ("a\nc", content());
}

TEST_F(LineEdit, DeletePrefixRemovesLinesThatBeginSo) {
    put("ab\nabc\nxab\na\n");
    EXPECT_EQ(0, hbs_lines_delete_prefix(path(), "ab"));
    EXPECT_EQ("xab\na\n", content());
}

TEST_F(LineEdit, DeleteContainingRemovesLinesWithTheText) {
    put("ab\nx.y\nabc\nxay\nx.y end");
    size_t deleted = 9;
    EXPECT_EQ(0, hbs_lines_delete_containing(path(), "x.y", &deleted));
    EXPECT_EQ("ab\nabc\nxay\n", content());
    EXPECT_EQ(2u, deleted);
    EXPECT_EQ(0, hbs_lines_delete_containing(path(), "x.y", &deleted));
    EXPECT_EQ(0u, deleted);
}

TEST_F(LineEdit, LeavesNulBytesAndLongLinesOfOthersAlone) {
    const std::string long_line(1 << 20, 'x');
    const std::string odd("nul\0inside\n", 11);
    put(odd + long_line + "\ndrop me\n" + long_line);
    EXPECT_EQ(0, hbs_lines_delete_prefix(path(), "drop"));
    EXPECT_EQ(odd + long_line + "\n" + long_line, content());
}

TEST_F(LineEdit, EditSeesEveryLineWithItsLength) {
    put(std::string("one\n\ntwo\0x\nlast", 15));
    std::vector<std::string> seen;
    const auto collect = [](const char *line, size_t length, const char **, void *context) {
        static_cast<std::vector<std::string> *>(context)->emplace_back(line, length);
        return hbs_line_action::keep;
    };
    EXPECT_EQ(0, hbs_lines_edit(path(), collect, &seen));
    EXPECT_EQ((std::vector<std::string>{"one", "", std::string("two\0x", 5), "last"}), seen);
}

TEST_F(LineEdit, EditKeepsDropsAndReplaces) {
    put("keep\ndrop\nchange\n");
    const auto edit = [](const char *line, size_t, const char **replacement, void *) {
        *replacement = "changed";
        return line[0] == 'k' ? hbs_line_action::keep
                              : (line[0] == 'd' ? hbs_line_action::drop : hbs_line_action::replace);
    };
    EXPECT_EQ(0, hbs_lines_edit(path(), edit, nullptr));
    EXPECT_EQ("keep\nchanged\n", content());
}

TEST_F(LineEdit, MayLeaveAnEmptyFile) {
    put("a\na\n");
    EXPECT_EQ(0, hbs_lines_delete_prefix(path(), "a"));
    EXPECT_TRUE(file_exists(path_));
    EXPECT_EQ("", content());
}

TEST_F(LineEdit, DoesNotTouchTheFileWhenThereIsNothingToChange) {
    put("a\n");
    const ino_t before = inode();
    EXPECT_EQ(0, hbs_lines_replace(path(), "b", "c"));
    EXPECT_EQ(0, hbs_lines_delete_prefix(path(), "b"));
    EXPECT_EQ(before, inode());
}

TEST_F(LineEdit, ReplacesTheFileWhole) {
    put("a\n");
    const int reader = open(path(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(0, hbs_lines_replace(path(), "a", "b"));
    char old[4] = "";
    EXPECT_EQ(2, read(reader, old, sizeof old)); // who has the old file open still sees all of it
    EXPECT_STREQ("a\n", old);
    close(reader);
    EXPECT_EQ("b\n", content());
    EXPECT_FALSE(file_exists(leftover()));
}

TEST_F(LineEdit, KeepsTheModeOfTheFile) {
    put("a\n");
    chmod(path(), 0751);
    EXPECT_EQ(0, hbs_lines_replace(path(), "a", "b"));
    EXPECT_EQ(0751u, mode());
    EXPECT_EQ(0, hbs_file_replace(path(), "c\n", 2));
    EXPECT_EQ(0751u, mode());
}

TEST_F(LineEdit, OfAMissingFileFailsWithAMessage) {
    EXPECT_EQ(-1, hbs_lines_replace(path(), "a", "b"));
    EXPECT_EQ(-1, hbs_lines_delete_prefix(path(), "a"));
    EXPECT_EQ(-1, hbs_lines_delete_containing(path(), "a", nullptr));
    EXPECT_FALSE(file_exists(path_));
    EXPECT_EQ(3u, logged_count("HOSTBASE: can't edit " + path_ + " (error 2)"));
}

TEST_F(LineEdit, ClearsWhatAPowerCutLeft) {
    put("a\n");
    write_file(leftover(), "half of it");
    EXPECT_EQ(0, hbs_lines_replace(path(), "nothing", "b"));
    EXPECT_FALSE(file_exists(leftover()));
    write_file(leftover(), "half of it");
    hbs_file_clear_leftover(path());
    EXPECT_FALSE(file_exists(leftover()));
    EXPECT_EQ("a\n", content());
}

TEST_F(LineEdit, FollowsNoLinkThatStandsBeside) {
    put("a\n");
    write_file(directory() + "/victim", "precious");
    ASSERT_EQ(0, symlink((directory() + "/victim").c_str(), leftover().c_str()));
    EXPECT_EQ(0, hbs_lines_replace(path(), "a", "b"));
    EXPECT_EQ("precious", read_file(directory() + "/victim"));
    EXPECT_EQ("b\n", content());
}

TEST_F(LineEdit, LeavesTheOldFileWhenTheDiskIsFull) {
    put(std::string(3000, 'a') + "\nb\n");
    const std::string before = content();
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {1000, RLIM_INFINITY};
    const rlimit whole = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &small);
    const int edited = hbs_lines_replace(path(), "b", "c");
    const int appended = hbs_lines_append(path(), "d");
    const int replaced = hbs_file_replace(path(), before.data(), before.size());
    setrlimit(RLIMIT_FSIZE, &whole);
    EXPECT_EQ(-1, edited);
    EXPECT_EQ(-1, appended);
    EXPECT_EQ(-1, replaced);
    EXPECT_EQ(before, content());
    EXPECT_FALSE(file_exists(leftover()));
    EXPECT_EQ(3u, logged_count("HOSTBASE: can't replace " + path_ + " (error 27)"));
}

TEST_F(LineEdit, OfAnUnusableNameFails) {
    const std::string name = "/" + std::string(5000, 'x');
    EXPECT_EQ(-1, hbs_lines_append(name.c_str(), "a"));
    EXPECT_EQ(-1, hbs_lines_append("/no/such/directory/file", "a"));
    EXPECT_TRUE(logged("HOSTBASE: can't replace /no/such/directory/file (error 2)"));
}

TEST_F(LineEdit, OfADirectoryFails) {
    EXPECT_EQ(-1, hbs_lines_replace(directory().c_str(), "a", "b"));
    EXPECT_EQ(-1, hbs_file_replace(directory().c_str(), "b", 1));
    EXPECT_TRUE(std::filesystem::is_directory(directory()));
}

TEST_F(LineEdit, WaitsForAReaderThatHoldsTheFile) {
    put("a\n");
    const int reader = open(path(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(reader, LOCK_SH));
    WaitingCall editor([&] { EXPECT_EQ(0, hbs_lines_replace(path(), "a", "b")); });
    EXPECT_TRUE(editor.is_waiting());
    EXPECT_EQ("a\n", content());
    close(reader);
    editor.join();
    EXPECT_EQ("b\n", content());
}

TEST_F(LineEdit, LosesNoLineOfConcurrentEditors) {
    put("");
    constexpr int each = 40;
    const auto append = [&](char name) {
        for (int i = 0; i < each; ++i)
            EXPECT_EQ(0, hbs_lines_append(path(), std::string(1, name).c_str()));
    };
    std::thread one(append, 'a');
    std::thread two(append, 'b');
    one.join();
    two.join();
    EXPECT_EQ(2u * each, read_lines(path_).size());
}

TEST_F(LineEdit, FileReplaceWritesBytesAsTheyAre) {
    const std::string bytes("a\0b\nno newline", 14);
    EXPECT_EQ(0, hbs_file_replace(path(), bytes.data(), bytes.size()));
    EXPECT_EQ(bytes, content());
    EXPECT_EQ(0, hbs_file_replace(path(), "", 0));
    EXPECT_EQ("", content());
}

// A killed editor leaves the old content or the new one, and nothing that the next edit does not clear.
TEST_F(LineEdit, LeavesTheOldOrTheNewContentWhenKilled) {
    const std::string filler(20000, 'x');
    put(filler + "\n0\n");
    for (int round = 0; round < 40; ++round) {
        const pid_t child = fork();
        ASSERT_NE(-1, child);
        if (child == 0) {
            for (int i = 0;; ++i)
                (void)hbs_lines_replace(path(), std::to_string(i % 2).c_str(),
                                        std::to_string((i + 1) % 2).c_str());
        }
        usleep(static_cast<useconds_t>(500 + 317 * round));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const std::string now = content();
        ASSERT_TRUE(now == filler + "\n0\n" || now == filler + "\n1\n") << "round " << round;
        put(filler + "\n0\n");
    }
    EXPECT_EQ(0, hbs_lines_append(path(), "end"));
    EXPECT_FALSE(file_exists(leftover()));
}

// --- the same content as the command ---
struct CommandCase {
    const char *name;
    std::string before;
    std::string command; // FILE stands for the file
    std::function<int(const char *path)> edit;
};

std::ostream &operator<<(std::ostream &out, const CommandCase &c) {
    return out << c.command;
}

class LineEditCommand : public LineEdit, public testing::WithParamInterface<CommandCase> {};

TEST_P(LineEditCommand, LeavesWhatTheCommandLeaves) {
    put(GetParam().before);
    const std::string copy = directory() + "/copy.txt";
    write_file(copy, GetParam().before);
    std::string command = GetParam().command;
    for (size_t at; (at = command.find("FILE")) != std::string::npos;)
        command.replace(at, 4, copy);
    ASSERT_EQ(0, system(command.c_str())) << command;
    EXPECT_EQ(0, GetParam().edit(path()));
    EXPECT_EQ(read_file(copy), content());
}

const char *const LINES = "02:aa:00:00:00:11 1 61 62 00000001 63 64 0 65\n"
                          "02:aa:00:00:00:12 1 61 62 00000001 63 64 0 65\n"
                          "version\n"
                          "02:aa:00:00:00:11 1 61 62 00000001 63 64 0 65\n";

INSTANTIATE_TEST_SUITE_P(
    Commands, LineEditCommand,
    testing::Values(CommandCase{"append", LINES, "echo 'a b c' >> FILE",
                                [](auto p) { return hbs_lines_append(p, "a b c"); }},
                    CommandCase{"append_to_nothing", "", "echo 'a b c' >> FILE",
                                [](auto p) { return hbs_lines_append(p, "a b c"); }},
                    CommandCase{"replace", LINES, "sed -i 's/version/1 2 3/g' FILE",
                                [](auto p) { return hbs_lines_replace(p, "version", "1 2 3"); }},
                    CommandCase{"replace_twice", LINES,
                                "sed -i 's/02:aa:00:00:00:11 1 61 62 00000001 63 64 0 65/x/g' FILE",
                                [](auto p) {
                                    return hbs_lines_replace(
                                        p, "02:aa:00:00:00:11 1 61 62 00000001 63 64 0 65", "x");
                                }},
                    CommandCase{"replace_absent", LINES, "sed -i 's/absent/x/g' FILE",
                                [](auto p) { return hbs_lines_replace(p, "absent", "x"); }},
                    CommandCase{"delete_prefix", LINES,
                                "sed '/^02:aa:00:00:00:11/d' FILE > FILE.2; cp FILE.2 FILE",
                                [](auto p) { return hbs_lines_delete_prefix(p, "02:aa:00:00:00:11"); }},
                    CommandCase{"delete_containing", LINES, "sed -i '/00:12 1/d' FILE",
                                [](auto p) { return hbs_lines_delete_containing(p, "00:12 1", nullptr); }},
                    CommandCase{"delete_last_without_newline", "a\nb", "sed -i '/b/d' FILE",
                                [](auto p) { return hbs_lines_delete_containing(p, "b", nullptr); }},
                    CommandCase{"replace_last_without_newline", "a\nb", "sed -i 's/b/c/g' FILE",
                                [](auto p) { return hbs_lines_replace(p, "b", "c"); }}),
    [](const auto &instance) { return instance.param.name; });

// --- in place ---

TEST_F(LineEdit, InPlace_KeepsTheFileAndItsMode) {
    put("one\n");
    ASSERT_EQ(0, chmod(path(), 0640));
    const ino_t before = inode();
    EXPECT_EQ(0, hbs_line_append_in_place(path(), "two", 0755));
    EXPECT_EQ("one\ntwo\n", content());
    EXPECT_EQ(before, inode());
    EXPECT_EQ(0640u, mode());
    EXPECT_FALSE(file_exists(leftover()));
}

TEST_F(LineEdit, InPlace_MakesAMissingFile) {
    umask(022);
    EXPECT_EQ(0, hbs_line_append_in_place(path(), "one", 0755));
    EXPECT_EQ("one\n", content());
    EXPECT_EQ(0755u, mode());
}

TEST_F(LineEdit, InPlace_EndsATornLastLineFirst) {
    put("one\nha");
    EXPECT_EQ(1, hbs_file_tail(path()));
    EXPECT_EQ(0, hbs_line_append_in_place(path(), "two", 0755));
    EXPECT_EQ("one\nha\ntwo\n", content());
    EXPECT_EQ(0, hbs_file_tail(path()));
}

// Who waits for the lock with the file open goes on with the file that bears the name.
TEST_F(LineEdit, InPlace_LeavesTheFileToWhoWaitsForIt) {
    put("one\n");
    const int server = open(path(), O_RDWR | O_APPEND | O_CLOEXEC);
    EXPECT_EQ(0, hbs_line_append_in_place(path(), "two", 0755));
    EXPECT_EQ(0, flock(server, LOCK_EX | LOCK_NB));
    EXPECT_EQ(6, write(server, "three\n", 6));
    close(server);
    EXPECT_EQ("one\ntwo\nthree\n", content());
}

TEST_F(LineEdit, InPlace_TakesBackWhatIsNotWhole) {
    put("one\nha");
    rlimit old = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &old));
    const rlimit small = {10, old.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    const int result = hbs_line_append_in_place(path(), "a longer line", 0755);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &old));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("one\nha", content());
}

TEST_F(LineEdit, InPlace_OfWhatIsNoFile_IsLogged) {
    ASSERT_EQ(0, mkfifo(path(), 0666));
    EXPECT_EQ(-1, hbs_line_append_in_place(path(), "one", 0755));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: can't edit " + path_));
    EXPECT_EQ(-1, hbs_file_tail(path()));
    EXPECT_EQ(0, hbs_file_tail((path_ + ".missing").c_str()));
}

TEST_F(LineEdit, MakePrivate_TakesTheOthersAccessAway) {
    hbs_file_make_private(path()); // missing: nothing happens
    EXPECT_FALSE(file_exists(path_));
    put("one\n");
    hbs_file_make_private(path());
    EXPECT_EQ(0600u, mode());
    EXPECT_EQ("one\n", content());
}

} // namespace line_edit_test
