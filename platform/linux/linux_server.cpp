#include "linux_server.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/types.h>

#include "linux_log.h"

namespace {

constexpr const char *server = "dnsmasq";
constexpr const char *processes_of_unit = "/sys/fs/cgroup/system.slice/dnsmasq.service/cgroup.procs";

// Instead of a process.
constexpr pid_t none = 0;     // no server runs
constexpr pid_t not_yet = -1; // to be asked again
constexpr pid_t never = -2;   // before somebody changes the file

enum class answer { no, yes, unknown }; // unknown: to be asked again

// What passes without anybody's doing.
bool is_lack(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

bool has_its_name(FILE *comm) {
    char name[16] = "";
    return fscanf(comm, "%15s", name) == 1 && strcmp(name, server) == 0;
}

answer is_of_unit(pid_t pid) {
    FILE *processes = fopen(processes_of_unit, "re");
    if (processes == nullptr)
        return is_lack(errno) ? answer::unknown : answer::no;
    int listed = 0;
    while (listed != pid && fscanf(processes, "%d", &listed) == 1) {}
    (void)fclose(processes);
    return listed == pid ? answer::yes : answer::no;
}

// A process number may be another program's by now. Where the processes of other users are hidden, the
// service manager's list of its processes says so.
answer is_server(pid_t pid) {
    char path[64];
    (void)snprintf(path, sizeof path, "/proc/%d/comm", static_cast<int>(pid));
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return is_lack(errno) ? answer::unknown : is_of_unit(pid);
    const bool is = has_its_name(file);
    (void)fclose(file);
    return is ? answer::yes : answer::no;
}

// An empty file is about to be written. errno says why it names nobody.
pid_t pid_in(FILE *file) {
    int pid = 0;
    if (fscanf(file, "%d", &pid) == 1 && pid > 1)
        return pid;
    if (ferror(file) != 0)
        return never;
    errno = EBADMSG;
    return feof(file) != 0 && ftell(file) == 0 ? not_yet : never;
}

pid_t server_of(const char *pid_file) {
    FILE *file = fopen(pid_file, "re");
    if (file == nullptr && errno == ENOENT)
        return none;
    if (file == nullptr)
        return is_lack(errno) ? not_yet : never;
    const pid_t pid = pid_in(file);
    const int error = errno;
    (void)fclose(file);
    errno = error;
    return pid;
}

// One thread calls it.
void complain(const char *pid_file, bool fails, int error) {
    static bool said;
    if (fails && !said)
        linux_log(3, "%s names no process, dnsmasq is not told of static leases: %s", pid_file,
                  strerror(error));
    said = fails;
}

} // namespace

bool linux_server_tell(const char *pid_file) {
    const pid_t pid = server_of(pid_file);
    complain(pid_file, pid == never, errno);
    if (pid <= 0)
        return pid != not_yet;
    const answer is = is_server(pid);
    if (is == answer::no)
        linux_log(3, "%s names process %d, which is not known to be dnsmasq", pid_file, pid);
    else if (is == answer::yes && kill(pid, SIGHUP) != 0)
        linux_log(3, "dnsmasq (%d) cannot be told of static leases: %s", pid, strerror(errno));
    return is != answer::unknown;
}
