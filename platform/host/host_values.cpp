// The text file of values: `key = value` lines, read again whenever the file has changed.
#include "host_values.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host_places.h"

namespace {

constexpr off_t largest_file = 4194304; // 4 MiB
constexpr size_t largest_key = 128;
constexpr char fail_prefix[] = "fail.";

// Where the kernel does not tell of changes: a file that changed so lately could change again and keep its
// time stamp, which is as coarse as the kernel's tick. It is read again until its time stamp is this old.
constexpr int64_t settling_ns = 100000000;

pthread_mutex_t values_mutex = PTHREAD_MUTEX_INITIALIZER;
void (*on_change)(); // null = nobody asked
uint32_t edition;
std::atomic<bool> some_fail; // the newest file's `failures`, for those who have no hold

struct {
    char *text;          // the file's text, cut into keys and values in place
    host_entry *entries; // in the file's order, keys in lower case
    size_t count;
    uint32_t *last_of; // the place in `entries`, counted from 1, of each key's last line; 0 = free
    size_t mask;       // of a place in `last_of`, which is a power of two and never full
    bool failures;     // some call is told to fail
    struct stat seen;  // of the file that the entries come from
    bool settled;      // the entries hold as long as the file looks like `seen`
} table;

int64_t nanoseconds(const timespec &time) {
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           nanoseconds(a.st_mtim) == nanoseconds(b.st_mtim) &&
           nanoseconds(a.st_ctim) == nanoseconds(b.st_ctim);
}

bool has_settled(const struct stat &file) {
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return nanoseconds(now) - nanoseconds(file.st_mtim) > settling_ns &&
           nanoseconds(now) - nanoseconds(file.st_ctim) > settling_ns;
}

void forget() {
    free(table.text);
    free(table.entries);
    free(table.last_of);
    table = {};
}

void lower(char *text) {
    for (; *text != '\0'; text++)
        if (*text >= 'A' && *text <= 'Z')
            *text = static_cast<char>(*text - 'A' + 'a');
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Removes the blanks at both ends in place; returns the new start.
char *trim(char *start) {
    while (is_blank(*start))
        start++;
    size_t length = strlen(start);
    while (length > 0 && is_blank(start[length - 1]))
        start[--length] = '\0';
    return start;
}

// A comment begins with a '#' at the start of the line or behind a blank.
void cut_comment(char *line) {
    for (char *mark = strchr(line, '#'); mark != nullptr; mark = strchr(mark + 1, '#')) {
        if (mark == line || is_blank(mark[-1])) {
            *mark = '\0';
            return;
        }
    }
}

// FNV-1a.
size_t hash_of(const char *key) {
    uint32_t hash = 2166136261U;
    for (; *key != '\0'; key++)
        hash = (hash ^ static_cast<unsigned char>(*key)) * 16777619U;
    return hash;
}

// Where a key stands, or would stand.
uint32_t *place_of(const char *key) {
    size_t place = hash_of(key) & table.mask;
    while (table.last_of[place] != 0 && strcmp(table.entries[table.last_of[place] - 1].key, key) != 0)
        place = (place + 1) & table.mask;
    return &table.last_of[place];
}

// The last line of a key in lower case, or null.
const char *look_up(const char *key) {
    const uint32_t last = table.count == 0 ? 0 : *place_of(key);
    return last == 0 ? nullptr : table.entries[last - 1].value;
}

// Room for so many lines.
bool make_room(size_t lines) {
    size_t places = 2;
    while (places < 2 * lines)
        places *= 2;
    table.entries = static_cast<host_entry *>(calloc(lines, sizeof(host_entry)));
    table.last_of = static_cast<uint32_t *>(calloc(places, sizeof(uint32_t)));
    table.mask = places - 1;
    return table.entries != nullptr && table.last_of != nullptr;
}

void take_line(char *line) {
    cut_comment(line);
    char *equals = strchr(line, '=');
    if (equals == nullptr)
        return;
    *equals = '\0';
    char *key = trim(line);
    if (*key == '\0')
        return;
    lower(key);
    table.failures = table.failures || strncmp(key, fail_prefix, strlen(fail_prefix)) == 0;
    table.entries[table.count++] = {key, trim(equals + 1)};
    *place_of(key) = static_cast<uint32_t>(table.count);
}

// Cuts the text (size bytes and a NUL) into entries. A line with a NUL in it is none.
bool take_text(char *text, size_t size) {
    size_t lines = 1;
    for (size_t i = 0; i < size; i++)
        lines += text[i] == '\n';
    if (!make_room(lines))
        return false;
    char *end = text + size;
    for (char *line = text; line < end;) {
        char *newline = static_cast<char *>(memchr(line, '\n', static_cast<size_t>(end - line)));
        char *stop = newline != nullptr ? newline : end;
        *stop = '\0';
        if (line + strlen(line) == stop)
            take_line(line);
        line = stop + 1;
    }
    return true;
}

// Reads up to size bytes; returns how many there were, or -1.
ssize_t read_whole(int fd, char *text, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t part = read(fd, text + done, size - done);
        if (part < 0 && errno == EINTR)
            continue;
        if (part < 0)
            return -1;
        if (part == 0)
            break;
        done += static_cast<size_t>(part);
    }
    return static_cast<ssize_t>(done);
}

void load(int fd) {
    if (fstat(fd, &table.seen) != 0 || !S_ISREG(table.seen.st_mode) || table.seen.st_size > largest_file)
        return;
    table.settled = host_place_is_watched(host_place::values) || has_settled(table.seen);
    size_t size = static_cast<size_t>(table.seen.st_size);
    table.text = static_cast<char *>(malloc(size + 1));
    if (table.text == nullptr)
        return;
    ssize_t length = read_whole(fd, table.text, size);
    if (length < 0 || !take_text(table.text, static_cast<size_t>(length)))
        forget();
}

// Returns whether the file was read. One that cannot be read counts as an empty one.
bool refresh() {
    if (!host_place_changed(host_place::values) && table.settled)
        return false;
    const char *path = host_place_path(host_place::values);
    struct stat now = {};
    bool there = stat(path, &now) == 0;
    if (there && table.text != nullptr && same_file(now, table.seen) && has_settled(now))
        return false;
    forget();
    edition++;
    int fd = there ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1;
    if (fd >= 0) {
        load(fd);
        (void)close(fd);
    }
    some_fail = table.failures;
    return true;
}

} // namespace

host_values_hold::host_values_hold() {
    (void)pthread_mutex_lock(&values_mutex);
    void (*tell)() = refresh() ? on_change : nullptr;
    if (tell != nullptr)
        tell();
}

host_values_hold::~host_values_hold() {
    (void)pthread_mutex_unlock(&values_mutex);
}

void host_values_on_change(void (*function)()) {
    host_values_hold hold;
    on_change = function;
    function();
}

uint32_t host_values_edition() {
    return edition;
}

const char *host_value(const char *key) {
    return look_up(key);
}

const char *host_value_with(const char *key_format, ...) {
    char key[largest_key];
    va_list arguments;
    va_start(arguments, key_format);
    int length = vsnprintf(key, sizeof key, key_format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= sizeof key)
        return nullptr;
    lower(key);
    return look_up(key);
}

const char *host_value_of_mac(const char *prefix, const uint8_t mac[6]) {
    static constexpr char digits[] = "0123456789abcdef";
    char key[largest_key];
    const size_t length = strlen(prefix);
    if (length + 18 > sizeof key)
        return nullptr;
    memcpy(key, prefix, length + 1);
    for (size_t i = 0; i < 6; i++) {
        char *at = key + length + 3 * i;
        at[0] = digits[mac[i] >> 4];
        at[1] = digits[mac[i] & 15];
        at[2] = i < 5 ? ':' : '\0';
    }
    return look_up(key);
}

const host_entry *host_entry_at(size_t index) {
    return index < table.count ? &table.entries[index] : nullptr;
}

const char *host_key_after(const host_entry *entry, const char *prefix) {
    size_t length = strlen(prefix);
    return strncmp(entry->key, prefix, length) == 0 ? entry->key + length : nullptr;
}

bool host_told_to_fail(const char *call, int *result) {
    const char *text = table.failures ? host_value_with("%s%s", fail_prefix, call) : nullptr;
    if (text == nullptr)
        return false;
    int64_t number = -1;
    (void)common_text_to_number(text, INT32_MIN, INT32_MAX, &number);
    *result = static_cast<int>(number);
    return true;
}

bool host_call_fails(const char *call, int *result) {
    if (!some_fail && host_place_is_still(host_place::values))
        return false; // nothing was told since the thread looked
    host_values_hold hold;
    return host_told_to_fail(call, result);
}
