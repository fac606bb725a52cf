// Lines typed to hbsctl, one after the other, with the daemon behind it in the same process: its commands and
// events go to the dispatcher, its looks to the segment. A line ends with the character for the end of a
// record, a word with the one for the end of a unit; what stands behind the last line is standard input. Each
// line ends with a status, what it prints steers no terminal, and the store stays sound.
#include <sstream>

#include "fuzz_soundness.h"
#include "fuzz_text.h"
#include "tools/command_client.h"
#include "tools/command_tree.h"

namespace {

constexpr char end_of_line = '\x1e', end_of_word = '\x1f';
constexpr size_t most_lines = 8;
// They last, or write files where they are told to.
constexpr const char *left_out[] = {"events", "export", "report", "serve", "wait", "watch"};

} // namespace

int32_t send_command(const datagram &message, const std::string &, double) {
    return fuzz_send(message.data(), message.size());
}

void send_event(const datagram &message, const std::string &) {
    (void)fuzz_send(message.data(), message.size());
}

std::optional<std::string> ask_in_words(const std::string &, const std::string &, double) {
    return std::nullopt;
}

bool daemon_is_there(const std::string &) {
    return true;
}

namespace {

bool is_left_out(const std::vector<std::string> &words) {
    for (const char *word : left_out)
        if (std::find(words.begin(), words.end(), word) != words.end())
            return true;
    return false;
}

void expect_plain(const std::string &printed) {
    for (const char letter : printed)
        fuzz_expect(static_cast<unsigned char>(letter) >= ' ' || letter == '\n' || letter == '\r');
}

void type(const std::vector<std::string> &words, const std::string &input) {
    std::istringstream in(input);
    std::ostringstream out, err;
    session run = {.in = in, .out = out, .err = err, .socket_path = "fuzz", .how = {}};
    const exit_status status = run_command_line(run, words);
    fuzz_expect(status >= exit_ok && status <= exit_failed);
    expect_plain(out.str());
    expect_plain(err.str());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    fuzz_stop_at_damage();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_begin_with_nothing();
    const std::vector<std::string> lines = fuzz_parts(fuzz_text(data, size), end_of_line);
    for (size_t i = 0; i + 1 < lines.size() && i < most_lines; i++) {
        const std::vector<std::string> words = fuzz_parts(lines[i], end_of_word);
        if (is_left_out(words))
            continue;
        type(words, lines.back());
        fuzz_expect_sound();
    }
    return 0;
}
