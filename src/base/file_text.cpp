#include "base/file_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/log.h"
#include "base/plain_file.h"

namespace {

constexpr int ATTEMPTS = 3;

bool is_missing(int reason) {
    return reason == ENOENT || reason == ENOTDIR || reason == ELOOP || reason == EISDIR || reason == EINVAL;
}

// False at the end, with the bytes that were read added to the length.
bool read_more(int descriptor, size_t size, hbs_file_text *text, bool *failed) {
    const ssize_t count = read(descriptor, text->data + text->length, size - text->length);
    if (count < 0 && errno == EINTR)
        return true;
    *failed = count < 0;
    text->length += count > 0 ? static_cast<size_t>(count) : 0;
    return count > 0 && text->length < size;
}

// Returns whether all of it was read; errno tells why not.
bool read_whole(int descriptor, size_t most, hbs_file_text *text) {
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return false;
    const size_t size = std::min(static_cast<size_t>(status.st_size), most);
    text->data = static_cast<char *>(malloc(size + 1));
    if (text->data == nullptr)
        return false;
    bool failed = false;
    while (size > 0 && read_more(descriptor, size, text, &failed)) {}
    text->data[text->length] = '\0';
    return !failed;
}

void empty(hbs_file_text *text) {
    free(text->data);
    text->data = nullptr;
    text->length = 0;
}

hbs_file_read try_to_read(const char *path, size_t most, hbs_file_text *text) {
    const int descriptor = hbs_plain_open(path, O_RDONLY, 0);
    if (descriptor == -1)
        return is_missing(errno) ? hbs_file_read::missing : hbs_file_read::failed;
    const bool whole = read_whole(descriptor, most, text);
    hbs_close_keeping_errno(descriptor);
    if (whole)
        return hbs_file_read::done;
    empty(text);
    return hbs_file_read::failed;
}

} // namespace

hbs_file_text::~hbs_file_text() {
    free(data);
}

hbs_file_read hbs_file_text_read(const char *path, size_t most, hbs_file_text *text) {
    hbs_file_read result = hbs_file_read::failed;
    for (int i = 0; i < ATTEMPTS && result == hbs_file_read::failed; i++)
        result = try_to_read(path, most, text);
    if (result == hbs_file_read::failed)
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't read %s (error %d)", path, errno);
    return result;
}

char *hbs_file_text_line(hbs_file_text *text) {
    if (text->next > 0)
        text->data[text->next] = text->covered;
    if (text->next >= text->length)
        return nullptr;
    char *line = text->data + text->next;
    const void *newline = memchr(line, '\n', text->length - text->next);
    text->next = newline == nullptr
                     ? text->length
                     : static_cast<size_t>(static_cast<const char *>(newline) - text->data) + 1;
    text->covered = text->data[text->next];
    text->data[text->next] = '\0';
    return line;
}
