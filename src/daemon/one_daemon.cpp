#include "daemon/one_daemon.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/counters.h"
#include "base/paths.h"

namespace {

// How often something that another user put in the file's place is cleared away.
constexpr int PATIENCE_WITH_OTHERS = 8;

constexpr uid_t NOBODY = static_cast<uid_t>(-1);

// The owner of the file's directory, whose word counts there; NOBODY where everybody may put files.
uid_t owner_of_the_place() {
    struct stat status {};
    return lstat(HBS_SCRATCH_DIR, &status) == 0 && (status.st_mode & S_IWOTH) == 0 ? status.st_uid : NOBODY;
}

// No stranger can open such a file, so none can hold its lock.
bool is_private_file(const struct stat *status) {
    return S_ISREG(status->st_mode) && (status->st_mode & 077) == 0 &&
           (status->st_uid == geteuid() || status->st_uid == owner_of_the_place());
}

// A file that root makes where the daemon runs as a user of its own is that user's: its next daemon has to
// see the lock. Returns the file.
int give_to_the_owner(int file) {
    const uid_t owner = owner_of_the_place();
    if (file >= 0 && owner != NOBODY && owner != geteuid())
        (void)!fchown(file, owner, static_cast<gid_t>(-1)); // else that one does as with a stranger's
    return file;
}

int open_existing() {
    const int file = open(HBS_LOCK_FILE, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status {};
    if (file >= 0 && fstat(file, &status) == 0 && is_private_file(&status))
        return file;
    if (file >= 0)
        (void)close(file);
    return -1;
}

// The directory may be open to everybody: what lies there under this name and is not private goes.
int open_lock_file() {
    for (int i = 0; i < PATIENCE_WITH_OTHERS; i++) {
        int file = open_existing();
        if (file >= 0)
            return file;
        file = open(HBS_LOCK_FILE, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (file >= 0)
            return give_to_the_owner(file);
        if (errno != EEXIST)
            return -1;
        if (unlink(HBS_LOCK_FILE) != 0 && errno != ENOENT && rmdir(HBS_LOCK_FILE) != 0)
            return -1;
    }
    errno = EEXIST;
    return -1;
}

struct flock whole_file() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// The pid of the lock's holder, or -1 when it has let go since.
pid_t holder_of(int file) {
    struct flock lock = whole_file();
    if (fcntl(file, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return -1;
    return lock.l_pid > 0 ? lock.l_pid : 0;
}

hbs_claim claim(int file, pid_t *running) {
    constexpr int step_ms = 10;
    constexpr timespec step = {0, step_ms * 1000000L};
    struct flock lock = whole_file();
    *running = 0;
    for (int waited = 0;; waited += step_ms) {
        if (fcntl(file, F_SETLK, &lock) == 0)
            return hbs_claim::own;
        if (errno != EACCES && errno != EAGAIN)
            return hbs_claim::impossible;
        const pid_t holder = holder_of(file);
        if (holder >= 0)
            *running = holder;
        if (waited >= HBS_CLAIM_PATIENCE_MS)
            return hbs_claim::taken;
        (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &step, nullptr);
    }
}

} // namespace

hbs_claim hbs_claim_daemon(pid_t *running) {
    const int file = open_lock_file();
    if (file < 0)
        return hbs_claim::impossible;
    const hbs_claim result = claim(file, running);
    if (result == hbs_claim::own) {
        (void)hbs_counters_share(file, HBS_VERSION); // without room the daemon does all the same
    } else {                                         // closed, it would give the lock up
        const int reason = errno;
        (void)close(file);
        errno = reason;
    }
    return result;
}
