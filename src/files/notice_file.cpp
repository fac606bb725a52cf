#include "files/notice_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/locked_file.h"
#include "base/log.h"
#include "base/scope.h"

const hbs_notice_source hbs_dhcpv4_notice_source = {
    "/var/tmp/hbs_watch_file.tmp",
    "HOSTBASE: Failed to copy to dhcp4 watch temp file",
    "HOSTBASE: Failed to open dhcp4 watch temp file",
};

const hbs_notice_source hbs_dhcpv6_notice_source = {
    "/var/tmp/hbs_watch_file_v6.tmp",
    "HOSTBASE: Failed to copy to dhcp6 watch temp file",
    "HOSTBASE: Failed to open dhcp6 watch temp file",
};

int hbs_file_copy(FILE *stream, const char *path) {
    constexpr size_t size = 65536;
    char *buffer = static_cast<char *>(calloc(1, size));
    if (buffer == nullptr)
        return -1;
    hbs_at_exit release([buffer] { free(buffer); });
    FILE *copy = stream != nullptr ? fopen(path, "wbe") : nullptr;
    if (copy == nullptr)
        return 0;
    size_t count = fread(buffer, 1, size, stream);
    while (count > 0 && fwrite(buffer, 1, count, copy) > 0)
        count = fread(buffer, 1, size, stream);
    (void)fclose(copy);
    return 0;
}

// Size of a file in bytes, or -1.
static int64_t size_of(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode) ? int64_t{status.st_size} : -1;
}

// hbs_file_copy is silent about a file that it could not write (a full disk), so the copy is measured.
static bool copied_whole(FILE *stream, const char *copy) {
    if (hbs_file_copy(stream, copy) != 0 || ferror(stream) != 0)
        return false;
    struct stat original;
    return fstat(fileno(stream), &original) == 0 && size_of(copy) == int64_t{original.st_size};
}

// A file that is closed full is an event again, which brings the next try. It must not come at once, or the
// thread and the log would know nothing else; meanwhile the server may write.
static void pause_before_retry(FILE *stream) {
    (void)flock(fileno(stream), LOCK_UN);
    const timespec pause = {1, 0};
    (void)nanosleep(&pause, nullptr);
}

char *hbs_notice_take(const char *path, const hbs_notice_source *source) {
    if (path == nullptr || size_of(path) == 0)
        return nullptr;
    FILE *stream = hbs_locked_open(path, "r+", hbs_lock::exclusive);
    if (stream == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: error opening notification file(%s): %s", path, strerror(errno));
        return nullptr;
    }
    {
        hbs_at_exit close([stream] { (void)fclose(stream); });
        if (!copied_whole(stream, source->temporary)) {
            HBS_LOG(HBS_ERROR, "%s", source->copy_failed);
            pause_before_retry(stream);
            return nullptr;
        }
        if (ftruncate(fileno(stream), 0) != 0) {
            HBS_LOG(HBS_ERROR, "HOSTBASE: error truncating notification file(%s): %s", path, strerror(errno));
            pause_before_retry(stream);
        }
        (void)flock(fileno(stream), LOCK_UN);
    }
    return hbs_notice_read(source);
}

char *hbs_notice_read(const hbs_notice_source *source) {
    FILE *stream = fopen(source->temporary, "re");
    if (stream == nullptr) {
        HBS_LOG(HBS_ERROR, "%s", source->open_failed);
        return nullptr;
    }
    hbs_at_exit close([stream] { (void)fclose(stream); });
    (void)fseeko(stream, 0, SEEK_END);
    const auto size = static_cast<uint64_t>(std::max<off_t>(ftello(stream), 0));
    rewind(stream);
    char *text = size < SIZE_MAX / 2 ? static_cast<char *>(malloc(static_cast<size_t>(size) + 1)) : nullptr;
    if (text == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Fail to malloc buffer for tmp file\n");
        return nullptr;
    }
    const size_t count = fread(text, 1, static_cast<size_t>(size), stream);
    std::replace(text, text + count, '\0', '\n');
    text[count] = '\0';
    return text;
}
