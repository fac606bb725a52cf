// gw_hostbase: start-up in its fixed order, then the worker threads do everything.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <lsddb.h>
#include <nvm.h>
#include <pcd.h>
#include <rnddb.h>

#include "base/event.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/probe_queue.h"
#include "base/state.h"
#include "daemon/arguments.h"
#include "daemon/command_socket.h"
#include "daemon/file_watch.h"
#include "daemon/neighbour_monitor.h"
#include "daemon/one_daemon.h"
#include "daemon/place_probe.h"
#include "daemon/switch_link.h"
#include "daemon/watchdog.h"
#include "events/lease_timers.h"
#include "events/neighbour_seed.h"
#include "files/client_file.h"
#include "files/client_leases.h"
#include "files/client_removal.h"
#include "files/rule_files.h"
#include "files/user_settings.h"
#include "gateway/bssid_table.h"
#include "gateway/neighbour_probe.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/segment.h"
#include "store/shm.h"
#include "store/timer_sweep.h"

namespace {

// The end of the process by SIGTERM or by a fatal exception. Nothing is saved at the end, and exit() must
// not be used here: it takes locks that the interrupted thread may hold.
void exit_handler(int) {
    _exit(1);
}

struct worker {
    void *(*entry)(void *);
    const char *name; // as a person sees it in a list of threads
    pthread_t thread;
    bool runs;
};

// Joined in this order.
worker workers[] = {
    {nl_listen_thread, "nl_listen", {}, false},
    {un_listen_thread, "un_listen", {}, false},
    {file_watch_thread, "file_watch", {}, false},
};

void register_probes() {
    hbs_probe_register(HBS_PROBE_NETBIOS, hbs_probe_netbios);
    hbs_probe_register(HBS_PROBE_SEED, hbs_probe_seed);
    hbs_probe_register(HBS_PROBE_NEIGHBOUR, hbs_probe_neighbour);
    hbs_probe_register(HBS_PROBE_PLACE, hbs_probe_place);
}

void open_databases() {
    hbs_db_ready = 1;
    hbs_rnd_status = RNDDB_Read(0, 1);
    hbs_lsd_status = LSDDB_Read(0, 1);
}

void load_clients() {
    const hbs_event event;
    hbs_settings_tidy();
    if (hbs_nv_load_clients() != 0) {
        hbs_handle_dynamic_leases_from_file();
        hbs_nv_save_clients();
    }
    hbs_nv_load_rules();
}

// Without one of them a whole road in would be closed until the next start, so what lacked for a moment is
// asked for again.
void start_worker(worker *w, const pthread_attr_t *attributes) {
    constexpr int ATTEMPTS = 3;
    for (int i = 0; i < ATTEMPTS && !w->runs; i++)
        w->runs = pthread_create(&w->thread, attributes, w->entry, nullptr) == 0;
    if (w->runs)
        (void)pthread_setname_np(w->thread, w->name);
    else
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't start the thread %s", w->name);
}

void start_threads() {
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    for (worker &w : workers)
        start_worker(&w, &attributes);
}

// Who is told that the daemon is ready sends at once, and sends once.
void wait_for_command_socket() {
    for (const worker &w : workers)
        if (w.entry == un_listen_thread && w.runs)
            hbs_command_socket_wait();
}

// Nobody waits for their end. Each has a program's answer on its stack, which is not as large as glibc makes
// it otherwise: a small gateway's address space has to have room for all.
void start_probe_threads() {
    constexpr size_t STACK = 262144; // bytes
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    (void)pthread_attr_setstacksize(&attributes, STACK);
    for (int i = 0; i < HBS_PROBE_THREADS; ++i) {
        pthread_t thread;
        (void)pthread_create(&thread, &attributes, hbs_probe_thread, nullptr);
    }
    (void)pthread_attr_destroy(&attributes);
}

// Damage by another process does not outlive the last event.
void repair_segment() {
    const hbs_list_hold hold;
    hbs_segment_repair();
}

// Meanwhile sees to timers that were lost, and to the segment. This thread has nothing else to do, and
// nothing takes it away.
void join_thread(pthread_t thread) {
    while (pthread_tryjoin_np(thread, nullptr) == EBUSY) {
        (void)poll(nullptr, 0, HBS_TIMER_SWEEP_SECONDS * 1000);
        hbs_timer_sweep();
        repair_segment();
    }
}

void join_threads() {
    for (const worker &w : workers)
        if (w.runs)
            join_thread(w.thread);
}

// What is opened next would get the number of one that is closed, and with it what is printed.
void open_standard_descriptors() {
    pollfd standard[] = {{STDIN_FILENO, 0, 0}, {STDOUT_FILENO, 0, 0}, {STDERR_FILENO, 0, 0}};
    (void)poll(standard, std::size(standard), 0);
    for (const pollfd &each : standard)
        if ((each.revents & POLLNVAL) != 0)
            (void)!open(HBS_NOWHERE, O_RDWR); // the lowest free number is this one
}

// Says on standard error why not.
bool may_start() {
    pid_t running = 0;
    switch (hbs_claim_daemon(&running)) {
    case hbs_claim::taken:
        (void)fprintf(stderr, "gw_hostbase: already running (pid %d)\n", static_cast<int>(running));
        return false;
    case hbs_claim::impossible:
        (void)fprintf(stderr, "gw_hostbase: cannot lock %s, another one would not be noticed: %s\n",
                      HBS_LOCK_FILE, strerror(errno));
        return true;
    case hbs_claim::own:
        return true;
    }
    return true;
}

} // namespace

int main(int count, char *argv[]) {
    open_standard_descriptors();
    // Both before anything that another daemon, a reader or the log could notice.
    if (const int status = hbs_answer_arguments(count, argv); status >= 0)
        return status;
    (void)signal(SIGPIPE, SIG_IGN); // who reads what is printed may end at any time
    if (!may_start())
        return 1;
    // A line that is printed is seen at once: the end of the process flushes nothing.
    (void)setvbuf(stdout, nullptr, _IOLBF, 0);
    hbs_log_init();
    (void)PCD_api_register_exception_handlers(argv[0], exit_handler);
    (void)signal(SIGTERM, exit_handler);
    // Logged here although the range is computed further down: the daemon's first sign of life.
    HBS_LOG(HBS_INFO, "HOSTBASE: hostbase_set_internal_mac_range");
    (void)NVM_RetrieveAccess();
    hbs_clients_init();
    hbs_lease_timers_register(hbs_on_dhcp_wait_expired, hbs_on_lease_expired, hbs_on_online_expired);
    register_probes();
    hbs_client_end_register(hbs_client_drop_files);
    hbs_wifi_bssid_table_clear();
    hbs_list_mutex_init();
    open_databases();
    hbs_switch_link_init();
    {
        hbs_list_hold hold; // link events and timers may come from here on
        hbs_shm_init();
        hostbase_set_internal_mac_range();
        load_clients();
    }
    start_threads();
    start_probe_threads();
    wait_for_command_socket();
    (void)PCD_api_send_process_ready();
    static const worker &watcher = workers[std::size(workers) - 1];
    file_watcher_timer_set(&watcher.thread);
    join_threads();
    return 0;
}
