// The access points of this machine, by hostapd's control sockets.
#pragma once

#include <cstddef>

#include "linux_wifi.h"

// Asks and hears them from now on, on a thread of its own.
void linux_hostapd_start();

// Reads a reply that describes a station (its MAC address in the first line, then "name=value" lines).
// Returns whether there is a MAC; what is not named or no number is 0.
bool linux_hostapd_station(const char *reply, linux_station *station);

// Whether the station of such a reply has logged in; also where hostapd does not say.
bool linux_hostapd_authorized(const char *reply);

// The value of a line "name=value" or "name: value" into `value`, empty when there is none or it does not
// fit.
void linux_hostapd_value(const char *reply, const char *name, char *value, size_t size);
