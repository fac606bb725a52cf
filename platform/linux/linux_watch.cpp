#include "linux_watch.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <hbs_db.h>

#include "common_router.h"
#include "common_thread.h"
#include "linux_lans.h"
#include "linux_log.h"
#include "linux_ports.h"
#include "linux_view.h"

namespace {

constexpr const char *numbers_file = HBS_PERSISTENT_DIR "/networks";
constexpr int attempts = 5; // a table that changes while it is read is read again
constexpr uint32_t groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
constexpr int retry_ms = 1000;
constexpr int most_at_once = 256; // datagrams

pthread_once_t once = PTHREAD_ONCE_INIT;
std::atomic<extswt_link_cb> link_callback = nullptr;
bool started;

// Guarded by `lock`, which is held for copies only.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
linux_view view;
linux_ports ports;
linux_lan_numbers numbers;

// The watcher's own.
linux_view fresh;
uint32_t reported[EXTSWT_PORTS];
int socket_fd = -1;
bool published; // what stood at the start
bool may_save;  // the file of the numbers was read, or there was none
bool unsaved;   // it does not hold all numbers yet

void close_socket() {
    if (socket_fd >= 0)
        (void)close(socket_fd);
    socket_fd = -1;
}

// Said once until it succeeds.
bool read_fresh() {
    static bool said;
    bool read = linux_view_read(&fresh);
    for (int i = 1; !read && errno == EINTR && i < attempts; i++)
        read = linux_view_read(&fresh);
    if (!read && !said)
        linux_log(3, "the kernel's links and addresses cannot be read: %s", strerror(errno));
    said = !read;
    return read;
}

void complain_of_cut() {
    static bool said;
    if (fresh.cut && !said)
        linux_log(3,
                  "there are more than %zu links, %zu addresses or %zu default routes: the rest is left out",
                  LINUX_LINKS, LINUX_ADDRESSES, LINUX_OUTWARD);
    said = fresh.cut;
}

// A file that could not be read is left as it is. Said once until it succeeds.
void save_numbers(const linux_lan_numbers *now) {
    static bool said;
    if (!unsaved || !may_save)
        return;
    unsaved = !linux_lan_numbers_save(numbers_file, now);
    if (unsaved && !said)
        linux_log(3, "%s cannot be written: the networks' numbers may be others after a restart",
                  numbers_file);
    said = unsaved;
}

// The numbers are written by this thread alone. Whoever finds a port's new network finds it in the router's
// table, too; one that goes leaves the table first.
void publish(linux_dips *dipped) {
    const linux_conf *conf = linux_settings();
    complain_of_cut();
    linux_lan_numbers now = numbers;
    linux_left_out left_out;
    unsaved = linux_lan_numbers_give(&fresh, conf, &now, &left_out) || unsaved;
    linux_left_out_log(&left_out);
    common_router_table table;
    linux_lans_table(&fresh, conf, &now, &table);
    common_router_replace(&table);
    (void)pthread_mutex_lock(&lock);
    view = fresh;
    numbers = now;
    linux_ports_update(&ports, &view, conf, dipped);
    (void)pthread_mutex_unlock(&lock);
    save_numbers(&now);
}

// The states after the dips, then as they are: who was down in between is told so. Returns whether there is
// somebody to be told.
bool report(const linux_dips *dipped) {
    const extswt_link_cb callback = link_callback.load();
    if (callback == nullptr)
        return false;
    uint32_t now[EXTSWT_PORTS];
    uint32_t low[EXTSWT_PORTS];
    (void)pthread_mutex_lock(&lock);
    linux_ports_states(&ports, now);
    (void)pthread_mutex_unlock(&lock);
    for (size_t i = 0; i < EXTSWT_PORTS; i++)
        low[i] = dipped->port[i] ? 0 : now[i];
    if (memcmp(low, now, sizeof low) != 0)
        callback(low);
    if (memcmp(now, reported, sizeof now) != 0 || memcmp(low, now, sizeof low) != 0)
        callback(now);
    memcpy(reported, now, sizeof reported);
    return true;
}

void note_dip(hbs_netlink_bytes message, void *context) {
    (void)pthread_mutex_lock(&lock);
    linux_ports_note(&ports, message, static_cast<linux_dips *>(context));
    (void)pthread_mutex_unlock(&lock);
}

// Takes what is queued, and no more than so much while more and more comes. Returns false when the socket is
// of no more use.
bool take_queue(linux_dips *dipped, int timeout_ms) {
    alignas(nlmsghdr) static uint8_t buffer[32768];
    for (int datagrams = 0; datagrams < most_at_once; datagrams++) {
        const ssize_t length = hbs_netlink_receive(socket_fd, buffer, sizeof buffer, timeout_ms);
        if (length < 0 && errno == ETIMEDOUT)
            return true;
        if (length < 0 && errno != ENOBUFS && errno != ENOSPC)
            return false;
        if (length > 0)
            (void)hbs_netlink_walk({buffer, static_cast<size_t>(length)}, note_dip, dipped);
        timeout_ms = 0;
    }
    return true;
}

bool open_socket() {
    socket_fd = hbs_netlink_open();
    if (socket_fd >= 0 && hbs_netlink_bind(socket_fd, groups))
        return true;
    close_socket();
    return false;
}

// Without a socket nothing is heard; the tables are looked at all the same.
void hear(linux_dips *dipped, bool in_step) {
    const bool listens = socket_fd >= 0 || open_socket();
    if (!listens)
        (void)poll(nullptr, 0, retry_ms);
    else if (!take_queue(dipped, in_step ? -1 : retry_ms)) {
        linux_log(1, "changes of the networks are not heard of, once more: %s", strerror(errno));
        close_socket();
    }
}

void *watch(void *) {
    linux_dips dipped = {};
    bool in_step = published;
    bool told = false; // what happens before somebody wants to know is told then
    for (;;) {
        hear(&dipped, in_step && told);
        in_step = false;
        if (!read_fresh())
            continue;
        publish(&dipped);
        in_step = socket_fd >= 0 && (!unsaved || !may_save);
        told = report(&dipped);
        if (told)
            dipped = {};
    }
}

void start() {
    may_save = linux_lan_numbers_load(numbers_file, linux_settings(), &numbers);
    if (!may_save)
        linux_log(3, "%s cannot be read (%s) and stays as it is: the networks' numbers may be others for now",
                  numbers_file, strerror(errno));
    published = open_socket() && read_fresh();
    if (published) {
        linux_dips none = {};
        publish(&none);
        linux_ports_states(&ports, reported);
    }
    started = common_thread_start(watch); // which tries again what did not succeed
}

} // namespace

bool linux_watch_start() {
    (void)pthread_once(&once, start);
    return started;
}

void linux_watch_on_links(extswt_link_cb callback) {
    link_callback.store(callback);
}

int linux_watch_bridges(int index[LINUX_MOST_BRIDGES], bool vlan_aware[LINUX_MOST_BRIDGES]) {
    int count = 0;
    (void)pthread_mutex_lock(&lock);
    for (unsigned number = 1; number <= LINUX_MOST_BRIDGES; number++) {
        const linux_link *lan = linux_lan_numbered(&view, linux_settings(), &numbers, number);
        if (lan == nullptr)
            continue;
        index[count] = lan->index;
        vlan_aware[count++] = lan->vlan_aware;
    }
    (void)pthread_mutex_unlock(&lock);
    return count;
}

bool linux_watch_is_outward(int index) {
    (void)pthread_mutex_lock(&lock);
    const bool outward = linux_is_outward(&view, index, linux_settings());
    (void)pthread_mutex_unlock(&lock);
    return outward;
}

bool linux_watch_lan_name(unsigned number, char name[NETIF_NAME_SIZE]) {
    if (number < 1 || number > RNDDB_MAX_ENTRIES)
        return false;
    (void)pthread_mutex_lock(&lock);
    const bool there = numbers.name[number - 1][0] != '\0';
    if (there)
        memcpy(name, numbers.name[number - 1], NETIF_NAME_SIZE);
    (void)pthread_mutex_unlock(&lock);
    return there;
}

int linux_watch_lan_index(unsigned number) {
    char name[NETIF_NAME_SIZE];
    return linux_watch_lan_name(number, name) ? linux_watch_index(name) : 0;
}

int linux_watch_index(const char *name) {
    (void)pthread_mutex_lock(&lock);
    const linux_link *link = linux_link_named(&view, name);
    const int index = link != nullptr ? link->index : 0;
    (void)pthread_mutex_unlock(&lock);
    return index;
}

namespace {

// Number of the bridge with that index, 0 = it is no LAN now, or has none. Needs the lock.
unsigned lan_number(int index) {
    for (unsigned number = 1; number <= RNDDB_MAX_ENTRIES; number++) {
        const linux_link *lan = linux_lan_numbered(&view, linux_settings(), &numbers, number);
        if (lan != nullptr && lan->index == index)
            return number;
    }
    return 0;
}

} // namespace

unsigned linux_watch_lan_of_port(const char *device) {
    unsigned number = 0;
    (void)pthread_mutex_lock(&lock);
    for (size_t i = 0; i < view.links && number == 0; i++)
        if (view.link[i].master != 0 && strcmp(view.link[i].name, device) == 0)
            number = lan_number(view.link[i].master);
    (void)pthread_mutex_unlock(&lock);
    return number;
}

unsigned linux_watch_port_of(int index) {
    (void)pthread_mutex_lock(&lock);
    const unsigned port = linux_port_of(&ports, index);
    (void)pthread_mutex_unlock(&lock);
    return port;
}

bool linux_watch_is_wifi(int index) {
    (void)pthread_mutex_lock(&lock);
    const linux_link *link = linux_link_of(&view, index);
    const bool wifi = link != nullptr && linux_is_wifi(link, linux_settings());
    (void)pthread_mutex_unlock(&lock);
    return wifi;
}
