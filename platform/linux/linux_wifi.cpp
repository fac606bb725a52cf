#include "linux_wifi.h"

#include <cstring>
#include <pthread.h>

#include "common_text.h"

namespace {

struct network {
    char device[IFNAMSIZ]; // empty = no such number
    bool used;             // there is such an access point now
    bool reserved;         // the settings gave the number
    char authentication[WLAN_TEXT_SIZE];
    char wps_result[WLAN_TEXT_SIZE];
    bool cancel;
};

// Sets of networks: bit 0 is number 1.
struct place {
    linux_station station;
    bool used;
    bool settled;       // it was on none for so long
    uint32_t on;        // where it is, by what the access points say
    uint32_t listed;    // named by a list that is being read
    unsigned last;      // where it joined last
    unsigned told;      // what the daemon knows, 0 = on none
    bool joined;        // since it was told
    int64_t tell_at_ms; // while it is on none: when that is told
};

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
network networks[LINUX_SSIDS];
place places[LINUX_STATIONS];

struct hold {
    hold() { (void)pthread_mutex_lock(&lock); }
    ~hold() { (void)pthread_mutex_unlock(&lock); }
    hold(const hold &) = delete;
    hold &operator=(const hold &) = delete;
};

uint32_t bit_of(unsigned ssid) {
    return 1u << (ssid - 1);
}

network *network_of(unsigned ssid) {
    const bool there = ssid >= 1 && ssid <= LINUX_SSIDS && networks[ssid - 1].device[0] != '\0';
    return there ? &networks[ssid - 1] : nullptr;
}

network *network_named(const char *device) {
    for (network &each : networks)
        if (strcmp(each.device, device) == 0)
            return &each;
    return nullptr;
}

place *find(const uint8_t mac[6]) {
    for (place &each : places)
        if (each.used && memcmp(each.station.mac, mac, sizeof each.station.mac) == 0)
            return &each;
    return nullptr;
}

place *find_or_add(const uint8_t mac[6]) {
    place *found = find(mac);
    for (place &each : places) {
        if (found != nullptr || each.used)
            continue;
        each = {};
        each.used = true;
        memcpy(each.station.mac, mac, sizeof each.station.mac);
        found = &each;
    }
    return found;
}

// Where it joined last counts while it is there: the word of its leaving the network before comes late.
unsigned now_on(const place *each) {
    if (each->last != 0 && (each->on & bit_of(each->last)) != 0)
        return each->last;
    for (unsigned ssid = 1; ssid <= LINUX_SSIDS; ssid++)
        if ((each->on & bit_of(ssid)) != 0)
            return ssid;
    return 0;
}

// As the daemon is to see it.
unsigned seen_on(const place *each) {
    const unsigned now = now_on(each);
    return now == 0 && !each->settled ? each->told : now;
}

// Lists come at different moments, and access points count whole seconds.
constexpr int64_t same_moment_ms = 1000;

// Whether a network that lists a station is where it is now, rather than where it joined last.
bool is_later(const place *each, unsigned ssid, int64_t since_ms) {
    if (since_ms == 0) // then only what is new is told
        return (each->on & bit_of(ssid)) == 0;
    return now_on(each) == 0 || since_ms > each->station.since_ms + same_moment_ms;
}

// Nothing is known of a station that comes but where it is.
void arrive(place *each, unsigned ssid, int64_t since_ms) {
    if (each->last != ssid)
        memset(each->station.figure, 0, sizeof each->station.figure);
    each->last = ssid;
    each->station.since_ms = since_ms;
}

void leave(place *each, uint32_t networks_left, int64_t tell_at_ms) {
    if (each->on != 0 && (each->on & ~networks_left) == 0) {
        each->tell_at_ms = tell_at_ms;
        each->joined = false;
    }
    each->on &= ~networks_left;
    if (const unsigned now = now_on(each); now != 0 && now != each->last)
        arrive(each, now, 0);
}

void drop_if_nothing_left(place *each) {
    if (each->on == 0 && each->told == 0)
        each->used = false;
}

} // namespace

void linux_wifi_here(unsigned ssid, const linux_station *station, bool joined, bool has_figures) {
    const hold held;
    place *each = network_of(ssid) != nullptr ? find_or_add(station->mac) : nullptr;
    if (each == nullptr)
        return;
    if (joined || is_later(each, ssid, station->since_ms))
        arrive(each, ssid, station->since_ms);
    each->joined = each->joined || joined;
    each->on |= bit_of(ssid);
    each->listed |= bit_of(ssid);
    each->settled = false;
    if (has_figures && now_on(each) == ssid)
        each->station = *station;
}

void linux_wifi_gone(unsigned ssid, const uint8_t mac[6], int64_t tell_at_ms) {
    const hold held;
    place *each = network_of(ssid) != nullptr ? find(mac) : nullptr;
    if (each == nullptr)
        return;
    leave(each, bit_of(ssid), tell_at_ms);
    drop_if_nothing_left(each);
}

void linux_wifi_list_begin(unsigned ssid) {
    const hold held;
    for (place &each : places)
        each.listed &= ~bit_of(ssid);
}

void linux_wifi_list_end(unsigned ssid, int64_t tell_at_ms) {
    const hold held;
    for (place &each : places) {
        if (!each.used)
            continue;
        leave(&each, bit_of(ssid) & ~each.listed, tell_at_ms);
        drop_if_nothing_left(&each);
    }
}

void linux_wifi_texts(unsigned ssid, const char *authentication, const char *wps_result) {
    const hold held;
    network *found = network_of(ssid);
    if (found == nullptr)
        return;
    if (authentication != nullptr)
        (void)common_copy_whole(found->authentication, WLAN_TEXT_SIZE, authentication);
    if (wps_result != nullptr)
        (void)common_copy_whole(found->wps_result, WLAN_TEXT_SIZE, wps_result);
}

void linux_wifi_reserve(unsigned ssid, const char *device) {
    const hold held;
    if (ssid < 1 || ssid > LINUX_SSIDS)
        return;
    (void)common_copy_whole(networks[ssid - 1].device, IFNAMSIZ, device);
    networks[ssid - 1].reserved = true;
}

unsigned linux_wifi_number(const char *device) {
    const hold held;
    network *found = network_named(device);
    if (found == nullptr)
        found = network_named("");
    for (network &each : networks)
        if (found == nullptr && !each.used && !each.reserved)
            found = &each;
    if (found == nullptr)
        return 0;
    if (strcmp(found->device, device) != 0)
        *found = {};
    found->used = true;
    (void)common_copy_whole(found->device, IFNAMSIZ, device);
    return static_cast<unsigned>(found - networks) + 1;
}

void linux_wifi_free(unsigned ssid) {
    const hold held;
    if (network *found = network_of(ssid); found != nullptr)
        found->used = false;
}

namespace {

// 1 for a station that came, -1 for one that went, 0 for neither. Who comes to a network that is on no LAN is
// told of once it is on one; until then that one is gone from where it was.
int news_of(const place *each, const bool on_lan[LINUX_SSIDS]) {
    const unsigned now = now_on(each);
    if (!each->used || (seen_on(each) == each->told && !each->joined))
        return 0;
    if (now != 0 && on_lan[now - 1])
        return 1;
    return each->told == 0 || each->told == now ? 0 : -1;
}

} // namespace

int linux_wifi_next_news(int64_t now_ms, linux_wifi_lan_check is_on_lan, uint8_t mac[6], unsigned *ssid) {
    const hold held;
    bool on_lan[LINUX_SSIDS];
    for (unsigned i = 0; i < LINUX_SSIDS; i++)
        on_lan[i] = networks[i].device[0] != '\0' && is_on_lan(networks[i].device);
    for (place &each : places) {
        const unsigned now = now_on(&each);
        each.settled = now == 0 && now_ms >= each.tell_at_ms;
        const int news = news_of(&each, on_lan);
        if (news == 0)
            continue;
        memcpy(mac, each.station.mac, sizeof each.station.mac);
        *ssid = news > 0 ? now : each.told;
        return news;
    }
    return 0;
}

void linux_wifi_told(const uint8_t mac[6], unsigned ssid) {
    const hold held;
    place *each = find(mac);
    if (each == nullptr)
        return;
    each->told = ssid;
    each->joined = false;
    drop_if_nothing_left(each);
}

unsigned linux_wifi_next_cancel() {
    const hold held;
    for (unsigned ssid = 1; ssid <= LINUX_SSIDS; ssid++) {
        if (!networks[ssid - 1].cancel)
            continue;
        networks[ssid - 1].cancel = false;
        return ssid;
    }
    return 0;
}

bool linux_wifi_count(unsigned ssid, uint32_t *count) {
    const hold held;
    if (network_of(ssid) == nullptr)
        return false;
    uint32_t found = 0;
    for (const place &each : places)
        found += each.used && seen_on(&each) == ssid;
    *count = found;
    return true;
}

bool linux_wifi_station(unsigned ssid, uint32_t index, linux_station *station) {
    const hold held;
    for (const place &each : places) {
        if (!each.used || seen_on(&each) != ssid || index-- > 0)
            continue;
        *station = each.station;
        return true;
    }
    return false;
}

bool linux_wifi_ssid_of(const uint8_t mac[6], uint32_t *ssid) {
    const hold held;
    const place *each = find(mac);
    const unsigned now = each != nullptr ? seen_on(each) : 0;
    if (now != 0)
        *ssid = now;
    return now != 0;
}

bool linux_wifi_authentication(unsigned ssid, char text[WLAN_TEXT_SIZE]) {
    const hold held;
    const network *found = network_of(ssid);
    if (found == nullptr || found->authentication[0] == '\0')
        return false;
    return common_copy_whole(text, WLAN_TEXT_SIZE, found->authentication);
}

bool linux_wifi_wps_result(unsigned ssid, char text[WLAN_TEXT_SIZE]) {
    const hold held;
    const network *found = network_of(ssid);
    if (found == nullptr || found->wps_result[0] == '\0')
        return false;
    return common_copy_whole(text, WLAN_TEXT_SIZE, found->wps_result);
}

bool linux_wifi_cancel(unsigned ssid) {
    const hold held;
    network *found = network_of(ssid);
    if (found == nullptr)
        return false;
    found->cancel = true;
    return true;
}

bool linux_wifi_device(unsigned ssid, char device[IFNAMSIZ]) {
    const hold held;
    const network *found = network_of(ssid);
    return found != nullptr && common_copy_whole(device, IFNAMSIZ, found->device);
}
