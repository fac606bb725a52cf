#include "tools/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t usual_mode = 0666; // which the umask cuts
constexpr mode_t kept_bits = 0777;

[[noreturn]] void fail(const std::string &path, const char *what) {
    throw std::runtime_error(path + " " + what + ": " + strerror(errno));
}

// Closes what it holds, and leaves errno alone.
class descriptor {
  public:
    descriptor(const std::string &path, int flags)
        : fd_(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, usual_mode)) {}
    ~descriptor() {
        const int reason = errno;
        if (fd_ != -1)
            (void)close(fd_);
        errno = reason;
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    operator int() const { return fd_; }

  private:
    int fd_;
};

void write_into(const std::string &path, const std::string &text) {
    const descriptor file(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (file == -1 || !write_all(file, text))
        fail(path, "cannot be written");
}

// A new file, which is on the disk when this returns. `like`: the one that it is to replace; null: none.
bool write_new(const std::string &path, const std::string &text, const struct stat *like) {
    const descriptor file(path, O_WRONLY | O_CREAT | O_EXCL);
    if (file == -1)
        return false;
    if (like != nullptr) {
        (void)!fchown(file, like->st_uid, like->st_gid); // only root may
        if (fchmod(file, like->st_mode & kept_bits) != 0)
            return false;
    }
    return write_all(file, text) && fsync(file) == 0;
}

void replace(const std::string &path, const std::string &text, const struct stat *like) {
    const std::string beside = path + ".new" + std::to_string(getpid());
    if (write_new(beside, text, like) && rename(beside.c_str(), path.c_str()) == 0)
        return;
    const int reason = errno;
    if (reason != EEXIST) // that one is another's
        (void)unlink(beside.c_str());
    errno = reason;
    fail(path, "cannot be written");
}

} // namespace

bool write_all(int fd, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR)
            return false;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

void write_whole_file(const std::string &path, const std::string &text) {
    struct stat there = {};
    if (lstat(path.c_str(), &there) != 0) {
        replace(path, text, nullptr);
        return;
    }
    std::error_code error;
    const std::string real = std::filesystem::canonical(path, error);
    if (error || stat(real.c_str(), &there) != 0 || !S_ISREG(there.st_mode))
        write_into(path, text); // among them a link to what is not there yet
    else
        replace(real, text, &there);
}

std::optional<std::string> file_text(const std::string &path) {
    const descriptor file(path, O_RDONLY);
    if (file == -1)
        return std::nullopt;
    std::string text;
    char block[16384];
    ssize_t count = 0;
    while ((count = read(file, block, sizeof block)) > 0)
        text.append(block, static_cast<size_t>(count));
    return count == 0 ? std::optional(text) : std::nullopt;
}

std::string read_whole_file(const std::string &path) {
    const std::optional<std::string> text = file_text(path);
    if (!text)
        fail(path, "cannot be read");
    return *text;
}
