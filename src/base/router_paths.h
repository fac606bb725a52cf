// Places of a Linux router that are other programs' or its administrator's; the daemon's own stand in
// paths.h.
#pragma once

#define HBS_ROUTER_SETTINGS "/etc/gw_hostbase/linux.conf"
#define HBS_ROUTER_PATH_SIZE 108 // of a path in them, with its NUL: as much as a Unix socket's address holds
#define HBS_ROUTER_ACCESS_POINTS "/run/hostapd" // hostapd's control sockets

// Where DHCP servers have their lease files: dnsmasq's on Debian and elsewhere, Kea's. dnsmasq's may be its
// user's.
#define HBS_ROUTER_DNSMASQ_USER "dnsmasq"
#define HBS_ROUTER_DNSMASQ_LEASES "/var/lib/misc/dnsmasq.leases"
#define HBS_ROUTER_DNSMASQ_LEASES_TOO "/tmp/dhcp.leases"
#define HBS_ROUTER_KEA_LEASES4 "/var/lib/kea/kea-leases4.csv"
#define HBS_ROUTER_KEA_LEASES6 "/var/lib/kea/kea-leases6.csv"
