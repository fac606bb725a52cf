// Line edits of text files: read whole, changed in memory, written beside, synced and renamed over.
#include "base/line_edit.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/locked_file.h"
#include "base/log.h"
#include "base/plain_file.h"
#include "base/scope.h"

namespace {

constexpr const char *LEFTOVER_SUFFIX = ".hbs-new";
constexpr mode_t PRIVATE_MODE = 0600;

struct file_name {
    char text[PATH_MAX];
};

// A growing text; `failed` stays set once memory ran out.
struct text_buffer {
    char *data = nullptr;
    size_t length = 0;
    size_t capacity = 0;
    bool failed = false;
    text_buffer() = default;
    text_buffer(const text_buffer &) = delete;
    text_buffer &operator=(const text_buffer &) = delete;
    ~text_buffer() { free(data); }
};

// Text that a line is compared with, what it becomes, and how many lines were found (counted for deletions
// by content only).
struct fixed_edit {
    const char *text;
    size_t length;
    const char *replacement;
    size_t matches;
};

bool reserve(text_buffer *buffer, size_t more) {
    if (buffer->capacity - buffer->length >= more)
        return true;
    const size_t capacity = std::max(buffer->capacity * 2, buffer->length + more);
    char *data = static_cast<char *>(realloc(buffer->data, capacity));
    buffer->failed = buffer->failed || data == nullptr;
    if (data == nullptr)
        return false;
    buffer->data = data;
    buffer->capacity = capacity;
    return true;
}

void add(text_buffer *buffer, const char *text, size_t length) {
    if (!reserve(buffer, length) || length == 0)
        return;
    memcpy(buffer->data + buffer->length, text, length);
    buffer->length += length;
}

bool read_whole(FILE *stream, text_buffer *content) {
    while (reserve(content, 4096)) {
        const size_t count = fread(content->data + content->length, 1, 4096, stream);
        content->length += count;
        if (count == 0)
            return ferror(stream) == 0;
    }
    errno = ENOMEM;
    return false;
}

bool leftover_name(const char *path, file_name *name) {
    const int length = snprintf(name->text, sizeof name->text, "%s%s", path, LEFTOVER_SUFFIX);
    const bool fits = length > 0 && static_cast<size_t>(length) < sizeof name->text;
    if (!fits)
        errno = ENAMETOOLONG;
    return fits;
}

bool write_whole(int descriptor, const char *content, size_t length) {
    while (length > 0) {
        const ssize_t count = write(descriptor, content, length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        content += count;
        length -= static_cast<size_t>(count);
    }
    return true;
}

// Writes and syncs a new file with the mode and owner of the one that it is to replace.
bool write_file(const char *path, const struct stat *old, const char *content, size_t length) {
    const mode_t mode = old != nullptr ? old->st_mode & 07777 : PRIVATE_MODE;
    const int descriptor = hbs_plain_open(path, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (descriptor == -1)
        return false;
    if (old != nullptr) {
        (void)!fchown(descriptor, old->st_uid, old->st_gid); // refused to an ordinary user: then it is his
        (void)fchmod(descriptor, mode);                      // past the umask
    }
    const bool written = write_whole(descriptor, content, length) && fsync(descriptor) == 0;
    const int reason = errno;
    const bool closed = close(descriptor) == 0;
    if (!written)
        errno = reason;
    return written && closed;
}

int not_replaced(const char *path, int error) {
    HBS_LOG(HBS_ERROR, "HOSTBASE: can't replace %s (error %d)", path, error);
    return -1;
}

int replace_file(const char *path, const struct stat *old, const char *content, size_t length) {
    file_name beside;
    bool done = leftover_name(path, &beside);
    if (done) {
        (void)unlink(beside.text);
        done = write_file(beside.text, old, content, length) && rename(beside.text, path) == 0;
    }
    if (!done) {
        const int result = not_replaced(path, errno);
        hbs_file_clear_leftover(path);
        return result;
    }
    hbs_directory_sync(path);
    return 0;
}

// Sends every line of `content` through the editor into `edited`. Returns whether anything changed.
bool edit_content(const text_buffer *content, hbs_line_editor edit, void *context, text_buffer *edited) {
    bool changed = false;
    const char *end = content->data + content->length;
    for (const char *line = content->data; line != end;) {
        const char *newline = static_cast<const char *>(memchr(line, '\n', static_cast<size_t>(end - line)));
        const char *line_end = newline != nullptr ? newline : end;
        const char *next = newline != nullptr ? newline + 1 : end;
        const char *replacement = "";
        switch (edit(line, static_cast<size_t>(line_end - line), &replacement, context)) {
        case hbs_line_action::keep:
            add(edited, line, static_cast<size_t>(next - line));
            break;
        case hbs_line_action::drop:
            changed = true;
            break;
        case hbs_line_action::replace:
            add(edited, replacement, strlen(replacement));
            add(edited, line_end, static_cast<size_t>(next - line_end));
            changed = true;
            break;
        }
        line = next;
    }
    return changed;
}

// Opens and locks the file, clears what an interrupted edit left beside it, and reads it.
FILE *open_for_edit(const char *path, struct stat *status, text_buffer *content) {
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::exclusive);
    if (stream == nullptr)
        return nullptr;
    hbs_file_clear_leftover(path);
    if (fstat(fileno(stream), status) == 0 && read_whole(stream, content))
        return stream;
    const int reason = errno;
    (void)fclose(stream);
    errno = reason;
    return nullptr;
}

} // namespace

int hbs_lines_edit(const char *path, hbs_line_editor edit, void *context) {
    struct stat status;
    text_buffer content;
    FILE *stream = open_for_edit(path, &status, &content);
    if (stream == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't edit %s (error %d)", path, errno);
        return -1;
    }
    hbs_at_exit unlock([&] { (void)fclose(stream); });
    text_buffer edited;
    const bool changed = edit_content(&content, edit, context, &edited);
    if (edited.failed) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't edit %s (error %d)", path, ENOMEM);
        return -1;
    }
    return changed ? replace_file(path, &status, edited.data, edited.length) : 0;
}

int hbs_lines_append(const char *path, const char *line) {
    struct stat status;
    text_buffer content;
    FILE *stream = open_for_edit(path, &status, &content);
    if (stream == nullptr && errno != ENOENT) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't edit %s (error %d)", path, errno);
        return -1;
    }
    hbs_at_exit unlock([&] {
        if (stream != nullptr)
            (void)fclose(stream);
    });
    if (content.length > 0 && content.data[content.length - 1] != '\n')
        add(&content, "\n", 1);
    add(&content, line, strlen(line));
    add(&content, "\n", 1);
    if (content.failed) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't edit %s (error %d)", path, ENOMEM);
        return -1;
    }
    return replace_file(path, stream != nullptr ? &status : nullptr, content.data, content.length);
}

namespace {

hbs_line_action replace_equal(const char *line, size_t length, const char **replacement, void *context) {
    const auto *wanted = static_cast<const fixed_edit *>(context);
    *replacement = wanted->replacement;
    // A damaged line ends at a NUL in it, as it does for the look-up that found it.
    const bool equal =
        strnlen(line, length) == wanted->length && memcmp(line, wanted->text, wanted->length) == 0;
    return equal ? hbs_line_action::replace : hbs_line_action::keep;
}

hbs_line_action drop_prefix(const char *line, size_t length, const char **, void *context) {
    const auto *wanted = static_cast<const fixed_edit *>(context);
    const bool begins = length >= wanted->length && memcmp(line, wanted->text, wanted->length) == 0;
    return begins ? hbs_line_action::drop : hbs_line_action::keep;
}

hbs_line_action drop_containing(const char *line, size_t length, const char **, void *context) {
    auto *wanted = static_cast<fixed_edit *>(context);
    if (memmem(line, length, wanted->text, wanted->length) == nullptr)
        return hbs_line_action::keep;
    ++wanted->matches;
    return hbs_line_action::drop;
}

} // namespace

int hbs_lines_replace(const char *path, const char *old_line, const char *new_line) {
    fixed_edit wanted = {old_line, strlen(old_line), new_line, 0};
    return hbs_lines_edit(path, replace_equal, &wanted);
}

int hbs_lines_delete_prefix(const char *path, const char *prefix) {
    fixed_edit wanted = {prefix, strlen(prefix), nullptr, 0};
    return hbs_lines_edit(path, drop_prefix, &wanted);
}

int hbs_lines_delete_containing(const char *path, const char *text, size_t *deleted) {
    fixed_edit wanted = {text, strlen(text), nullptr, 0};
    const int result = hbs_lines_edit(path, drop_containing, &wanted);
    if (deleted != nullptr)
        *deleted = result == 0 ? wanted.matches : 0;
    return result;
}

int hbs_file_replace(const char *path, const char *content, size_t length) {
    if (content == nullptr)
        return not_replaced(path, ENOMEM);
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::exclusive);
    if (stream == nullptr && errno == ENOENT)
        return replace_file(path, nullptr, content, length);
    if (stream == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't edit %s (error %d)", path, errno);
        return -1;
    }
    hbs_at_exit unlock([&] { (void)fclose(stream); });
    struct stat status;
    const bool known = fstat(fileno(stream), &status) == 0;
    return replace_file(path, known ? &status : nullptr, content, length);
}

namespace {

// Whether a file of that size ends in the middle of a line. False when it cannot be read.
bool is_torn(int descriptor, off_t size) {
    char last = '\n';
    return size > 0 && pread(descriptor, &last, 1, size - 1) == 1 && last != '\n';
}

// Adds a line and syncs; what did not get there whole is taken back.
bool add_line(int descriptor, const char *line) {
    const off_t before = lseek(descriptor, 0, SEEK_END);
    text_buffer text;
    if (before > 0 && is_torn(descriptor, before))
        add(&text, "\n", 1);
    add(&text, line, strlen(line));
    add(&text, "\n", 1);
    if (text.failed)
        errno = ENOMEM;
    if (before < 0 || text.failed)
        return false;
    if (write_whole(descriptor, text.data, text.length) && fsync(descriptor) == 0)
        return true;
    const int reason = errno;
    (void)!ftruncate(descriptor, before);
    errno = reason;
    return false;
}

} // namespace

int hbs_line_append_in_place(const char *path, const char *line, mode_t mode) {
    const bool is_new = access(path, F_OK) != 0;
    const int descriptor =
        hbs_locked_descriptor(path, O_RDWR | O_CREAT | O_APPEND, mode, hbs_lock::exclusive);
    if (descriptor == -1 || !add_line(descriptor, line)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't edit %s (error %d)", path, errno);
        if (descriptor != -1)
            (void)close(descriptor);
        return -1;
    }
    if (is_new)
        hbs_directory_sync(path);
    return close(descriptor) == 0 ? 0 : -1;
}

int hbs_file_tail(const char *path) {
    const int descriptor = hbs_plain_open(path, O_RDONLY, 0);
    if (descriptor == -1)
        return errno == ENOENT ? 0 : -1;
    const bool torn = is_torn(descriptor, lseek(descriptor, 0, SEEK_END));
    (void)close(descriptor);
    return torn ? 1 : 0;
}

void hbs_directory_sync(const char *path) {
    file_name directory;
    (void)snprintf(directory.text, sizeof directory.text, "%s", path);
    char *slash = strrchr(directory.text, '/');
    if (slash == nullptr)
        (void)snprintf(directory.text, sizeof directory.text, ".");
    else
        slash[slash == directory.text ? 1 : 0] = 0;
    const int descriptor = open(directory.text, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1 || fsync(descriptor) != 0)
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't sync %s (error %d)", directory.text, errno);
    if (descriptor != -1)
        (void)close(descriptor);
}

void hbs_file_make_private(const char *path) {
    const int descriptor = hbs_plain_open(path, O_RDONLY, 0);
    if (descriptor == -1)
        return;
    (void)fchmod(descriptor, PRIVATE_MODE);
    (void)close(descriptor);
}

void hbs_file_clear_leftover(const char *path) {
    file_name beside;
    if (leftover_name(path, &beside))
        (void)unlink(beside.text);
}
