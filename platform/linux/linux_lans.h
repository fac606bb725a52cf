// The LAN networks, and which number each has for good.
#pragma once

#include <net/if.h>

#include "common_router.h"
#include "linux_view.h"

struct linux_lan_numbers {
    char name[RNDDB_MAX_ENTRIES][IFNAMSIZ]; // of network N at N - 1, empty = free
};

// LANs for which there was no number left.
struct linux_left_out {
    size_t count; // those beyond the list are not counted
    char name[32][IFNAMSIZ];
};

// The numbers that the state directory keeps; what is configured stands above them. A line that makes no
// sense costs its own number only. Returns false where there is a file that cannot be read: it must not be
// replaced.
bool linux_lan_numbers_load(const char *path, const linux_conf *conf, linux_lan_numbers *numbers);

// Gives each LAN of the view that has none the next free number. Returns whether there was one to give, so
// that they have to be saved.
bool linux_lan_numbers_give(const linux_view *view, const linux_conf *conf, linux_lan_numbers *numbers,
                            linux_left_out *left_out);

// Logs those that were not left out at the last call. One thread calls it.
void linux_left_out_log(const linux_left_out *left_out);

// Returns whether they are on the disk.
bool linux_lan_numbers_save(const char *path, const linux_lan_numbers *numbers);

// The bridge of a network by its number, from 1; null while it is not there or no LAN.
const linux_link *linux_lan_numbered(const linux_view *view, const linux_conf *conf,
                                     const linux_lan_numbers *numbers, unsigned number);

// The router database of a view. Of several IPv4 addresses of a network the first one that has static leases
// is the network's, or else the first.
void linux_lans_table(const linux_view *view, const linux_conf *conf, const linux_lan_numbers *numbers,
                      common_router_table *table);
