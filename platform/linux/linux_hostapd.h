// The access points of this machine, by hostapd's control sockets.
#pragma once

#include <cstddef>

#include "linux_wifi.h"

// Asks and hears them from now on, on a thread of its own.
void linux_hostapd_start();

// Reads a reply that describes a station (its MAC address in the first line, then "name=value" lines).
// Returns whether there is a MAC; what is not named or no number is 0.
bool linux_hostapd_station(const char *reply, linux_station *station);

// Reads an event ("<3>AP-STA-CONNECTED 02:..." and the like). Returns 1 for a station that joined, -1 for one
// that left, 0 for any other event; mac is touched for stations only.
int linux_hostapd_event(const char *text, uint8_t mac[6]);

// Whether the station of such a reply has logged in; also where hostapd does not say.
bool linux_hostapd_authorized(const char *reply);

// The value of a line "name=value" or "name: value" into `value`, empty when there is none. What does not fit
// is cut.
void linux_hostapd_value(const char *reply, const char *name, char *value, size_t size);

// Whether it is the answer to a command that has no result, or that hostapd does not know.
bool linux_hostapd_refuses(const char *reply);

// The modes of authentication from its settings, as many as fit, "None" for an open network. Returns whether
// these are settings.
bool linux_hostapd_authentication(const char *reply, char *modes, size_t size);

// The result of the last push-button session, empty where there are none. Returns whether the answer says so.
bool linux_hostapd_wps_result(const char *reply, char *result, size_t size);
