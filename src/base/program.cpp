// Runs external programs by argument vector.
#include "base/program.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/paths.h"
#include "base/scope.h"

extern char **environ;

namespace {

// output -1: nowhere.
bool redirect(posix_spawn_file_actions_t *actions, int output) {
    if (posix_spawn_file_actions_addopen(actions, 0, HBS_NOWHERE, O_RDONLY, 0) != 0 ||
        posix_spawn_file_actions_addopen(actions, 2, HBS_NOWHERE, O_WRONLY, 0) != 0)
        return false;
    if (output != -1)
        return posix_spawn_file_actions_adddup2(actions, output, 1) == 0;
    return posix_spawn_file_actions_addopen(actions, 1, HBS_NOWHERE, O_WRONLY, 0) == 0;
}

// The program starts with no signal blocked and SIGPIPE as a program expects it, whatever this thread has.
bool clean_signals(posix_spawnattr_t *attributes) {
    sigset_t none, restored;
    (void)sigemptyset(&none);
    (void)sigemptyset(&restored);
    (void)sigaddset(&restored, SIGPIPE);
    return posix_spawnattr_setsigmask(attributes, &none) == 0 &&
           posix_spawnattr_setsigdefault(attributes, &restored) == 0 &&
           posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
}

// Starts the program; returns its pid, or -1.
pid_t start(const char *const argv[], int output) {
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return -1;
    hbs_at_exit drop_actions([&] { (void)posix_spawn_file_actions_destroy(&actions); });
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0)
        return -1;
    hbs_at_exit drop_attributes([&] { (void)posix_spawnattr_destroy(&attributes); });
    if (!redirect(&actions, output) || !clean_signals(&attributes))
        return -1;
    pid_t pid = -1;
    char *const *words = const_cast<char *const *>(argv); // POSIX: the strings are not changed
    return posix_spawnp(&pid, argv[0], &actions, &attributes, words, environ) == 0 ? pid : -1;
}

// What a child ends with that could not become the program, where posix_spawn itself cannot report that.
constexpr int COULD_NOT_RUN = 127;

int64_t milliseconds_until(int64_t deadline) {
    return std::max<int64_t>(deadline - hbs_monotonic_milliseconds(), 0);
}

pid_t look_at(pid_t pid, int *status, int options) {
    pid_t ended;
    do
        ended = waitpid(pid, status, options);
    while (ended == -1 && errno == EINTR);
    return ended;
}

// Exit status of a child that ends before the deadline; -1 when it had to be killed then, was killed, never
// was the program or cannot be waited for.
int wait_for(pid_t pid, int64_t deadline) {
    constexpr timespec step = {0, 5'000'000}; // there is no wait for a child that takes a deadline
    int status = 0;
    pid_t ended = look_at(pid, &status, WNOHANG);
    for (; ended == 0 && milliseconds_until(deadline) > 0; ended = look_at(pid, &status, WNOHANG))
        (void)nanosleep(&step, nullptr);
    if (ended == 0) {
        (void)kill(pid, SIGKILL);
        ended = look_at(pid, &status, 0);
    }
    const bool exited = ended == pid && WIFEXITED(status) && WEXITSTATUS(status) != COULD_NOT_RUN;
    return exited ? WEXITSTATUS(status) : -1;
}

} // namespace

int hbs_program_run(const char *const argv[], int output) {
    const int64_t deadline = hbs_monotonic_milliseconds() + HBS_PROGRAM_MILLISECONDS;
    const pid_t pid = start(argv, output);
    return pid == -1 ? -1 : wait_for(pid, deadline);
}

namespace {

bool is_readable(int descriptor, int64_t deadline) {
    pollfd pipe = {descriptor, POLLIN, 0};
    int ready = -1;
    errno = EINTR;
    for (int64_t left; ready == -1 && errno == EINTR && (left = milliseconds_until(deadline)) > 0;)
        ready = poll(&pipe, 1, static_cast<int>(left));
    return ready == 1;
}

ssize_t read_some(int descriptor, char *buffer, size_t size) {
    ssize_t count;
    do
        count = read(descriptor, buffer, size);
    while (count == -1 && errno == EINTR);
    return count;
}

// Reads to the end of the pipe or to the deadline, so that the program never waits for a reader.
void collect(int descriptor, char *output, size_t room, int64_t deadline) {
    char part[512];
    size_t used = 0;
    while (is_readable(descriptor, deadline)) {
        const ssize_t count = read_some(descriptor, part, sizeof part);
        if (count <= 0)
            break;
        const size_t taken = std::min(static_cast<size_t>(count), room - used);
        std::copy_n(part, taken, output + used);
        used += taken;
    }
    output[used] = 0;
}

} // namespace

int hbs_program_read(const char *const argv[], char *output, int size) {
    output[0] = 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    const int64_t deadline = hbs_monotonic_milliseconds() + HBS_PROGRAM_MILLISECONDS;
    const pid_t pid = start(argv, ends[1]);
    (void)close(ends[1]);
    if (pid != -1)
        collect(ends[0], output, static_cast<size_t>(size) - 1, deadline);
    (void)close(ends[0]);
    return pid == -1 ? -1 : wait_for(pid, deadline);
}
