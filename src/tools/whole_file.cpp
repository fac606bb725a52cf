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

[[noreturn]] void fail(const std::string &path, const char *what, int reason = errno) {
    throw std::runtime_error(path + " " + what + ": " + strerror(reason));
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

// In a directory that anybody may write to, somebody put it there for us to find. The kernel keeps opens from
// such a file or link (fs.protected_regular, fs.protected_symlinks), but no rename, and nobody who follows
// links by himself.
bool is_planted(const std::filesystem::path &path, const struct stat &there) {
    constexpr mode_t open_to_all = S_ISVTX | S_IWOTH;
    struct stat around = {};
    const std::filesystem::path directory = path.parent_path();
    return stat(directory.empty() ? "." : directory.c_str(), &around) == 0 &&
           (around.st_mode & open_to_all) == open_to_all && there.st_uid != geteuid() &&
           there.st_uid != around.st_uid;
}

struct link_end {
    std::filesystem::path path;
    struct stat there;
    bool is_there, is_linked;
};

// Where the links lead, each of which has to be to trust, as what they lead to.
link_end end_of_links(const std::string &path) {
    constexpr int most_links = 40; // as the kernel
    link_end at = {path, {}, false, false};
    for (int i = 0; i <= most_links; i++) {
        at.is_there = lstat(at.path.c_str(), &at.there) == 0;
        if (at.is_there && is_planted(at.path, at.there))
            fail(path, "cannot be written", EACCES);
        if (!at.is_there || !S_ISLNK(at.there.st_mode))
            return at;
        at.is_linked = true;
        at.path = at.path.parent_path() / std::filesystem::read_symlink(at.path);
    }
    fail(path, "cannot be written", ELOOP);
}

std::string without_links(const std::filesystem::path &path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    return error ? path : real;
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
    const link_end at = end_of_links(path);
    if (!at.is_there && !at.is_linked)
        replace(path, text, nullptr);
    else if (!at.is_there || !S_ISREG(at.there.st_mode))
        write_into(path, text);
    else
        replace(without_links(at.path), text, &at.there);
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
