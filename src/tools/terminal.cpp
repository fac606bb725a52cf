#include "tools/terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

#include "tools/session.h"
#include "tools/whole_file.h"

namespace {

// Other screen, no cursor, and a line that the terminal finds wider than we do is cut, not wrapped.
constexpr const char *enter_sequence = "\033[?1049h\033[?25l\033[?7l\033[H\033[2J";
constexpr const char *leave_sequence = "\033[?7h\033[?25h\033[?1049l";

winsize window_of(int fd) {
    winsize window = {};
    (void)ioctl(fd, TIOCGWINSZ, &window);
    return window;
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
    keys_ = terminal_ && tcgetattr(STDIN_FILENO, &usual_) == 0;
    const sigset_t set = awaited_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    signals_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    enter();
}

live_screen::~live_screen() {
    leave();
    close(signals_);
}

void live_screen::enter() {
    termios keys = usual_;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    keys.c_cc[VMIN] = keys.c_cc[VTIME] = 0; // reading takes what is there
    if (keys_)
        (void)tcsetattr(STDIN_FILENO, TCSADRAIN, &keys);
    if (terminal_)
        (void)write_all(STDOUT_FILENO, enter_sequence);
}

void live_screen::leave() {
    if (terminal_)
        (void)write_all(STDOUT_FILENO, leave_sequence);
    if (keys_)
        (void)tcsetattr(STDIN_FILENO, TCSADRAIN, &usual_);
}

size_t live_screen::height() const {
    const unsigned rows = window_of(STDOUT_FILENO).ws_row;
    return !terminal_ ? 0 : rows == 0 ? 24 : rows;
}

void live_screen::show(const std::vector<std::string> &lines) {
    const size_t most = terminal_ ? std::min(lines.size(), height()) : lines.size();
    std::string text = terminal_ ? "\033[H" : "";
    for (size_t i = 0; i < most; i++) {
        text += terminal_ && i > 0 ? "\r\n" : "";
        text += lines[i];
        text += terminal_ ? "\033[K" : "\n";
    }
    text += terminal_ ? "\033[J" : "";
    broken_ = !write_all(STDOUT_FILENO, text);
    if (broken_ && errno != EPIPE)
        write_error_ = errno;
}

// The screen is given back while the program is stopped, as a shell's user expects.
void live_screen::stop_and_resume() {
    leave();
    raise(SIGSTOP);
    enter();
}

// Returns false for one that ends the view.
bool live_screen::heed_signal() {
    signalfd_siginfo told = {};
    if (read(signals_, &told, sizeof told) != sizeof told)
        return true;
    if (told.ssi_signo == SIGTSTP)
        stop_and_resume();
    return told.ssi_signo == SIGTSTP || told.ssi_signo == SIGWINCH;
}

// Returns false when the terminal is gone.
bool live_screen::take_keys() {
    char block[64];
    const ssize_t size = read(STDIN_FILENO, block, sizeof block);
    if (size > 0)
        typed_.append(block, static_cast<size_t>(size));
    return size > 0;
}

bool live_screen::wait(std::chrono::milliseconds time) {
    pollfd sources[] = {{signals_, POLLIN, 0}, {keys_ ? STDIN_FILENO : -1, POLLIN, 0}};
    if (broken_ || (poll(sources, 2, static_cast<int>(time.count())) < 0 && errno != EINTR))
        return false;
    if (sources[0].revents != 0 && !heed_signal())
        return false;
    return sources[1].revents == 0 || take_keys();
}

std::string live_screen::typed() {
    return std::exchange(typed_, "");
}

void heed_write_error(const live_screen &screen) {
    if (screen.write_error() != 0)
        throw run_error(exit_failed, std::string("cannot write: ") + strerror(screen.write_error()));
}
