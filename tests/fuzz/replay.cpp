// Feeds files to a fuzz target where there is no fuzzer: any compiler builds it for any machine. The
// arguments are files and directories of them; what begins with a hyphen is the fuzzer's, of which
// "-timeout=SECONDS" holds here, too: a process that takes longer for one input ends by SIGALRM.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *count, char ***words);

namespace {

using paths = std::vector<std::filesystem::path>;

unsigned longest = 1200; // seconds, as the fuzzer has it
bool at_end;

// Code that ends the process has not passed.
void expect_end() {
    if (!at_end)
        _exit(EXIT_FAILURE);
}

void take_option(const char *word) {
    constexpr char timeout[] = "-timeout=";
    if (strncmp(word, timeout, strlen(timeout)) == 0)
        longest = static_cast<unsigned>(strtoul(word + strlen(timeout), nullptr, 10));
}

void add_inputs(const char *path, paths *inputs) {
    if (!std::filesystem::is_directory(path))
        inputs->emplace_back(path);
    else
        for (const auto &entry : std::filesystem::directory_iterator(path))
            inputs->push_back(entry.path());
}

bool replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad())
        return false;
    // A copy of just this size, so that a checker sees what reads behind its end.
    const std::vector<uint8_t> bytes(input.begin(), input.end());
    fprintf(stderr, "%s: %zu bytes\n", path.c_str(), bytes.size());
    (void)alarm(longest);
    (void)LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    (void)alarm(0);
    return true;
}

} // namespace

int main(int count, char **words) {
    paths inputs;
    (void)atexit(expect_end);
    if (LLVMFuzzerInitialize != nullptr && LLVMFuzzerInitialize(&count, &words) != 0)
        return EXIT_FAILURE;
    for (int i = 1; i < count; i++)
        if (words[i][0] == '-')
            take_option(words[i]);
        else
            add_inputs(words[i], &inputs);
    for (const std::filesystem::path &input : inputs) {
        if (replay(input))
            continue;
        fprintf(stderr, "%s cannot be read\n", input.c_str());
        return EXIT_FAILURE;
    }
    at_end = true;
    fprintf(stderr, "%zu inputs\n", inputs.size());
    return inputs.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
