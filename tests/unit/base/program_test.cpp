// External programs: how they are run and what is taken from them.
#include <csignal>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "base/program.h"
#include "support/gateway.h"

namespace program_test {

class Program : public GatewayTest {
  protected:
    std::string output() const { return directory() + "/output"; }

    static int run(std::initializer_list<const char *> words, int descriptor = -1) {
        std::vector<const char *> argv(words);
        argv.push_back(nullptr);
        return hbs_program_run(argv.data(), descriptor);
    }

    // Runs it with its output in a new file.
    int run_to_file(std::initializer_list<const char *> words) {
        const int descriptor = open(output().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int status = run(words, descriptor);
        EXPECT_EQ(0, close(descriptor));
        return status;
    }

    int read(std::initializer_list<const char *> words, std::string &text, int size) {
        std::vector<const char *> argv(words);
        argv.push_back(nullptr);
        std::string buffer(static_cast<size_t>(size) + 8, '#');
        const int status = hbs_program_read(argv.data(), buffer.data(), size);
        EXPECT_EQ("########", buffer.substr(static_cast<size_t>(size))) << "wrote past the end";
        text = buffer.c_str();
        return status;
    }
};

TEST_F(Program, GivesTheExitStatus) {
    EXPECT_EQ(0, run({"true"}));
    EXPECT_EQ(1, run({"false"}));
    EXPECT_EQ(255, run({"sh", "-c", "exit 255"}));
    EXPECT_EQ(-1, run({"sh", "-c", "exit 127"}));
}

TEST_F(Program, GivesMinusOneWhenItCannotBeRun) {
    EXPECT_EQ(-1, run({"/no/such/program"}));
    EXPECT_EQ(-1, run({"no-such-program"}));
}

TEST_F(Program, GivesMinusOneWhenItIsKilled) {
    EXPECT_EQ(-1, run({"sh", "-c", "kill -9 $$"}));
}

TEST_F(Program, WritesItsOutputToTheFile) {
    EXPECT_EQ(0, run_to_file({"echo", "hello"}));
    EXPECT_EQ("hello\n", read_file(output()));
}

TEST_F(Program, TakesItsWordsAsTheyAre) {
    EXPECT_EQ(0, run_to_file({"printf", "%s|", "$(touch x)", "a b", "'; rm -rf /", "*"}));
    EXPECT_EQ("$(touch x)|a b|'; rm -rf /|*|", read_file(output()));
}

TEST_F(Program, ReadsNothingAndSaysNothingOnStandardError) {
    EXPECT_EQ(0, run_to_file({"sh", "-c", "cat; echo noise >&2"}));
    EXPECT_EQ("", read_file(output()));
}

TEST_F(Program, StartsWithUnblockedSignals) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    signal(SIGPIPE, SIG_IGN);
    const int status = run_to_file({"grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"});
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    signal(SIGPIPE, SIG_DFL);
    ASSERT_EQ(0, status);
    const auto lines = read_lines(output());
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("SigBlk:\t0000000000000000", lines[0]);
    EXPECT_EQ(0u, std::stoull(lines[1].substr(8), nullptr, 16) & (1u << (SIGPIPE - 1)));
}

TEST_F(Program, OutputIsCopiedToABuffer) {
    std::string text;
    EXPECT_EQ(3, read({"sh", "-c", "echo hello; exit 3"}, text, 64));
    EXPECT_EQ("hello\n", text);
}

TEST_F(Program, OutputIsCutAndTheRestDrained) {
    std::string text;
    EXPECT_EQ(0, read({"sh", "-c", "head -c 300000 /dev/zero | tr '\\0' x; echo end"}, text, 8));
    EXPECT_EQ("xxxxxxx", text);
}

TEST_F(Program, OutputIsEmptyWhenItCannotBeRun) {
    std::string text = "before";
    EXPECT_EQ(-1, read({"no-such-program"}, text, 8));
    EXPECT_EQ("", text);
}

// Each takes the whole time: neither a program that lives on nor one that goes on talking is waited for.
TEST_F(Program, IsKilledWhenItTakesTooLong) {
    const auto start = std::chrono::steady_clock::now();
    std::string text;
    EXPECT_EQ(-1, run({"sleep", "60"}));
    EXPECT_EQ(-1, read({"sh", "-c", "echo hello; exec 1>&-; exec sleep 60"}, text, 64));
    EXPECT_EQ("hello\n", text);
    EXPECT_EQ(-1, read({"yes"}, text, 4));
    EXPECT_EQ("y\ny", text);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST_F(Program, LeavesNoDescriptorBehind) {
    const auto lowest_free = [] {
        const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(descriptor);
        return descriptor;
    };
    const int before = lowest_free();
    std::string text;
    (void)read({"echo", "hello"}, text, 64);
    (void)read({"no-such-program"}, text, 64);
    (void)run_to_file({"true"});
    EXPECT_EQ(before, lowest_free());
}

} // namespace program_test
