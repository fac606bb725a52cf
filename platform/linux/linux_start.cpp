// Before the program's main function: the directories that it needs, and the group that may read the
// database.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <hbs_db.h>

namespace {

constexpr const char *group_name = "hostbase";
constexpr mode_t group_only = 0007;
// A service may be forbidden the bit for the group: then what others make is their own group's.
constexpr mode_t rights = 0777;

// The DHCP server, another user, reads a file in the persistent one.
// Senders of commands put their own sockets into "tmp", so the group may write there, and what is made there
// is the group's.
constexpr struct {
    const char *path;
    mode_t mode;
} directories[] = {
    {HBS_RUNTIME_DIR, 0750},
    {HBS_RUNTIME_DIR "/tmp", 02770},
    {HBS_RUNTIME_DIR "/lib", 0750},
    {HBS_RUNTIME_DIR "/lib/misc", 0750},
    {HBS_RUNTIME_DIR "/lib/dibbler", 0750},
    {HBS_PERSISTENT_DIR, 0751},
    {HBS_PERSISTENT_DIR "/dhcpd", 0750},
};

// By the group's own rights the segment, the semaphore and the socket become the group's.
void take_group() {
    const group *entry = geteuid() == 0 ? getgrnam(group_name) : nullptr;
    if (entry != nullptr)
        (void)!setegid(entry->gr_gid); // in a user namespace there may be no other group
}

// Whether the program was called with words: it answers them and ends.
bool is_asked_only() {
    char words[4096];
    const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    const ssize_t length = fd >= 0 ? read(fd, words, sizeof words) : -1;
    if (fd >= 0)
        (void)close(fd);
    return length > 0 && strnlen(words, static_cast<size_t>(length)) + 1 < static_cast<size_t>(length);
}

__attribute__((constructor)) void prepare() {
    if (is_asked_only())
        return;
    take_group();
    (void)umask(group_only);
    for (const auto &directory : directories)
        if (mkdir(directory.path, directory.mode & rights) == 0)
            (void)chmod(directory.path, directory.mode);
}

} // namespace
