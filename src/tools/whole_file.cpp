#include "tools/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "base/plain_file.h"
#include "base/router_paths.h"

namespace {

constexpr mode_t usual_mode = 0666; // which the umask cuts
constexpr mode_t kept_bits = 0777;
constexpr size_t most_of_others = 64 << 20; // 700,000 renewals that a server has not tidied up yet

[[noreturn]] void fail(const std::string &path, const char *what, int reason) {
    throw std::runtime_error(path + " " + what + ": " + strerror(reason));
}

// Closes what it holds, and leaves errno alone.
class descriptor {
  public:
    descriptor(const std::string &path, int flags)
        : fd_(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, usual_mode)) {}
    explicit descriptor(int fd) : fd_(fd) {}
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
        fail(path, "cannot be written", errno);
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

// Of whom the DHCP server's files are, where he has a user of his own.
bool is_servers(uid_t user) {
    passwd entry = {}, *found = nullptr;
    char texts[4096];
    return getpwnam_r(HBS_ROUTER_DNSMASQ_USER, &entry, texts, sizeof texts, &found) == 0 &&
           found != nullptr && found->pw_uid == user;
}

struct link_end {
    std::filesystem::path path;
    struct stat there;
    bool is_there, is_linked;
    int objection; // why it is not to be used; 0: none
};

// Where the links lead, each of which has to be to trust, as what they lead to.
link_end end_of_links(const std::string &path) {
    constexpr int most_links = 40; // as the kernel
    link_end at = {path, {}, false, false, 0};
    std::error_code error; // of a link that is gone meanwhile
    for (int i = 0; i <= most_links; i++) {
        at.is_there = lstat(at.path.c_str(), &at.there) == 0;
        at.objection = at.is_there && is_planted(at.path, at.there) ? EACCES : 0;
        if (!at.is_there || at.objection != 0 || !S_ISLNK(at.there.st_mode))
            return at;
        at.is_linked = true;
        at.path = at.path.parent_path() / std::filesystem::read_symlink(at.path, error);
    }
    at.objection = ELOOP;
    return at;
}

std::string without_links(const std::filesystem::path &path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    return error ? path : real;
}

// -1: none that is to be read.
int open_of_others(const std::string &path) {
    const link_end at = end_of_links(path);
    struct stat there = {};
    const int fd = hbs_plain_open(at.path.c_str(), O_RDONLY, 0); // no link that was objected to
    if (fd == -1 || (fstat(fd, &there) == 0 &&
                     (!is_planted(at.path, there) || there.st_uid == 0 || is_servers(there.st_uid))))
        return fd;
    (void)close(fd);
    return -1;
}

void replace(const std::string &path, const std::string &text, const struct stat *like) {
    const std::string beside = path + ".new" + std::to_string(getpid());
    if (write_new(beside, text, like) && rename(beside.c_str(), path.c_str()) == 0)
        return;
    const int reason = errno;
    if (reason != EEXIST) // that one is another's
        (void)unlink(beside.c_str());
    errno = reason;
    fail(path, "cannot be written", errno);
}

std::optional<std::string> text_in(int file, size_t most) {
    std::string text;
    char block[16384];
    ssize_t count = 0;
    while (text.size() <= most && (count = read(file, block, sizeof block)) > 0)
        text.append(block, static_cast<size_t>(count));
    return count == 0 ? std::optional(text) : std::nullopt;
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
    if (at.objection != 0)
        fail(path, "cannot be written", at.objection);
    if (!at.is_there && !at.is_linked)
        replace(path, text, nullptr);
    else if (!at.is_there || !S_ISREG(at.there.st_mode))
        write_into(path, text);
    else
        replace(without_links(at.path), text, &at.there);
}

std::optional<std::string> file_text(const std::string &path) {
    const descriptor file(path, O_RDONLY);
    return file == -1 ? std::nullopt : text_in(file, SIZE_MAX - 1);
}

std::optional<std::string> text_of_others(const std::string &path) {
    const descriptor file(open_of_others(path));
    return file == -1 ? std::nullopt : text_in(file, most_of_others);
}

std::optional<std::string> text_of_named(const std::string &path) {
    const descriptor file(path, O_RDONLY | O_NONBLOCK);
    struct stat there = {};
    const bool is_plain = file != -1 && fstat(file, &there) == 0 && S_ISREG(there.st_mode);
    return is_plain ? text_in(file, most_of_others) : std::nullopt;
}

std::string read_whole_file(const std::string &path) {
    const std::optional<std::string> text = file_text(path);
    if (!text)
        fail(path, "cannot be read", errno);
    return *text;
}
