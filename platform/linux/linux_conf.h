// The settings of a Linux router. Every key may be missing; so may the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <net/if.h>

#include <extswt.h>
#include <rnddb.h>

#include "base/router_paths.h"

constexpr const char *LINUX_CONF_FILE = HBS_ROUTER_SETTINGS;

constexpr unsigned LINUX_SSIDS = 16;
constexpr size_t LINUX_NAMES = 32;
constexpr size_t LINUX_PATH = HBS_ROUTER_PATH_SIZE;

struct linux_names {
    size_t count;
    char name[LINUX_NAMES][32]; // interface names or patterns as of a shell
};

struct linux_pool {
    bool given;
    uint8_t first[4];
    uint8_t last[4];
};

struct linux_number {
    bool given;
    uint32_t value;
};

struct linux_conf {
    char network[RNDDB_MAX_ENTRIES][IFNAMSIZ]; // the interface of network N at N - 1, empty = whichever comes
    linux_pool pool[RNDDB_MAX_ENTRIES];
    linux_number lease_time[RNDDB_MAX_ENTRIES]; // seconds
    char port[EXTSWT_PORTS][IFNAMSIZ];          // the device of port N at N - 1, empty = by name
    char ssid[LINUX_SSIDS][IFNAMSIZ];           // the device of Wi-Fi network N at N - 1, empty = by name
    linux_names wan;
    linux_names ignore; // bridges that are no LAN
    linux_names wifi;   // ports that are Wi-Fi although they have no phy
    bool syslog;
    uint32_t level; // highest severity that is logged
    bool presence;
    char events[LINUX_PATH]; // empty = nobody is told
    char hostapd[LINUX_PATH];
    char dhcp_hosts[LINUX_PATH]; // empty = static leases are told to nobody
    char dhcp_pid[LINUX_PATH];
    char dhcp_leases[LINUX_PATH]; // hbsctl goes by it
    linux_number wifi_settle;     // seconds
    linux_number flap_enable;
    linux_number flap_dhcp_interval; // seconds, as the two below
    linux_number flap_wlan_interval;
    linux_number flap_report_period;
};

// What makes no sense in a settings file.
constexpr size_t LINUX_COMPLAINTS = 16;
struct linux_complaints {
    size_t count; // those beyond the list count too
    struct {
        unsigned line;
        char key[32];
    } item[LINUX_COMPLAINTS];
};

// Reads a whole file into presets. What cannot be understood is complained of and passed over.
void linux_conf_parse(const char *path, linux_conf *conf, linux_complaints *complaints);
void linux_conf_preset(linux_conf *conf);

// The settings of this process, read at the first call.
const linux_conf *linux_settings();

// Logs what could not be understood, a line each. Once the logger works.
void linux_settings_complain();

// Whether a name fits one of the patterns.
bool linux_names_match(const linux_names *names, const char *name);
