// Runs the tests of a program. With "--each-apart" each runs in a process of its own, as it does where each
// is a start of the program, but all are forked from this one before it ran any: what a start costs an
// emulator or a sanitizer is paid once, and process-local state starts clean all the same. GoogleTest's
// filter and its variables for shards hold there, too.
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned kLongestSeconds = 600;
// A child's status, where no test failed. None is 0: code that ends the process has not passed.
constexpr int kSkipped = 77, kPassed = 78;
constexpr int kWrongWords = 2;

volatile pid_t child;

void end_child(int) {
    (void)kill(child, SIGKILL);
}

// Ends the program when the variable is set to something else than a number from `least` to `most`.
unsigned long number_from(const char *variable, unsigned long least, unsigned long most,
                          unsigned long otherwise) {
    const char *value = getenv(variable);
    if (value == nullptr)
        return otherwise;
    char *end = nullptr;
    const unsigned long number = strtoul(value, &end, 10);
    if (isdigit(static_cast<unsigned char>(*value)) != 0 && *end == '\0' && number >= least && number <= most)
        return number;
    fprintf(stderr, "%s=%s is no number from %lu to %lu\n", variable, value, least, most);
    exit(kWrongWords);
}

struct shard {
    unsigned long count = number_from("GTEST_TOTAL_SHARDS", 1, INT_MAX, 1);
    unsigned long index = number_from("GTEST_SHARD_INDEX", 0, count - 1, 0);
};

// What an emulator has translated here, it need not in each child.
void run_none() {
    const std::string chosen = testing::GTEST_FLAG(filter);
    testing::GTEST_FLAG(filter) = "-*";
    if (RUN_ALL_TESTS() != 0)
        exit(EXIT_FAILURE);
    testing::GTEST_FLAG(filter) = chosen;
}

// Lets GoogleTest choose by its filter, as it does before it lists the tests; the list goes nowhere.
void choose_tests() {
    unsetenv("GTEST_TOTAL_SHARDS"); // a child has one test, which is in each share
    unsetenv("GTEST_SHARD_INDEX");
    (void)fflush(stdout);
    const int output = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    run_none();
    testing::GTEST_FLAG(list_tests) = true;
    if (RUN_ALL_TESTS() != 0)
        exit(EXIT_FAILURE);
    testing::GTEST_FLAG(list_tests) = false;
    (void)fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(nowhere);
    close(output);
}

std::vector<std::string> chosen_tests() {
    choose_tests();
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    std::vector<std::string> names;
    for (int suite = 0; suite < all.total_test_suite_count(); suite++) {
        const testing::TestSuite &tests = *all.GetTestSuite(suite);
        for (int test = 0; test < tests.total_test_count(); test++)
            if (tests.GetTestInfo(test)->should_run())
                names.push_back(std::string(tests.name()) + "." + tests.GetTestInfo(test)->name());
    }
    return names;
}

// To take all tests apart costs an emulator more than most of them do. A sanitizer tells what it saw when a
// process exits.
[[noreturn]] void end_child_with(int status) {
    (void)fflush(nullptr);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    exit(status);
#else
    _exit(status);
#endif
}

// Never returns: runs one test and says to output what it says.
[[noreturn]] void run_one(const std::string &name, int output) {
    (void)signal(SIGALRM, SIG_DFL);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(output);
    testing::GTEST_FLAG(filter) = name;
    const int failed = RUN_ALL_TESTS();
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    if (failed == 0 && all.test_to_run_count() != 1)
        exit(EXIT_FAILURE); // a name that is a pattern, too, would be more than one
    if (failed != 0)
        exit(failed);
    end_child_with(all.skipped_test_count() == 1 ? kSkipped : kPassed);
}

void print(int output) {
    std::array<char, 4096> part{};
    (void)lseek(output, 0, SEEK_SET);
    for (ssize_t got; (got = read(output, part.data(), part.size())) > 0;)
        (void)fwrite(part.data(), 1, static_cast<size_t>(got), stdout);
}

// The status of its process, as waitpid gives it.
int status_of(const std::string &name, int output) {
    (void)fflush(nullptr);
    child = fork();
    if (child == 0)
        run_one(name, output);
    alarm(kLongestSeconds);
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    alarm(0);
    return status;
}

int run_each_apart() {
    const shard share;
    const std::vector<std::string> chosen = chosen_tests();
    if (chosen.empty()) { // a share of few tests may be
        fprintf(stderr, "no test is chosen\n");
        return EXIT_FAILURE;
    }
    (void)signal(SIGALRM, end_child);
    unsigned passed = 0, skipped = 0;
    std::vector<std::string> failed;
    for (size_t number = share.index; number < chosen.size(); number += share.count) {
        const std::string &name = chosen[number];
        const int output = memfd_create("output", 0);
        const int status = status_of(name, output);
        if (WIFEXITED(status) && WEXITSTATUS(status) == kSkipped)
            skipped++;
        else if (WIFEXITED(status) && WEXITSTATUS(status) == kPassed)
            passed++;
        else {
            failed.push_back(name);
            print(output);
            if (status == 0)
                printf("%s ended the process early\n", name.c_str());
            if (WIFSIGNALED(status))
                printf("%s ended by signal %d (%s)\n", name.c_str(), WTERMSIG(status),
                       strsignal(WTERMSIG(status)));
        }
        close(output);
    }
    for (const std::string &name : failed)
        printf("FAILED %s\n", name.c_str());
    printf("each test apart: %u passed, %u skipped, %zu failed\n", passed, skipped, failed.size());
    return failed.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int count, char **words) {
    testing::InitGoogleTest(&count, words);
    return count == 2 && strcmp(words[1], "--each-apart") == 0 ? run_each_apart() : RUN_ALL_TESTS();
}
