// The kernel as it stands now, kept by a thread that hears of its changes.
#pragma once

#include <netif.h>

#include <extswt.h>
#include <rnddb.h>

// What calls under the daemon's lock may ask at any time: nothing here waits for the kernel.

// Starts at the first call. Returns whether the kernel could be read.
bool linux_watch_start();

void linux_watch_on_links(extswt_link_cb callback);

// Kernel indices of the LAN bridges that have numbers. Returns how many. vlan_aware [out]: of each.
constexpr int LINUX_MOST_BRIDGES = RNDDB_MAX_ENTRIES;
int linux_watch_bridges(int index[LINUX_MOST_BRIDGES], bool vlan_aware[LINUX_MOST_BRIDGES]);

bool linux_watch_is_outward(int index);
bool linux_watch_lan_name(unsigned number, char name[NETIF_NAME_SIZE]); // number from 1
int linux_watch_lan_index(unsigned number);                             // of its bridge, 0 = it is not there

// Kernel index of a link by its name, 0 = there is none. To ask the kernel for a name that it does not know
// may have it look for a driver.
int linux_watch_index(const char *name);

// LAN number (from 1) of the bridge that a device is a port of, 0 = of none. A bridge without an address is
// none, though it has its number.
unsigned linux_watch_lan_of_port(const char *device);

// Port number of a device of the LAN bridges, 0 = none of the wired ones.
unsigned linux_watch_port_of(int index);

// Whether a device of a LAN bridge is a Wi-Fi access point's.
bool linux_watch_is_wifi(int index);
