#include "files/notice_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/locked_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "base/scope.h"
#include "base/scratch_file.h"

const hbs_notice_source hbs_dhcpv4_notice_source = {
    HBS_DHCPV4_NOTICES_COPY,
    "HOSTBASE: Failed to copy to dhcp4 watch temp file",
    "HOSTBASE: Failed to open dhcp4 watch temp file",
};

const hbs_notice_source hbs_dhcpv6_notice_source = {
    HBS_DHCPV6_NOTICES_COPY,
    "HOSTBASE: Failed to copy to dhcp6 watch temp file",
    "HOSTBASE: Failed to open dhcp6 watch temp file",
};

int hbs_file_copy(FILE *stream, const char *path) {
    constexpr size_t size = 65536;
    char *buffer = static_cast<char *>(calloc(1, size));
    if (buffer == nullptr)
        return -1;
    hbs_at_exit release([buffer] { free(buffer); });
    FILE *copy = stream != nullptr ? hbs_scratch_make(path) : nullptr;
    if (copy == nullptr)
        return 0;
    size_t count = fread(buffer, 1, size, stream);
    while (count > 0 && fwrite(buffer, 1, count, copy) > 0)
        count = fread(buffer, 1, size, stream);
    (void)fclose(copy);
    return 0;
}

namespace {

constexpr int MOST_COPIES = 16; // of a file that grows meanwhile

// Size of an open file in bytes, or -1.
int64_t size_of(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 ? int64_t{status.st_size} : -1;
}

bool is_plain_file(const char *path, struct stat *status) {
    return lstat(path, status) == 0 && S_ISREG(status->st_mode);
}

// Returns a copy of what is left of the file, open for reading, or -1 (logged).
int copy_once(FILE *stream, const hbs_notice_source *source) {
    const bool copied = hbs_file_copy(stream, source->temporary) == 0 && ferror(stream) == 0;
    const int copy = copied ? hbs_plain_open(source->temporary, O_RDONLY, 0) : -1;
    if (copy != -1)
        return copy;
    struct stat status;
    const bool is_there = copied && is_plain_file(source->temporary, &status);
    HBS_LOG(HBS_ERROR, "%s", is_there ? source->open_failed : source->copy_failed);
    return -1;
}

// hbs_file_copy is silent about a file that it could not write (a full disk), so the copy is measured. One
// that has all that was read is behind a server that writes without the lock: it is made again. Returns the
// copy, open for reading, or -1 (logged).
int open_copy(FILE *stream, const hbs_notice_source *source) {
    for (int left = MOST_COPIES; left > 0; left--) {
        const int copy = copy_once(stream, source);
        const int64_t size = size_of(copy);
        if (copy == -1 || size == size_of(fileno(stream)))
            return copy;
        (void)close(copy);
        if (size != lseek(fileno(stream), 0, SEEK_CUR))
            break;
        rewind(stream);
    }
    HBS_LOG(HBS_ERROR, "%s", source->copy_failed);
    return -1;
}

bool empty(FILE *stream, const char *path) {
    if (ftruncate(fileno(stream), 0) == 0)
        return true;
    HBS_LOG(HBS_ERROR, "HOSTBASE: error truncating notification file(%s): %s", path, strerror(errno));
    return false;
}

// Collects the bytes of a line.
struct line_collector {
    hbs_notice_reader reader;
    void *context;
    size_t length;
    size_t word; // length of the word that the line ends with now
    char text[HBS_NOTICE_LINE_MAX + 1];
};

void end_line(line_collector *line) {
    line->text[line->length] = '\0';
    if (line->length > 0)
        line->reader(line->text, line->context);
    line->length = line->word = 0;
}

void add_byte(line_collector *line, char byte) {
    if (byte == '\n' || byte == '\0') {
        end_line(line);
        return;
    }
    line->word = byte == ' ' || byte == '\t' ? 0 : line->word + 1;
    if (line->word <= HBS_NOTICE_WORD_MAX && line->length < HBS_NOTICE_LINE_MAX)
        line->text[line->length++] = byte;
}

void read_lines(int copy, const char *path, hbs_notice_reader reader, void *context) {
    static line_collector line;
    static char piece[4096];
    line.reader = reader;
    line.context = context;
    line.length = line.word = 0;
    ssize_t count;
    while ((count = read(copy, piece, sizeof piece)) > 0 || (count == -1 && errno == EINTR))
        for (ssize_t i = 0; i < count; i++)
            add_byte(&line, piece[i]);
    if (count == 0)
        end_line(&line);
    else
        HBS_LOG(HBS_ERROR, "HOSTBASE: error reading notification file(%s): %s", path, strerror(errno));
}

// Returns the copy that holds what the file held, or -1 when there is none. Closes the file: the server may
// write.
int take_copy(FILE *stream, const char *path, const hbs_notice_source *source, bool *again) {
    hbs_at_exit close_stream([stream] { (void)fclose(stream); });
    const int64_t size = size_of(fileno(stream));
    int copy = -1;
    if (size > HBS_NOTICE_FILE_MAX)
        HBS_LOG(HBS_ERROR, "HOSTBASE: notification file(%s) of %lld bytes is dropped: more than 16 MiB", path,
                static_cast<long long>(size));
    else
        copy = open_copy(stream, source);
    const bool done_with = copy != -1 || size > HBS_NOTICE_FILE_MAX;
    *again = !done_with || !empty(stream, path);
    return copy;
}

} // namespace

hbs_notice_taken hbs_notice_take(const char *path, const hbs_notice_source *source, hbs_notice_reader reader,
                                 void *context) {
    struct stat status;
    if (path == nullptr || (is_plain_file(path, &status) && status.st_size == 0))
        return {false, false};
    FILE *stream = hbs_locked_open(path, "r+", hbs_lock::exclusive);
    if (stream == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error opening notification file(%s): %s", path, strerror(errno));
        return {false, true};
    }
    bool again = false;
    const int copy = take_copy(stream, path, source, &again);
    if (copy == -1)
        return {false, again};
    read_lines(copy, path, reader, context);
    (void)close(copy);
    return {true, again};
}

void hbs_notice_log_no_data() {
    HBS_LOG(HBS_ERROR, "HOSTBASE: SOMETHING WRONG? Got notification but there is no valid data in the file.");
}
