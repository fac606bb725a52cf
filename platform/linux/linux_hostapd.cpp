#include "linux_hostapd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <hbs_msg.h>

#include "common_text.h"
#include "common_thread.h"
#include "linux_conf.h"
#include "linux_control.h"
#include "linux_log.h"
#include "linux_netlink.h"
#include "linux_watch.h"

namespace {

constexpr int patience_ms = 500; // for one answer; the daemon's lock is not held
constexpr int tick_ms = 1000;
constexpr int list_every = 10;          // ticks: figures are so fresh, and so late is a word that was lost
constexpr int gone_after = 10;          // ticks without its socket, and an access point is no more
constexpr uint32_t default_settle = 5;  // seconds; a login with a slow server takes two or three
constexpr unsigned most_stations = 256; // of one list that has no end
constexpr int list_patience_ms = 2000;  // for one list
constexpr int most_events = 64;         // of one access point before the next one's turn
constexpr size_t reply_size = 4096;

struct access_point {
    char name[IFNAMSIZ]; // empty = free
    unsigned ssid;       // 0 = no number was left
    int fd;              // -1 = not attached
    unsigned attachment; // how many there were
    int ticks;
    int missing; // ticks without its socket
    bool complained;
    bool list_now; // a station joined: what it is like is asked before the daemon is told
};

access_point points[LINUX_SSIDS];

void detach(access_point *point) {
    if (point->fd >= 0)
        linux_control_close(point->fd, point->name, point->attachment);
    point->fd = -1;
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
    station.since_ms = linux_now_ms();
    if (direction > 0)
        linux_wifi_here(point->ssid, &station, true, false);
    else
        linux_wifi_gone(point->ssid, station.mac, tell_at_ms());
}

// Sends a command and waits for its answer; events that come meanwhile are taken. Returns the answer's
// length, -1 for none: who does not answer in time is detached, and attached again later.
ssize_t ask(access_point *point, const char *command, char reply[reply_size]) {
    const int64_t end = linux_now_ms() + patience_ms;
    bool sent = point->fd >= 0 && send(point->fd, command, strlen(command), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
    while (sent) {
        const int64_t left = end - linux_now_ms();
        const ssize_t length =
            left < 0 ? -1 : linux_control_receive(point->fd, reply, reply_size, static_cast<int>(left));
        if (length < 0)
            break;
        if (reply[0] != '<')
            return length;
        take_event(point, reply);
    }
    complain(point, "does not answer");
    detach(point);
    return -1;
}

bool ask_for_events(access_point *point) {
    char reply[reply_size];
    if (ask(point, "ATTACH", reply) < 0)
        return false;
    if (strncmp(reply, "OK", 2) == 0)
        return true;
    complain(point, "refuses");
    detach(point);
    return false;
}

bool attach(access_point *point) {
    point->attachment++;
    point->fd = linux_control_open(point->name, point->attachment);
    if (point->fd < 0)
        complain(point, "cannot be reached");
    return point->fd >= 0 && ask_for_events(point);
}

// hostapd forgets, without a word, who did not take its events for a while. What happens between the two
// commands is seen in the list that is asked for next.
bool attach_anew(access_point *point) {
    char reply[reply_size];
    if (ask(point, "DETACH", reply) < 0)
        return false;
    if (strncmp(reply, "OK", 2) != 0)
        linux_log(9, "hostapd of %s: it told its events to us no more", point->name);
    return ask_for_events(point);
}

// 0 where hostapd does not say.
int64_t joined_at_ms(const char *reply) {
    char seconds[16];
    linux_hostapd_value(reply, "connected_time", seconds, sizeof seconds);
    return seconds[0] != '\0' ? linux_now_ms() - strtol(seconds, nullptr, 10) * int64_t{1000} : 0;
}

// Takes one station of a list, and makes the command for the next.
bool take_station(const access_point *point, const char *reply, char *command, size_t size) {
    linux_station station;
    if (!linux_hostapd_station(reply, &station))
        return false;
    station.since_ms = joined_at_ms(reply);
    if (linux_hostapd_authorized(reply))
        linux_wifi_here(point->ssid, &station, false, true);
    (void)snprintf(command, size, "STA-NEXT %.17s", reply);
    return true;
}

// Returns whether the list came to its end. One that breaks off leaves the knowledge as it was.
bool list_stations(access_point *point) {
    char reply[reply_size];
    char command[40] = "STA-FIRST";
    const int64_t end = linux_now_ms() + list_patience_ms;
    linux_wifi_list_begin(point->ssid);
    for (unsigned i = 0; i < most_stations && linux_now_ms() < end; i++) {
        const ssize_t length = ask(point, command, reply);
        if (length < 0)
            return false;
        const bool refuses = length > 0 && linux_hostapd_refuses(reply);
        if (refuses && i > 0) { // the station behind which it was asked for the next has just gone
            point->list_now = true;
            return false;
        }
        if (length == 0 || refuses) {
            linux_wifi_list_end(point->ssid, tell_at_ms());
            return true;
        }
        if (!take_station(point, reply, command, sizeof command)) {
            complain(point, "lists what is no station");
            detach(point);
            return false;
        }
    }
    complain(point, "lists stations without an end");
    return false;
}

// Returns whether the answers made sense. What one does not say stays as it was.
bool read_texts(access_point *point) {
    char reply[reply_size];
    char modes[WLAN_TEXT_SIZE];
    char result[WLAN_TEXT_SIZE];
    if (ask(point, "GET_CONFIG", reply) < 0)
        return false;
    const bool has_modes = linux_hostapd_authentication(reply, modes, sizeof modes);
    if (ask(point, "WPS_GET_STATUS", reply) < 0)
        return false;
    const bool has_result = linux_hostapd_wps_result(reply, result, sizeof result);
    linux_wifi_texts(point->ssid, has_modes ? modes : nullptr, has_result ? result : nullptr);
    if (!has_modes || !has_result)
        complain(point, "does not say how it is set");
    return has_modes && has_result;
}

// What it is like, and who is there.
void read_all(access_point *point) {
    if (list_stations(point) && read_texts(point))
        point->complained = false;
}

void look_after(access_point *point) {
    const bool attached = point->fd >= 0;
    if (!attached) {
        if (!attach(point))
            return;
        linux_log(9, "hostapd of %s: attached, network %u", point->name, point->ssid);
        point->ticks = 0;
    }
    if (point->ticks++ % list_every != 0 || (attached && !attach_anew(point)))
        return;
    read_all(point);
}

access_point *point_named(const char *name) {
    for (access_point &point : points)
        if (strcmp(point.name, name) == 0)
            return &point;
    return nullptr;
}

void begin(access_point *point, const char *name) {
    const unsigned attachments = point->attachment;
    *point = {};
    point->attachment = attachments;
    (void)common_copy_whole(point->name, sizeof point->name, name);
    point->fd = -1;
}

// In the order of their names, so that the numbers are the same at each start. Returns false where the
// directory cannot be read: then nothing is said of who is missing.
bool find_points() {
    dirent **entries = nullptr;
    const int count = scandir(linux_settings()->hostapd, &entries, nullptr, versionsort);
    if (count < 0)
        return errno == ENOENT || errno == ENOTDIR;
    for (int i = 0; i < count; i++) {
        const char *name = entries[i]->d_name;
        const bool there = linux_control_is_there(name);
        access_point *point = there ? point_named(name) : nullptr;
        if (point == nullptr && there && (point = point_named("")) != nullptr)
            begin(point, name);
        if (point != nullptr)
            point->missing = 0;
        free(entries[i]);
    }
    free(entries);
    return true;
}

// An access point that has been taken away has no stations any more.
void forget_missing(access_point *point) {
    if (point->missing++ < gone_after)
        return;
    linux_log(9, "hostapd of %s: gone", point->name);
    detach(point);
    point->name[0] = '\0';
    if (point->ssid == 0)
        return;
    linux_wifi_list_begin(point->ssid);
    linux_wifi_list_end(point->ssid, tell_at_ms());
    linux_wifi_free(point->ssid);
}

// For what the daemon is told, -1 while there is none to be had.
int news_socket() {
    static int fd = -1;
    if (fd < 0)
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return fd;
}

bool tell(int direction, const uint8_t mac[6], unsigned ssid) {
    hbs_msg_wifi_assoc message = {};
    message.code = direction > 0 ? HBS_EVENT_WIFI_ASSOC : HBS_EVENT_WIFI_DISASSOC;
    common_mac_to_text(mac, message.mac_text);
    message.ssid = ssid;
    sockaddr_un daemon = {};
    daemon.sun_family = AF_UNIX;
    memcpy(daemon.sun_path, HBS_SOCKET_PATH, sizeof HBS_SOCKET_PATH);
    return sendto(news_socket(), &message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<sockaddr *>(&daemon), sizeof daemon) >= 0;
}

// What the daemon cannot take now is told at the next tick, as it is by then.
void tell_news() {
    uint8_t mac[6];
    unsigned ssid = 0;
    int direction = 0;
    const auto is_on_lan = [](const char *device) { return linux_watch_lan_of_port(device) != 0; };
    while ((direction = linux_wifi_next_news(linux_now_ms(), is_on_lan, mac, &ssid)) != 0 &&
           tell(direction, mac, ssid))
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
        for (int count = 0; count < most_events; count++) {
            if (linux_control_receive(points[i].fd, text, sizeof text, 0) < 0)
                break;
            take_event(&points[i], text);
        }
        if ((waiting[i].revents & (POLLERR | POLLHUP)) != 0)
            detach(&points[i]);
    }
}

void list_joined() {
    for (access_point &point : points) {
        if (!point.list_now || point.fd < 0)
            continue;
        point.list_now = false;
        read_all(&point);
    }
}

// Where all were given, one may have become free.
bool has_number(access_point *point) {
    if (point->ssid == 0)
        point->ssid = linux_wifi_number(point->name);
    if (point->ssid == 0)
        complain(point, "no number is left for it");
    return point->ssid != 0;
}

void look_after_all() {
    const bool looked = find_points();
    for (access_point &point : points) {
        if (point.name[0] == '\0')
            continue;
        if (has_number(&point))
            look_after(&point);
        if (looked)
            forget_missing(&point);
    }
}

// What the daemon is told of a station it may ask for at once: the figures come first, and by which button
// the station was let in.
void *run(void *) {
    int64_t next = 0;
    for (;;) {
        if (linux_now_ms() >= next) {
            next = linux_now_ms() + tick_ms;
            look_after_all();
        }
        cancel_sessions();
        list_joined();
        tell_news();
        wait_for_events();
    }
    return nullptr;
}

} // namespace

void linux_hostapd_start() {
    if (linux_settings()->hostapd[0] == '\0')
        return;
    linux_control_clean();
    for (unsigned ssid = 1; ssid <= LINUX_SSIDS; ssid++)
        if (const char *device = linux_settings()->ssid[ssid - 1]; device[0] != '\0')
            linux_wifi_reserve(ssid, device);
    for (access_point &point : points)
        point.fd = -1;
    (void)common_thread_start(run);
}
