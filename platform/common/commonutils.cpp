// File helpers of the gateway. What they return 0 for is on the disk.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <commonutils.h>

#include "common_hooks.h"

namespace {

// One copy at a time in this process: all copies to one file share the name of the file beside it.
pthread_mutex_t copy_mutex = PTHREAD_MUTEX_INITIALIZER;

bool write_whole(int fd, const char *bytes, size_t length) {
    while (length > 0) {
        ssize_t part = write(fd, bytes, length);
        if (part < 0 && errno == EINTR)
            continue;
        if (part <= 0)
            return false;
        bytes += part;
        length -= static_cast<size_t>(part);
    }
    return true;
}

// Copies the next `size` bytes of one file to another: a file that is appended to itself comes to an end.
bool transfer(int from, int to, off_t size) {
    char block[16384];
    while (size > 0) {
        size_t wanted = size < off_t{sizeof block} ? static_cast<size_t>(size) : sizeof block;
        ssize_t part = read(from, block, wanted);
        if (part < 0 && errno == EINTR)
            continue;
        if (part < 0)
            return false;
        if (part == 0)
            break;
        if (!write_whole(to, block, static_cast<size_t>(part)))
            return false;
        size -= part;
    }
    return true;
}

// Syncs and closes; an error of either counts.
bool finish(int fd) {
    bool synced = fsync(fd) == 0;
    return close(fd) == 0 && synced;
}

// Opens nothing but a plain file: a symbolic link would lead to one of somebody else's, and a FIFO would hold
// the caller until it has another end.
int open_plain(const char *path, int flags, struct stat *file) {
    int fd = open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
    if (fd < 0)
        return -1;
    if (fstat(fd, file) == 0 && S_ISREG(file->st_mode))
        return fd;
    (void)close(fd);
    return -1;
}

int open_at_end(const char *path) {
    struct stat file = {};
    return open_plain(path, O_WRONLY | O_APPEND | O_CREAT, &file);
}

int open_source(const char *path, struct stat *file) {
    return path != nullptr ? open_plain(path, O_RDONLY, file) : -1;
}

// Ends an addition: what did not get there whole is taken back.
int finish_addition(int fd, off_t before, bool whole) {
    if (!whole)
        (void)!ftruncate(fd, before);
    return finish(fd) && whole ? 0 : -1;
}

// So that the new name of a file survives a power cut.
bool sync_directory_of(const char *path) {
    char directory[PATH_MAX];
    const char *slash = strrchr(path, '/');
    size_t length = slash == nullptr ? 0 : static_cast<size_t>(slash - path) + 1;
    if (length >= sizeof directory)
        return false;
    memcpy(directory, path, length);
    directory[length] = '\0';
    int fd = open(length == 0 ? "." : directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return fd >= 0 && finish(fd);
}

// The copy takes the old file's mode and owner; only a privileged process can give a file away.
bool take_mode(int fd, const char *old_path) {
    struct stat old = {};
    if (stat(old_path, &old) != 0)
        return true;
    (void)!fchown(fd, old.st_uid, old.st_gid);
    return fchmod(fd, old.st_mode & 07777) == 0;
}

// Written beside and renamed over: whoever opens `to` at any moment, also after a power cut, finds the old
// file or the whole copy. A process that has the old file open keeps the old file.
bool replace_with_copy(int from, off_t size, const char *to) {
    char beside[PATH_MAX];
    int length = snprintf(beside, sizeof beside, "%s.copy", to);
    if (length < 0 || static_cast<size_t>(length) >= sizeof beside)
        return false;
    (void)unlink(beside); // of a copy that was interrupted, or what somebody put there
    int fd = open(beside, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    bool written = transfer(from, fd, size) && take_mode(fd, to);
    written = finish(fd) && written;
    if (written && rename(beside, to) == 0)
        return sync_directory_of(to);
    (void)unlink(beside);
    return false;
}

} // namespace

int COMMONUTILS_file_write(const char *path, const char *text) {
    int result = 0;
    if (common_call_fails("COMMONUTILS_file_write", &result))
        return result;
    if (path == nullptr || text == nullptr)
        return -1;
    int fd = open_at_end(path);
    if (fd < 0)
        return -1;
    off_t before = lseek(fd, 0, SEEK_END);
    return finish_addition(fd, before, before >= 0 && write_whole(fd, text, strlen(text)));
}

int COMMONUTILS_file_append(const char *from, const char *to) {
    int result = 0;
    if (common_call_fails("COMMONUTILS_file_append", &result))
        return result;
    struct stat source = {};
    int from_fd = open_source(from, &source);
    if (from_fd < 0)
        return -1;
    int to_fd = to != nullptr ? open_at_end(to) : -1;
    result = -1;
    if (to_fd >= 0) {
        off_t before = lseek(to_fd, 0, SEEK_END);
        result = finish_addition(to_fd, before, before >= 0 && transfer(from_fd, to_fd, source.st_size));
    }
    (void)close(from_fd);
    return result;
}

int COMMONUTILS_file_copy(const char *from, const char *to) {
    int result = 0;
    if (common_call_fails("COMMONUTILS_file_copy", &result))
        return result;
    struct stat source = {};
    int from_fd = open_source(from, &source);
    if (from_fd < 0)
        return -1;
    (void)pthread_mutex_lock(&copy_mutex);
    bool copied = to != nullptr && replace_with_copy(from_fd, source.st_size, to);
    (void)pthread_mutex_unlock(&copy_mutex);
    (void)close(from_fd);
    return copied ? 0 : -1;
}
