// Files shared with the DHCP servers: opened and held under flock until closed.
#include "base/locked_file.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/plain_file.h"

namespace {

constexpr int64_t ALWAYS_GRANTED = 10; // milliseconds: an honest holder is done by then
constexpr int64_t RECOVERY = 10;       // this many milliseconds give one of patience back
constexpr long RETRY_NANOSECONDS = 2'000'000;

// What this thread has waited and not been given back, and up to when that was reckoned (monotonic
// milliseconds).
thread_local int64_t waited;
thread_local int64_t waited_at;

int64_t patience_left(int64_t now) {
    const int64_t given_back = (now - waited_at) / RECOVERY;
    waited_at += given_back * RECOVERY;
    waited -= std::min(waited, given_back);
    return std::max(HBS_LOCK_PATIENCE - waited, ALWAYS_GRANTED);
}

// There is no flock with a deadline, and a signal to end one would need a thread to send it: it is tried
// again.
int lock_before(int descriptor, hbs_lock lock, int64_t start, int64_t patience) {
    const int operation = (lock == hbs_lock::shared ? LOCK_SH : LOCK_EX) | LOCK_NB;
    while (flock(descriptor, operation) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return -1;
        if (hbs_monotonic_milliseconds() - start >= patience) {
            errno = ETIMEDOUT;
            return -1;
        }
        const timespec pause = {0, RETRY_NANOSECONDS};
        (void)nanosleep(&pause, nullptr);
    }
    return 0;
}

// Whether the open file is still the one that bears the name.
bool bears_name(int descriptor, const char *path) {
    struct stat opened, named;
    return fstat(descriptor, &opened) == 0 && lstat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

// Ends: each further round needs another process to have replaced the file while we waited.
int open_locked(const char *path, int flags, mode_t mode, hbs_lock lock, int64_t start, int64_t patience) {
    for (;;) {
        const int descriptor = hbs_plain_open(path, flags, mode);
        if (descriptor == -1)
            return -1;
        if (lock_before(descriptor, lock, start, patience) != 0) {
            hbs_close_keeping_errno(descriptor);
            return -1;
        }
        if (bears_name(descriptor, path))
            return descriptor;
        (void)close(descriptor);
    }
}

} // namespace

int hbs_locked_descriptor(const char *path, int flags, mode_t mode, hbs_lock lock) {
    const int64_t start = hbs_monotonic_milliseconds();
    const int64_t patience = patience_left(start);
    const int descriptor = open_locked(path, flags, mode, lock, start, patience);
    const int reason = errno;
    waited = std::min(waited + (hbs_monotonic_milliseconds() - start), HBS_LOCK_PATIENCE);
    if (descriptor == -1 && reason == ETIMEDOUT)
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s is locked by another process - gave up after %d ms", path,
                static_cast<int>(patience));
    errno = reason;
    return descriptor;
}

FILE *hbs_locked_open(const char *path, const char *mode, hbs_lock lock) {
    const int flags = mode[1] == '+' ? O_RDWR : O_RDONLY;
    return hbs_stream_of(hbs_locked_descriptor(path, flags, 0, lock), mode);
}
