// The devices behind the LAN bridges, as ports of a switch.
#pragma once

#include <extswt.h>

#include "linux_view.h"

struct linux_port {
    char name[IFNAMSIZ]; // empty = free
    int index;           // 0 = the device is gone
    bool running;
    uint32_t carrier_changes; // of the device, as linux_link has them
    uint64_t seen;            // number of the last update that found the device
};

// A port keeps its number as long as the process lives, also while its device is gone, until a new device
// needs one and all are given: then the port goes whose device has been gone longest. One that the settings
// name never goes.
struct linux_ports {
    uint64_t updates;
    linux_port port[EXTSWT_PORTS]; // port N at N - 1
};

// Ports that lost their carrier or left their bridge, if only for a moment.
struct linux_dips {
    bool port[EXTSWT_PORTS]; // port N at N - 1
};

// Brings the ports into line with a view: new devices get their numbers, in the order of their names.
// Ports that were without carrier in between are added to dips: they run as before, and the kernel counts
// more changes, or the device is another one of that name.
void linux_ports_update(linux_ports *ports, const linux_view *view, const linux_conf *conf, linux_dips *dips);

// Adds the port that a message says has lost its carrier or left its bridge, unless the ports show that
// already.
void linux_ports_note(const linux_ports *ports, hbs_netlink_bytes message, linux_dips *dips);

// Whether a device is a wired port of a LAN bridge.
bool linux_is_port(const linux_view *view, const linux_link *link, const linux_conf *conf);

// Port number of a device, 0 = none.
unsigned linux_port_of(const linux_ports *ports, int index);

// As the link callback gets them; a number without a device counts as up.
void linux_ports_states(const linux_ports *ports, uint32_t states[EXTSWT_PORTS]);
