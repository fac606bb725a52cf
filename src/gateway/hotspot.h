// Extra Wi-Fi (hotspot) interfaces: which interface names are enabled in the four groups.
#pragma once

#include <gwdb.h>

struct hbs_hotspot_names {
    gwdb_xwifi_names group[GWDB_XWIFI_GROUPS];
};

// Reads the enabled names of all groups; a group that nothing is written for counts as empty.
void hbs_hotspot_read(hbs_hotspot_names *names);

// Whether a name (at most 16 bytes) is among them. An empty name never is.
bool hbs_hotspot_has(const hbs_hotspot_names *names, const char *ifname);

// Reads the names and looks one up.
bool hbs_is_hotspot_interface(const char *ifname);
