// What the live table shows of its rows on a screen that is too small, and what its keys do.
#include <atomic>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include "support/gateway.h"
#include "support/hbsctl_daemon.h"
#include "support/query_segment.h"
#include "tools/watch_view.h"

namespace watch_test {

marked_client client_of(uint8_t number, const char *host, uint32_t flags = 0) {
    hbs_client client = {};
    client.mac[0] = 2;
    client.mac[5] = client.ipv4[3] = number;
    client.ipv4[0] = 10;
    client.flags = flags;
    strcpy(client.host, host);
    return {client, mark::none};
}

std::string hosts(const std::vector<marked_client> &rows) {
    std::string text;
    for (const marked_client &row : rows)
        text += std::string(row.client.host) + " ";
    return text;
}

std::vector<std::string> table_of(size_t rows) {
    std::vector<std::string> table = {"NAMES"};
    for (size_t i = 0; i < rows; i++)
        table.push_back("row " + std::to_string(i));
    return table;
}

void press_all(watch_state &state, const std::string &bytes) {
    for (const std::string &key : keys_of(bytes))
        EXPECT_TRUE(press(state, key, 4));
}

TEST(WatchKeys, ComeOneByOne) {
    EXPECT_EQ(keys_of("q\033[A\033[5~/x\033"),
              (std::vector<std::string>{"q", "\033[A", "\033[5~", "/", "x", "\033"}));
    EXPECT_TRUE(keys_of("").empty());
}

TEST(WatchKeys, OfASequenceThatIsCutOffEndWithIt) {
    EXPECT_EQ(keys_of("\033["), (std::vector<std::string>{"\033["}));
}

TEST(WatchKeys, MoveSortAndEnd) {
    watch_state state;
    press_all(state, "jjj\033[B\033[A");
    EXPECT_EQ(state.top, 3u);
    press_all(state, " ");
    EXPECT_EQ(state.top, 7u);
    press_all(state, "\033[5~\033[5~");
    EXPECT_EQ(state.top, 0u);
    press_all(state, "sr");
    EXPECT_EQ(state.which.sort, "ip");
    EXPECT_TRUE(state.which.reverse);
    press_all(state, "ssss");
    EXPECT_EQ(state.which.sort, "network") << "round again";
    EXPECT_FALSE(press(state, "q", 4));
}

TEST(WatchKeys, GoThroughTheStates) {
    watch_state state;
    const auto now = [&] { return std::pair(state.which.online, state.which.offline); };
    press_all(state, "o");
    EXPECT_EQ(now(), std::pair(true, false));
    press_all(state, "o");
    EXPECT_EQ(now(), std::pair(false, true));
    press_all(state, "o");
    EXPECT_EQ(now(), std::pair(false, false));
}

TEST(WatchKeys, TypeASearchInWhichNoKeyMeansAnythingElse) {
    watch_state state;
    press_all(state, "/quosx\x7f\r");
    EXPECT_EQ(state.search, "quos");
    EXPECT_FALSE(state.typing);
    press_all(state, "\033");
    EXPECT_EQ(state.search, "");
}

TEST(WatchKeys, BackspaceTakesAWholeCharacter) {
    watch_state state;
    press_all(state, "/a\xe5\xb1\x85\xc3\xa9\x7f");
    EXPECT_EQ(state.search, "a\xe5\xb1\x85");
    press_all(state, "\x7f");
    EXPECT_EQ(state.search, "a");
    press_all(state, "\xb1\x85\x7f");
    EXPECT_EQ(state.search, "a\xb1") << "bytes that are no character go one by one";
    press_all(state, "\x7f\x7f\x7f");
    EXPECT_EQ(state.search, "");
}

TEST(WatchRows, AreThoseThatAreWantedAndFound) {
    const std::vector<marked_client> all = {client_of(3, "TV", HBS_FLAG_ONLINE), client_of(1, "laptop"),
                                            client_of(2, "laptop2", HBS_FLAG_ONLINE)};
    watch_state state;
    EXPECT_EQ(hosts(wanted_rows(all, state)), "laptop laptop2 TV ");
    state.search = "LAP";
    EXPECT_EQ(hosts(wanted_rows(all, state)), "laptop laptop2 ");
    state.which.online = true;
    EXPECT_EQ(hosts(wanted_rows(all, state)), "laptop2 ");
    state.search = "10.0.0.3";
    EXPECT_EQ(hosts(wanted_rows(all, state)), "TV ");
}

TEST(WatchScreen, TellsHowManyRowsItDoesNotShow) {
    watch_state state;
    std::vector<std::string> lines = fitted("TITLE", table_of(40), state, 10, 200);
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(lines[0], "TITLE");
    EXPECT_EQ(lines[1], "NAMES");
    EXPECT_EQ(lines[8], "row 6");
    EXPECT_EQ(lines[9].rfind("+33 more  ", 0), 0u) << lines[9];
    state.top = 5;
    lines = fitted("TITLE", table_of(40), state, 10, 200);
    EXPECT_EQ(lines[2], "row 5");
    EXPECT_EQ(lines[9].rfind("5 above, +28 more  ", 0), 0u) << lines[9];
}

TEST(WatchScreen, GoesNoFurtherThanTheLastRow) {
    watch_state state = {.top = 999};
    std::vector<std::string> lines = fitted("TITLE", table_of(40), state, 10, 200);
    EXPECT_EQ(state.top, 33u);
    EXPECT_EQ(lines[8], "row 39");
    EXPECT_EQ(lines[9].rfind("33 above, the end  ", 0), 0u) << lines[9];
    lines = fitted("TITLE", table_of(2), state, 10, 200);
    EXPECT_EQ(state.top, 0u);
    EXPECT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[4].rfind("all  ", 0), 0u) << lines[4];
}

TEST(WatchScreen, OfOneLineOrNoRowsHoldsTogether) {
    watch_state state;
    EXPECT_EQ(fitted("TITLE", table_of(0), state, 10, 200).size(), 3u);
    EXPECT_EQ(fitted("TITLE", table_of(5), state, 1, 200)[2], "row 0");
    EXPECT_LE(fitted("TITLE", table_of(5), state, 10, 20).back().size(), 22u) << "cut to the width";
}

// Everything that a child printed on the descriptor until it closed it.
std::string read_to_end(int fd) {
    std::string text;
    char block[4096];
    ssize_t size = 0;
    while ((size = read(fd, block, sizeof block)) > 0)
        text.append(block, static_cast<size_t>(size));
    return text;
}

int status_of_child(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class Watch : public QuerySegment {
  protected:
    silent_daemon daemon;
    int terminal = -1;
    pid_t child = -1;
    std::string text;

    hbs_client *add(unsigned number) {
        hbs_client *client = publish(number, number);
        client->flags = HBS_FLAG_ONLINE;
        snprintf(client->host, sizeof client->host, "host%02u", number);
        client->ipv4[0] = 10;
        client->ipv4[3] = static_cast<uint8_t>(number);
        return client;
    }
    void start(const std::vector<std::string> &words) {
        winsize window = {10, 80, 0, 0};
        child = forkpty(&terminal, nullptr, nullptr, &window);
        if (child == 0) {
            setenv("TERM", "xterm", 1);
            _exit(ctl(words, daemon.path).status);
        }
    }
    // What it prints into a pipe until it ends, which it does well.
    std::string printed(const std::vector<std::string> &words) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        child = fork();
        if (child == 0) {
            dup2(ends[1], STDOUT_FILENO);
            _exit(ctl(words, daemon.path).status);
        }
        close(ends[1]);
        std::string all = read_to_end(ends[0]);
        close(ends[0]);
        EXPECT_EQ(status_of_child(child), exit_ok);
        return all;
    }
    bool read_until(const std::string &wanted) {
        char block[4096];
        ssize_t size = 0;
        while (text.find(wanted) == std::string::npos && (size = read(terminal, block, sizeof block)) > 0)
            text.append(block, static_cast<size_t>(size));
        const bool found = text.find(wanted) != std::string::npos;
        text.clear();
        return found;
    }
    void type(const std::string &keys) {
        EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    int end() {
        char block[4096];
        while (read(terminal, block, sizeof block) > 0) {}
        close(terminal);
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(Watch, ScrollsSearchesAndEndsByKeys) {
    for (unsigned number = 1; number <= 40; number++)
        add(number);
    start({"watch", "--interval", "0.1"});
    ASSERT_TRUE(read_until("+33 more"));
    type("G");
    ASSERT_TRUE(read_until("host40"));
    type("/host07\r");
    ASSERT_TRUE(read_until("1 shown"));
    type("q");
    EXPECT_EQ(end(), exit_ok);
}

TEST_F(Watch, OfADaemonThatIsGoneEndsWithThree) {
    add(1);
    daemon.stop();
    start({"watch", "--interval", "0.1"});
    ASSERT_TRUE(read_until("gw_hostbase is not running"));
    type("q");
    EXPECT_EQ(end(), exit_not_there);
}

TEST_F(Watch, OnADumbTerminalPrintsPlainTables) {
    add(1);
    winsize window = {10, 80, 0, 0};
    child = forkpty(&terminal, nullptr, nullptr, &window);
    if (child == 0) {
        setenv("TERM", "dumb", 1);
        _exit(ctl({"watch", "--count", "1"}, daemon.path).status);
    }
    char block[4096];
    ssize_t size = 0;
    while ((size = read(terminal, block, sizeof block)) > 0)
        text.append(block, static_cast<size_t>(size));
    EXPECT_NE(text.find("host01"), std::string::npos);
    EXPECT_EQ(text.find('\033'), std::string::npos);
    EXPECT_EQ(end(), exit_ok);
}

TEST_F(Watch, IntoAPipePrintsOneTableAfterTheOther) {
    add(1);
    text = printed({"watch", "--interval", "0.1", "--count", "2"});
    size_t tables = 0;
    for (size_t at = 0; (at = text.find("MAC ", at)) != std::string::npos; at++)
        tables++;
    EXPECT_EQ(tables, 2u);
    EXPECT_EQ(text.find('\033'), std::string::npos) << "no terminal, no sequences";
    EXPECT_NE(text.find("1 client, 1 on line"), std::string::npos);
}

TEST_F(Watch, AsJsonPrintsOneDocumentALine) {
    add(1);
    std::istringstream lines(printed({"watch", "--json", "--interval", "0.1", "--count", "2"}));
    size_t count = 0;
    for (std::string line; std::getline(lines, line); count++)
        EXPECT_EQ(nlohmann::json::parse(line)["clients"].size(), 1u);
    EXPECT_EQ(count, 2u);
}

TEST_F(Watch, EndsWhenNobodyReadsIt) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    child = fork();
    if (child == 0) {
        close(ends[0]);
        dup2(ends[1], STDOUT_FILENO);
        _exit(ctl({"watch", "--interval", "0.1"}, daemon.path).status);
    }
    close(ends[1]);
    close(ends[0]);
    EXPECT_EQ(status_of_child(child), exit_ok);
}

TEST_F(Watch, OnATerminalRedrawsMarksChangesAndGivesTheScreenBack) {
    hbs_client *client = add(1);
    winsize window = {10, 60, 0, 0};
    int end[2]; // of the child: who ends takes what the terminal still holds with it
    ASSERT_EQ(pipe(end), 0);
    child = forkpty(&terminal, nullptr, nullptr, &window);
    if (child == 0) {
        close(end[1]);
        unsetenv("NO_COLOR");
        const exit_status status = ctl({"watch", "--interval", "0.1"}, daemon.path).status;
        char none = 0;
        (void)!read(end[0], &none, 1);
        _exit(status);
    }
    const auto read_until = [&](const std::string &wanted) {
        char block[4096];
        ssize_t size = 0;
        while (text.find(wanted) == std::string::npos && (size = read(terminal, block, sizeof block)) > 0)
            text.append(block, static_cast<size_t>(size));
        return text.find(wanted) != std::string::npos;
    };
    ASSERT_TRUE(read_until("\033[?1049h\033[?25l\033[?7l"));
    ASSERT_TRUE(read_until("host01"));
    EXPECT_EQ(text.find("\033[1;33m*"), std::string::npos);
    strcpy(client->host, "renamed");
    ASSERT_TRUE(read_until("\033[1;33m*"));
    ASSERT_TRUE(read_until("renamed"));
    ASSERT_EQ(write(terminal, "\x03", 1), 1); // Ctrl-C
    EXPECT_TRUE(read_until("\033[?7h\033[?25h\033[?1049l"));
    close(end[0]);
    close(end[1]);
    EXPECT_EQ(status_of_child(child), exit_ok);
    close(terminal);
}

TEST_F(Watch, StopsAndResumesLikeAnyProgram) {
    winsize window = {10, 60, 0, 0};
    child = forkpty(&terminal, nullptr, nullptr, &window);
    if (child == 0)
        _exit(ctl({"watch", "--interval", "0.1"}, daemon.path).status);
    const std::string screen = "\033[?1049h";
    std::atomic<int> screens = 0; // that it took, two at most
    std::thread reader([&] {
        char block[4096];
        for (ssize_t size = 0; (size = read(terminal, block, sizeof block)) > 0;) {
            text.append(block, static_cast<size_t>(size));
            screens = text.find(screen) != text.rfind(screen) ? 2 : text.find(screen) != std::string::npos;
        }
    });
    EXPECT_TRUE(wait_until([&] { return screens == 1; }, 60000));
    kill(child, SIGTSTP);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    EXPECT_TRUE(WIFSTOPPED(status));
    kill(child, SIGCONT);
    EXPECT_TRUE(wait_until([&] { return screens == 2; }, 60000));
    kill(child, SIGTERM);
    EXPECT_EQ(status_of_child(child), exit_ok);
    reader.join();
    close(terminal);
}

} // namespace watch_test
