// The kernel's links, addresses and default routes at one moment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <net/if.h>

#include "linux_conf.h"
#include "linux_netlink.h"

constexpr size_t LINUX_LINKS = 256;
constexpr size_t LINUX_ADDRESSES = 256;
constexpr size_t LINUX_OUTWARD = 16;

// IFF_LOWER_UP of <linux/if.h>, which cannot stand beside <net/if.h>.
constexpr unsigned LINUX_LOWER_UP = 1u << 16;

struct linux_link {
    int index;
    int master; // 0 = none
    char name[IFNAMSIZ];
    bool bridge;
    bool vlan_aware; // a bridge that tells VLANs apart
    bool running;    // up and with carrier
    bool wifi;
    uint32_t carrier_changes; // so far, in either direction; 0 where the kernel does not count them
};

struct linux_address {
    int link;
    int family;
    uint8_t length; // of the prefix
    uint8_t bytes[16];
};

struct linux_view {
    bool cut; // there was more than fits
    size_t links;
    linux_link link[LINUX_LINKS];
    size_t addresses; // without link-local ones of IPv6
    linux_address address[LINUX_ADDRESSES];
    size_t outward;
    int outward_link[LINUX_OUTWARD]; // links with a default route
};

// Reads everything. Returns whether it is whole; errno says why not.
bool linux_view_read(linux_view *view);

// One message of the kernel's, into the view; what is none of the three kinds, or cut short, is passed over.
void linux_view_take(linux_view *view, hbs_netlink_bytes message);

// One message of a link, also of one that went. Returns false for any other, and for what is cut short.
bool linux_view_link(hbs_netlink_bytes message, linux_link *link);

// A bridge with an address and without a default route that the settings do not leave out.
bool linux_is_lan(const linux_view *view, const linux_link *link, const linux_conf *conf);

// Whether a link leads outward: it has a default route, or the settings name it.
bool linux_is_outward(const linux_view *view, int index, const linux_conf *conf);

const linux_link *linux_link_of(const linux_view *view, int index);
const linux_link *linux_link_named(const linux_view *view, const char *name);

// Whether a device has a phy, or the settings say that it is Wi-Fi.
bool linux_is_wifi(const linux_link *link, const linux_conf *conf);
