// Files that only grow: the log and the journal.
#include "host_sink.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool still_there(int fd, const char *path) {
    struct stat opened = {};
    struct stat named = {};
    return fd >= 0 && fstat(fd, &opened) == 0 && stat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

void open_again(host_sink *sink, const char *path) {
    if (sink->fd >= 0)
        (void)close(sink->fd);
    sink->fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
}

// Returns how much was written: all of it, except on a full disk or a bad descriptor.
size_t write_whole(int fd, const char *text, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t part = write(fd, text + done, length - done);
        if (part < 0 && errno == EINTR)
            continue;
        if (part <= 0)
            break;
        done += static_cast<size_t>(part);
    }
    return done;
}

} // namespace

void host_sink_write(host_sink *sink, common_line *line) {
    common_line_finish(line);
    (void)pthread_mutex_lock(&sink->lock);
    if (sink->changed(sink->place) || sink->fd < 0) {
        const char *path = host_place_path(sink->place);
        if (!still_there(sink->fd, path))
            open_again(sink, path);
    }
    size_t done = sink->fd < 0 ? 0 : write_whole(sink->fd, line->text, line->length);
    (void)pthread_mutex_unlock(&sink->lock);
    if (done < line->length)
        (void)write_whole(STDERR_FILENO, line->text + done, line->length - done);
}
