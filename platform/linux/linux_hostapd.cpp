#include "linux_hostapd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <hbs_msg.h>

#include "common_text.h"
#include "common_thread.h"
#include "linux_conf.h"
#include "linux_log.h"
#include "linux_netlink.h"

namespace {

constexpr int patience_ms = 500; // for one answer; the daemon's lock is not held
constexpr int tick_ms = 1000;
constexpr int list_every = 10;          // ticks: figures are so fresh, and so late is a word that was lost
constexpr int gone_after = 10;          // ticks without its socket, and an access point is no more
constexpr uint32_t default_settle = 5;  // seconds; a login with a slow server takes two or three
constexpr unsigned most_stations = 256; // of one list that has no end
constexpr size_t reply_size = 4096;

struct access_point {
    char name[IFNAMSIZ]; // empty = free
    unsigned ssid;
    int fd;              // -1 = not attached
    unsigned attachment; // how many there were
    int ticks;
    int missing; // ticks without its socket
    bool complained;
    bool list_now; // a station joined: what it is like is asked before the daemon is told
};

constexpr const char *own_directory = HBS_RUNTIME_DIR "/tmp";
constexpr const char *own_prefix = "hostapd-";

access_point points[LINUX_SSIDS];

bool fill_address(sockaddr_un *address, const char *directory, const char *before, const char *name) {
    *address = {};
    address->sun_family = AF_UNIX;
    const int length =
        snprintf(address->sun_path, sizeof address->sun_path, "%s/%s%s", directory, before, name);
    return length > 0 && static_cast<size_t>(length) < sizeof address->sun_path;
}

// Where answers come to: a path for each attachment, so that an answer that comes late, to a question of an
// earlier one, is taken for none of this one's.
bool own_address(sockaddr_un *address, const access_point *point) {
    char before[48];
    (void)snprintf(before, sizeof before, "%s%d-%u-", own_prefix, getpid(), point->attachment);
    return fill_address(address, own_directory, before, point->name);
}

// What an earlier process left behind.
void remove_old_addresses() {
    DIR *folder = opendir(own_directory);
    if (folder == nullptr)
        return;
    while (const dirent *entry = readdir(folder))
        if (strncmp(entry->d_name, own_prefix, strlen(own_prefix)) == 0)
            (void)unlinkat(dirfd(folder), entry->d_name, 0);
    (void)closedir(folder);
}

void detach(access_point *point) {
    sockaddr_un own;
    if (point->fd < 0)
        return;
    (void)close(point->fd);
    point->fd = -1;
    if (own_address(&own, point))
        (void)unlink(own.sun_path);
}

// When the daemon is told of a station that leaves now.
int64_t tell_at_ms() {
    const linux_number *settle = &linux_settings()->wifi_settle;
    return linux_now_ms() + int64_t{settle->given ? settle->value : default_settle} * 1000;
}

void complain(access_point *point, const char *what) {
    if (!point->complained)
        linux_log(3, "hostapd of %s: %s", point->name, what);
    point->complained = true;
}

void take_event(access_point *point, const char *text) {
    linux_station station = {};
    const int direction = linux_hostapd_event(text, station.mac);
    if (direction == 0)
        return;
    char mac_text[WLAN_MAC_TEXT_SIZE];
    common_mac_to_text(station.mac, mac_text);
    linux_log(15, "hostapd of %s: %s %s", point->name, mac_text, direction > 0 ? "joined" : "left");
    point->list_now = point->list_now || direction > 0;
    if (direction > 0)
        linux_wifi_here(point->ssid, &station, true, false);
    else
        linux_wifi_gone(point->ssid, station.mac, tell_at_ms());
}

// One datagram into text. Returns its length, -1 when none comes in time or the access point is gone.
ssize_t receive(access_point *point, char text[reply_size], int timeout_ms) {
    pollfd waiting = {point->fd, POLLIN, 0};
    if (poll(&waiting, 1, timeout_ms) != 1)
        return -1;
    const ssize_t length = recv(point->fd, text, reply_size - 1, MSG_DONTWAIT);
    if (length >= 0)
        text[length] = '\0';
    return length;
}

// Sends a command and waits for its answer; events that come meanwhile are taken. Who does not answer in time
// is detached, and attached again later.
bool ask(access_point *point, const char *command, char reply[reply_size]) {
    const int64_t end = linux_now_ms() + patience_ms;
    bool sent = point->fd >= 0 && send(point->fd, command, strlen(command), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
    while (sent) {
        const int64_t left = end - linux_now_ms();
        if (left < 0 || receive(point, reply, static_cast<int>(left)) < 0)
            break;
        if (reply[0] != '<')
            return true;
        take_event(point, reply);
    }
    complain(point, "does not answer");
    detach(point);
    return false;
}

bool attach(access_point *point) {
    sockaddr_un own;
    sockaddr_un theirs;
    char reply[reply_size];
    point->attachment++;
    if (!own_address(&own, point) || !fill_address(&theirs, linux_settings()->hostapd, "", point->name))
        return false;
    point->fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (point->fd < 0)
        return false;
    if (bind(point->fd, reinterpret_cast<sockaddr *>(&own), sizeof own) != 0 ||
        connect(point->fd, reinterpret_cast<sockaddr *>(&theirs), sizeof theirs) != 0) {
        detach(point);
        return false;
    }
    if (!ask(point, "ATTACH", reply))
        return false;
    if (strncmp(reply, "OK", 2) == 0)
        return true;
    complain(point, "refuses");
    detach(point);
    return false;
}

// A list that breaks off leaves the knowledge as it was.
void list_stations(access_point *point) {
    char reply[reply_size];
    char command[40] = "STA-FIRST";
    linux_wifi_list_begin(point->ssid);
    for (unsigned i = 0; i < most_stations; i++) {
        linux_station station;
        if (!ask(point, command, reply))
            return;
        if (reply[0] == '\0' || strncmp(reply, "FAIL", 4) == 0)
            break;
        if (!linux_hostapd_station(reply, &station)) {
            complain(point, "lists what is no station");
            detach(point);
            return;
        }
        if (linux_hostapd_authorized(reply))
            linux_wifi_here(point->ssid, &station, false, true);
        (void)snprintf(command, sizeof command, "STA-NEXT %.17s", reply);
    }
    linux_wifi_list_end(point->ssid, tell_at_ms());
}

void read_texts(access_point *point) {
    char reply[reply_size];
    char modes[WLAN_TEXT_SIZE];
    char result[WLAN_TEXT_SIZE];
    if (!ask(point, "GET_CONFIG", reply))
        return;
    linux_hostapd_value(reply, "key_mgmt", modes, sizeof modes);
    if (modes[0] == '\0')
        (void)common_copy_whole(modes, sizeof modes, "None");
    if (!ask(point, "WPS_GET_STATUS", reply))
        return;
    linux_hostapd_value(reply, "Last WPS result", result, sizeof result);
    linux_wifi_texts(point->ssid, modes, result);
}

void look_after(access_point *point) {
    if (point->fd < 0) {
        if (!attach(point))
            return;
        linux_log(9, "hostapd of %s: attached, network %u", point->name, point->ssid);
        point->ticks = 0;
    }
    if (point->ticks++ % list_every != 0)
        return;
    list_stations(point);
    if (point->fd >= 0)
        read_texts(point);
    point->complained = point->complained && point->fd < 0;
}

access_point *point_named(const char *name) {
    for (access_point &point : points)
        if (strcmp(point.name, name) == 0)
            return &point;
    return nullptr;
}

bool is_socket(const char *name) {
    sockaddr_un theirs;
    struct stat file = {};
    return strlen(name) < IFNAMSIZ && fill_address(&theirs, linux_settings()->hostapd, "", name) &&
           stat(theirs.sun_path, &file) == 0 && S_ISSOCK(file.st_mode);
}

void begin(access_point *point, const char *name) {
    const unsigned attachments = point->attachment;
    *point = {};
    point->attachment = attachments;
    (void)common_copy_whole(point->name, sizeof point->name, name);
    point->fd = -1;
    point->ssid = linux_wifi_number(name);
}

// In the order of their names, so that the numbers are the same at each start.
void find_points() {
    dirent **entries = nullptr;
    const int count = scandir(linux_settings()->hostapd, &entries, nullptr, versionsort);
    for (int i = 0; i < count; i++) {
        const char *name = entries[i]->d_name;
        access_point *point = is_socket(name) ? point_named(name) : nullptr;
        if (point == nullptr && is_socket(name) && (point = point_named("")) != nullptr)
            begin(point, name);
        if (point != nullptr)
            point->missing = 0;
        free(entries[i]);
    }
    free(entries);
}

// An access point that has been taken away has no stations any more.
void forget_missing(access_point *point) {
    if (point->missing++ < gone_after)
        return;
    linux_log(9, "hostapd of %s: gone", point->name);
    detach(point);
    linux_wifi_list_begin(point->ssid);
    linux_wifi_list_end(point->ssid, tell_at_ms());
    linux_wifi_free(point->ssid);
    point->name[0] = '\0';
}

bool tell(int direction, const uint8_t mac[6], unsigned ssid, int fd) {
    hbs_msg_wifi_assoc message = {};
    message.code = direction > 0 ? HBS_EVENT_WIFI_ASSOC : HBS_EVENT_WIFI_DISASSOC;
    common_mac_to_text(mac, message.mac_text);
    message.ssid = ssid;
    sockaddr_un daemon = {};
    daemon.sun_family = AF_UNIX;
    memcpy(daemon.sun_path, HBS_SOCKET_PATH, sizeof HBS_SOCKET_PATH);
    return sendto(fd, &message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<sockaddr *>(&daemon), sizeof daemon) >= 0;
}

// What the daemon cannot take now is told at the next tick, as it is by then.
void tell_news(int fd) {
    uint8_t mac[6];
    unsigned ssid = 0;
    int direction = 0;
    while ((direction = linux_wifi_next_news(linux_now_ms(), mac, &ssid)) != 0 &&
           tell(direction, mac, ssid, fd))
        linux_wifi_told(mac, direction > 0 ? ssid : 0);
}

void cancel_sessions() {
    char reply[reply_size];
    while (const unsigned ssid = linux_wifi_next_cancel())
        for (access_point &point : points)
            if (point.ssid == ssid && point.fd >= 0)
                (void)ask(&point, "WPS_CANCEL", reply);
}

// Until the next tick, or sooner after an event.
void wait_for_events() {
    pollfd waiting[LINUX_SSIDS];
    char text[reply_size];
    for (size_t i = 0; i < LINUX_SSIDS; i++)
        waiting[i] = {points[i].name[0] != '\0' ? points[i].fd : -1, POLLIN, 0};
    if (poll(waiting, LINUX_SSIDS, tick_ms) <= 0)
        return;
    for (size_t i = 0; i < LINUX_SSIDS; i++) {
        if (waiting[i].fd < 0 || waiting[i].revents == 0)
            continue;
        while (receive(&points[i], text, 0) >= 0)
            take_event(&points[i], text);
        if ((waiting[i].revents & (POLLERR | POLLHUP)) != 0)
            detach(&points[i]);
    }
}

void list_joined() {
    for (access_point &point : points) {
        if (!point.list_now || point.fd < 0)
            continue;
        point.list_now = false;
        list_stations(&point);
    }
}

void look_after_all() {
    find_points();
    for (access_point &point : points) {
        if (point.name[0] == '\0' || point.ssid == 0)
            continue;
        look_after(&point);
        forget_missing(&point);
    }
}

void *run(void *) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int64_t next = 0;
    for (;;) {
        if (linux_now_ms() >= next) {
            next = linux_now_ms() + tick_ms;
            look_after_all();
        }
        cancel_sessions();
        tell_news(fd);
        wait_for_events();
        list_joined();
        tell_news(fd);
    }
    return nullptr;
}

} // namespace

void linux_hostapd_start() {
    if (linux_settings()->hostapd[0] == '\0')
        return;
    remove_old_addresses();
    for (unsigned ssid = 1; ssid <= LINUX_SSIDS; ssid++)
        if (const char *device = linux_settings()->ssid[ssid - 1]; device[0] != '\0')
            linux_wifi_reserve(ssid, device);
    for (access_point &point : points)
        point.fd = -1;
    (void)common_thread_start(run);
}
