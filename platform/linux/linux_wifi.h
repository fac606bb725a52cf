// The stations of this machine's access points, as calls under the daemon's lock may ask for them at any
// time. Network numbers ("ssid") are from 1; moments ("_ms") are of CLOCK_MONOTONIC.
#pragma once

#include <cstddef>
#include <cstdint>
#include <net/if.h>

#include <wlan.h>

#include "linux_conf.h"

constexpr size_t LINUX_STATIONS = 128;

// Link figures of a station, in the order in which the driver would list them.
enum linux_figure : size_t {
    LINUX_SIGNAL,         // dBm, a negative number as its two's complement
    LINUX_TRANSMIT_RATE,  // 100 kbit/s
    LINUX_RECEIVE_RATE,   // 100 kbit/s
    LINUX_CONNECTED_TIME, // seconds
    LINUX_INACTIVE_TIME   // milliseconds, when it was asked
};

struct linux_station {
    uint8_t mac[6];
    int64_t since_ms; // when it joined there, 0 = not said
    uint32_t figure[WLAN_LINK_FIGURES];
};

// --- what the access points say: the thread that asks them ---

// A station is there: it joined (`joined`), or it is listed. Of two networks that list it the one that it
// joined later counts, and its figures are those of that one.
void linux_wifi_here(unsigned ssid, const linux_station *station, bool joined, bool has_figures);

// A station has left. When it is on no other network by tell_at_ms, the daemon is told that it is gone; until
// then it counts as where the daemon knows it: who roams may be on none while it logs in at the next one.
void linux_wifi_gone(unsigned ssid, const uint8_t mac[6], int64_t tell_at_ms);

// What the last list of a network did not name is gone: begin, every station of the list, end.
void linux_wifi_list_begin(unsigned ssid);
void linux_wifi_list_end(unsigned ssid, int64_t tell_at_ms);

// A text that is null stays as it was.
void linux_wifi_texts(unsigned ssid, const char *authentication, const char *wps_result);

// Keeps a number for a device, as the settings have it. Before any other is given.
void linux_wifi_reserve(unsigned ssid, const char *device);

// Number of a device's network. It is the device's own until linux_wifi_free, and after that as long as there
// are others to give; 0 when there are too many.
unsigned linux_wifi_number(const char *device);
void linux_wifi_free(unsigned ssid);

// Whether the device of an access point is on a LAN: the daemon drops who joins one that is on none.
using linux_wifi_lan_check = bool (*)(const char *device);

// What the daemon has to be told next. Returns 1 for "joined ssid", -1 for "left ssid", 0 for nothing. It is
// told of a station's move by the new network alone, of each time that it joins, and of a network that is on
// no LAN once it is on one.
int linux_wifi_next_news(int64_t now_ms, linux_wifi_lan_check is_on_lan, uint8_t mac[6], unsigned *ssid);
void linux_wifi_told(const uint8_t mac[6], unsigned ssid); // 0 = that it left

// A network whose push-button session is to be cancelled, 0 = none.
unsigned linux_wifi_next_cancel();

// --- what the daemon asks ---

bool linux_wifi_count(unsigned ssid, uint32_t *count);
bool linux_wifi_station(unsigned ssid, uint32_t index, linux_station *station);
bool linux_wifi_ssid_of(const uint8_t mac[6], uint32_t *ssid);
bool linux_wifi_authentication(unsigned ssid, char text[WLAN_TEXT_SIZE]);
bool linux_wifi_wps_result(unsigned ssid, char text[WLAN_TEXT_SIZE]);
bool linux_wifi_cancel(unsigned ssid);
bool linux_wifi_device(unsigned ssid, char device[IFNAMSIZ]);
