// Opens by name nothing but plain files, and never waits for it.
#include "base/plain_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

void hbs_close_keeping_errno(int descriptor) {
    const int reason = errno;
    (void)close(descriptor);
    errno = reason;
}

namespace {

// Closes what is no plain file.
int only_plain(int descriptor) {
    struct stat status {};
    if (descriptor == -1)
        return -1;
    if (fstat(descriptor, &status) != 0) { // what it is cannot be told: that is no answer
        hbs_close_keeping_errno(descriptor);
        return -1;
    }
    if (S_ISREG(status.st_mode))
        return descriptor;
    (void)close(descriptor);
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return -1;
}

// What is there is opened without O_CREAT: the kernel may refuse O_CREAT on another user's file in a sticky
// directory (fs.protected_regular), and with O_EXCL a link that somebody puts there meanwhile is not
// followed.
int open_or_make(const char *path, int flags, mode_t mode) {
    const int there = open(path, flags & ~(O_CREAT | O_EXCL));
    if (there != -1 || errno != ENOENT || (flags & O_CREAT) == 0)
        return there;
    return open(path, flags | O_EXCL, mode);
}

} // namespace

int hbs_plain_open(const char *path, int flags, mode_t mode) {
    constexpr int ATTEMPTS =
        3; // each further one needs somebody who makes and removes the file at that moment
    const int careful = (flags & ~O_TRUNC) | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int descriptor = -1;
    for (int i = 0; i < ATTEMPTS; i++) {
        descriptor = (flags & O_EXCL) != 0 ? open(path, careful, mode) : open_or_make(path, careful, mode);
        if (descriptor != -1 || errno != EEXIST || (flags & O_EXCL) != 0)
            break;
    }
    descriptor = only_plain(descriptor);
    if (descriptor == -1 || (flags & O_TRUNC) == 0 || ftruncate(descriptor, 0) == 0)
        return descriptor;
    hbs_close_keeping_errno(descriptor);
    return -1;
}

FILE *hbs_stream_of(int descriptor, const char *mode) {
    FILE *stream = descriptor != -1 ? fdopen(descriptor, mode) : nullptr;
    if (stream == nullptr && descriptor != -1)
        hbs_close_keeping_errno(descriptor);
    return stream;
}

FILE *hbs_plain_stream(const char *path, const char *mode) {
    return hbs_stream_of(hbs_plain_open(path, mode[1] == '+' ? O_RDWR : O_RDONLY, 0), mode);
}
