#include "tools/terminal.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr const char *enter_sequence = "\033[?1049h\033[?25l\033[H\033[2J"; // other screen, no cursor
constexpr const char *leave_sequence = "\033[?25h\033[?1049l";

winsize window_of(int fd) {
    winsize window = {};
    (void)ioctl(fd, TIOCGWINSZ, &window);
    return window;
}

bool write_all(const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR)
            return false;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

sigset_t awaited_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGWINCH})
        sigaddset(&set, number);
    return set;
}

bool is_set(const char *variable) {
    const char *value = getenv(variable);
    return value != nullptr && *value != '\0';
}

// A terminal that cannot move its cursor.
bool is_dumb() {
    const char *kind = getenv("TERM");
    return kind != nullptr && strcmp(kind, "dumb") == 0;
}

bool wants_colour() {
    return !is_set("NO_COLOR") && !is_dumb();
}

} // namespace

drawing drawing_of(int fd) {
    if (isatty(fd) == 0)
        return {};
    const int columns = window_of(fd).ws_col;
    return {columns == 0 ? 80 : columns, wants_colour()};
}

live_screen::live_screen(bool draw) : terminal_(draw && isatty(STDOUT_FILENO) != 0 && !is_dumb()) {
    const sigset_t set = awaited_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    enter();
}

live_screen::~live_screen() {
    leave();
}

void live_screen::enter() {
    if (terminal_)
        (void)write_all(enter_sequence);
}

void live_screen::leave() {
    if (terminal_)
        (void)write_all(leave_sequence);
}

void live_screen::show(const std::vector<std::string> &lines) {
    const size_t height = window_of(STDOUT_FILENO).ws_row;
    std::string text = terminal_ ? "\033[H" : "";
    for (size_t i = 0; i < lines.size() && (!terminal_ || height == 0 || i < height); i++) {
        text += terminal_ && i > 0 ? "\r\n" : "";
        text += lines[i];
        text += terminal_ ? "\033[K" : "\n";
    }
    text += terminal_ ? "\033[J" : "";
    broken_ = !write_all(text);
}

// The screen is given back while the program is stopped, as a shell's user expects.
void live_screen::stop_and_resume() {
    leave();
    raise(SIGSTOP);
    enter();
}

bool live_screen::wait(std::chrono::milliseconds time) {
    const sigset_t set = awaited_signals();
    timespec limit = {};
    limit.tv_sec = static_cast<time_t>(time.count() / 1000);
    limit.tv_nsec = static_cast<long>(time.count() % 1000 * 1000000);
    const int number = broken_ ? SIGPIPE : sigtimedwait(&set, nullptr, &limit);
    if (number == SIGTSTP)
        stop_and_resume();
    return number == -1 || number == SIGTSTP || number == SIGWINCH;
}
