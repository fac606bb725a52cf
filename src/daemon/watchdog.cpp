#include "daemon/watchdog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "base/log.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "base/scope.h"
#include "daemon/file_watch.h"

std::atomic<int32_t> file_watch_block_count; // each run of the timer is a thread of its own

namespace {

timer_t file_watcher_timer_id;
bool file_watcher_timer_exists;

// What a thread that waits in the kernel's datagram receive shows. Only these 19 bytes are compared.
constexpr char BLOCKED_TEXT[] = "__skb_recv_datagram";
constexpr size_t BLOCKED_LENGTH = sizeof(BLOCKED_TEXT) - 1;

constexpr int PATIENCE = 3; // blocked ticks after which one more is still only counted

void delete_timer() {
    if (file_watcher_timer_exists) {
        (void)timer_delete(file_watcher_timer_id);
        file_watcher_timer_exists = false;
    }
}

} // namespace

bool hbs_watchdog_can_look(const char *process_root) {
    char task[128];
    char wchan[128];
    (void)snprintf(task, sizeof task, "%s/self/task", process_root);
    (void)snprintf(wchan, sizeof wchan, "%s/self/wchan", process_root);
    return access(task, F_OK) != 0 || access(wchan, F_OK) == 0;
}

void file_watcher_timer_set(const pthread_t *thread) {
    if (!hbs_watchdog_can_look(HBS_PROCESSES)) { // each tick would end a daemon that does its work
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s no watchdog: the kernel does not tell where threads wait",
                "file_watcher_timer_set");
        return;
    }
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_signo = SIGRTMIN;
    event.sigev_value.sival_ptr = const_cast<pthread_t *>(thread);
    event.sigev_notify_function = file_watcher_timer_handle;
    delete_timer();
    if (timer_create(CLOCK_MONOTONIC, &event, &file_watcher_timer_id) != 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s Couldn't create timer", "file_watcher_timer_set");
        return;
    }
    file_watcher_timer_exists = true;
    const itimerspec period = {{HBS_WATCHDOG_SECONDS, 0}, {HBS_WATCHDOG_SECONDS, 0}};
    if (timer_settime(file_watcher_timer_id, 0, &period, nullptr) != 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s Couldn't set timer", "file_watcher_timer_set");
        delete_timer();
    }
}

namespace {

// Path of the text that says where in the kernel the thread waits; left empty without a pid file.
void read_wchan_path(const char *pid_file, const char *process_root, char *path, size_t size) {
    FILE *file = hbs_plain_stream(pid_file, "r");
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s Couldn't open file_watch_thread.pid", "file_watcher_timer_handle");
        return;
    }
    int pid = 0;
    int tid = 0;
    (void)(fscanf(file, "pid:%d tid:%d", &pid, &tid) == 2); // what is missing stays 0, which names no thread
    (void)snprintf(path, size, "%s/%d/task/%d/wchan", process_root, pid, tid);
    (void)fclose(file);
}

void judge_wchan(const char *path) {
    char wchan[64] = "";
    FILE *file = fopen(path, "re");
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s Couldn't open file_watch_thread wchan", "file_watcher_timer_handle");
    } else {
        (void)(fread(wchan, 1, BLOCKED_LENGTH, file) == BLOCKED_LENGTH);
        (void)fclose(file);
    }
    if (memcmp(wchan, BLOCKED_TEXT, BLOCKED_LENGTH) != 0) {
        file_watch_block_count = 0;
        return;
    }
    file_watch_block_count++;
    HBS_LOG(HBS_ALERT, "HOSTBASE: %s %s block %d time", "file_watcher_timer_handle", wchan,
            file_watch_block_count.load());
}

// Prints the two lease-event records on standard output, then ends every daemon of this name.
void end_daemon() {
    struct sysinfo info {};
    (void)sysinfo(&info);
    HBS_LOG(HBS_ALERT, "HOSTBASE: %s reboot gw_hostbase at uptime:%d", "file_watcher_timer_handle",
            static_cast<int>(info.uptime));
    // The first two only print what the DHCP server told last, and the last ends this very
    // process, whose controller starts it anew. Kept as people who read the console know it.
    static constexpr const char *commands[] = {"cat " HBS_LEASE_RECORD, "cat " HBS_DHCPV4_NOTICES_COPY,
                                               "killall gw_hostbase"};
    for (const char *command : commands) {
        const int status = system(command); // fixed texts: nothing from outside gets near this shell
        (void)status;
    }
}

} // namespace

void hbs_watchdog_tick(const char *pid_file, const char *process_root) {
    char path[128] = "";
    read_wchan_path(pid_file, process_root, path, sizeof(path));
    if (access(path, F_OK) != 0 || file_watch_block_count > PATIENCE) {
        end_daemon();
        return;
    }
    if (access(path, F_OK) == 0) // the thread may have ended since
        judge_wchan(path);
}

void file_watcher_timer_handle(union sigval) {
    hbs_watchdog_tick(HBS_FILE_WATCH_PID, HBS_PROCESSES);
}
