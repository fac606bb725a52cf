// Network index resolution: which LAN network an address, an interface or an SSID belongs to.
// nwidx = rndidx - 1, so the first router entry is network 0; -1 = in no known network.
// Callers hold hbs_list_mutex, which also protects the two status words.
#pragma once

#include <cstdint>

#include <rnddb.h>

// Results of the last RNDDB_Read / LSDDB_Read: 0 = loaded. Any other value makes every lookup read
// again and, while that fails, return -1.
extern int32_t hbs_rnd_status;
extern int32_t hbs_lsd_status;

// Loads the database unless it is loaded. Returns whether it is usable.
bool hbs_rnd_load();
bool hbs_lsd_load();

// Presets a record with the library's defaults before a walk (index -1, lease time 604800 s, ...).
void hbs_rnd_preset(rnddb_params *entry);

// Calls `visit` for each router entry in order until it returns false or the walk ends.
// The database must be loaded. Returns false when `visit` stopped the walk.
using hbs_rnd_visitor = bool (*)(const rnddb_params *entry, void *context);
bool hbs_rnd_walk(hbs_rnd_visitor visit, void *context);

// Router entry by rndidx (from 1) into *entry. Returns 0, or -1 when there is none.
int hbs_rnd_find(int rndidx, rnddb_params *entry);

// family AF_INET or AF_INET6; address 4 or 16 bytes, network order. Logged, also when it is -1.
int hbs_address_to_nwidx(int family, const uint8_t *address);

// Whether it would find one; not logged.
bool hbs_address_is_in_a_network(int family, const uint8_t *address);

// nwidx of the first router entry whose interface has this kernel index, or -1.
int hbs_ifindex_to_nwidx(uint32_t ifindex);

// if_nametoindex of the first router entry whose interface has exactly this name, or -1.
int hbs_ifname_to_ifindex(const char *ifname);

// ssid from 1. LSDDB group - 1, or -1.
int hbs_ssid_to_nwidx(uint32_t ssid);

// In host order. A length over 32 counts as 32.
constexpr uint32_t hbs_netmask_of(uint32_t prefix_length) {
    if (prefix_length == 0)
        return 0;
    return prefix_length >= 32 ? ~uint32_t{0} : ~uint32_t{0} << (32 - prefix_length);
}
