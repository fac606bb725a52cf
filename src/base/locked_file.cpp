// Files shared with the DHCP servers: opened and held under flock until closed.
#include "base/locked_file.h"

#include <cerrno>
#include <sys/file.h>
#include <sys/stat.h>

static int lock_waiting(int descriptor, hbs_lock lock) {
    const int operation = lock == hbs_lock::shared ? LOCK_SH : LOCK_EX;
    int result;
    do
        result = flock(descriptor, operation);
    while (result != 0 && errno == EINTR);
    return result;
}

// Whether the open file is still the one that bears the name.
static bool bears_name(int descriptor, const char *path) {
    struct stat opened, named;
    return fstat(descriptor, &opened) == 0 && stat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

static void close_keeping_errno(FILE *stream) {
    const int reason = errno;
    (void)fclose(stream);
    errno = reason;
}

FILE *hbs_locked_open(const char *path, const char *mode, hbs_lock lock) {
    char close_on_exec[8];
    (void)snprintf(close_on_exec, sizeof close_on_exec, "%se", mode);
    // Ends: each further round needs another process to have replaced the file while we waited.
    for (;;) {
        FILE *stream = fopen(path, close_on_exec);
        if (stream == nullptr)
            return nullptr;
        if (lock_waiting(fileno(stream), lock) != 0) {
            close_keeping_errno(stream);
            return nullptr;
        }
        if (bears_name(fileno(stream), path))
            return stream;
        (void)fclose(stream);
    }
}
