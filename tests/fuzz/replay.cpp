// Feeds files to a fuzz target where there is no fuzzer: any compiler builds it for any machine. The
// arguments are files and directories of them; what begins with a hyphen is the fuzzer's and means nothing
// here.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *count, char ***words);

static bool replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad())
        return false;
    // A copy of just this size, so that a checker sees what reads behind its end.
    const std::vector<uint8_t> bytes(input.begin(), input.end());
    fprintf(stderr, "%s: %zu bytes\n", path.c_str(), bytes.size());
    (void)LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}

int main(int count, char **words) {
    if (LLVMFuzzerInitialize != nullptr && LLVMFuzzerInitialize(&count, &words) != 0)
        return 1;
    size_t done = 0;
    for (int i = 1; i < count; i++) {
        if (words[i][0] == '-')
            continue;
        if (!std::filesystem::is_directory(words[i])) {
            done += replay(words[i]);
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(words[i]))
            done += replay(entry.path());
    }
    fprintf(stderr, "%zu inputs\n", done);
    return done > 0 ? 0 : 1;
}
