#include "gateway/networks.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <netif.h>
#include <sys/socket.h>

#include <lsddb.h>

#include "base/log.h"
#include "base/text.h"

// Both start non-zero: not loaded.
int32_t hbs_rnd_status = -1;
int32_t hbs_lsd_status = -1;

bool hbs_rnd_load() {
    if (hbs_rnd_status != 0)
        hbs_rnd_status = RNDDB_Read(0, 1);
    return hbs_rnd_status == 0;
}

bool hbs_lsd_load() {
    if (hbs_lsd_status != 0)
        hbs_lsd_status = LSDDB_Read(0, 1);
    return hbs_lsd_status == 0;
}

namespace {

constexpr rnddb_params make_preset() {
    constexpr char vendor[] = "QUARN";
    rnddb_params preset = {};
    preset.rndidx = -1;
    preset.lease_time = 604800;
    preset.rebind_time = 604800;
    preset.max_leases = 512;
    preset.decline_limit = 5;
    preset.offer_window = 64;
    preset.renew_interval = 3600;
    std::copy(std::begin(vendor), std::end(vendor), preset.vendor);
    return preset;
}

} // namespace

void hbs_rnd_preset(rnddb_params *entry) {
    static constexpr rnddb_params preset = make_preset();
    *entry = preset;
}

bool hbs_rnd_walk(hbs_rnd_visitor visit, void *context) {
    rnddb_handle handle{};
    rnddb_params entry;
    hbs_rnd_preset(&entry);
    int result = RNDDB_Get1stHandleParams(&handle, &entry);
    while (result == 0) {
        if (!visit(&entry, context))
            return false;
        hbs_rnd_preset(&entry);
        result = RNDDB_GetNextHandleParams(&handle, &entry);
    }
    return true;
}

namespace {

struct entry_search {
    int rndidx;
    rnddb_params *found;
};

bool visit_by_rndidx(const rnddb_params *entry, void *context) {
    auto *search = static_cast<entry_search *>(context);
    if (entry->rndidx != search->rndidx)
        return true;
    *search->found = *entry;
    return false;
}

struct address_search {
    int family;
    const uint8_t *address;
    int nwidx;
};

// The first matching entry wins; the walk still goes to its end, so that the library's own cursor does too.
bool visit_by_address(const rnddb_params *entry, void *context) {
    auto *search = static_cast<address_search *>(context);
    if (search->nwidx >= 0)
        return true;
    char buffer[128] = "";
    (void)RNDDB_GetAddress(entry, 1, buffer, sizeof buffer);
    if (RNDDB_GetSubnetForAddress(entry, search->family, search->address, nullptr) == 0)
        search->nwidx = entry->rndidx - 1;
    return true;
}

struct ifindex_search {
    uint32_t ifindex;
    int nwidx;
};

bool visit_by_ifindex(const rnddb_params *entry, void *context) {
    auto *search = static_cast<ifindex_search *>(context);
    const int ifindex = NETIF_GetIndex(entry->ifname);
    if (search->nwidx < 0 && ifindex != 0 && static_cast<uint32_t>(ifindex) == search->ifindex)
        search->nwidx = entry->rndidx - 1;
    return true;
}

struct ifname_search {
    const char *ifname;
    int ifindex;
};

bool visit_by_ifname(const rnddb_params *entry, void *context) {
    auto *search = static_cast<ifname_search *>(context);
    if (strcmp(entry->ifname, search->ifname) != 0)
        return true;
    search->ifindex = NETIF_GetIndex(entry->ifname);
    return false;
}

// The IPv6 text prints each byte with %x, so that leading zeros are lost; kept as readers of the log know it.
void log_address(int family, const uint8_t *a, int nwidx) {
    if (family == AF_INET)
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_address_to_nwidx address is in nw %d : address %d.%d.%d.%d", nwidx,
                a[0], a[1], a[2], a[3]);
    else if (family == AF_INET6)
        HBS_LOG(HBS_INFO,
                "HOSTBASE: hbs_address_to_nwidx address is in nw %d : address "
                "%x%x:%x%x:%x%x:%x%x:%x%x:%x%x:%x%x:%x%x",
                nwidx, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11], a[12], a[13],
                a[14], a[15]);
    else
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_address_to_nwidx address is in nw %d", nwidx);
}

} // namespace

int hbs_rnd_find(int rndidx, rnddb_params *entry) {
    entry_search search{rndidx, entry};
    return hbs_rnd_walk(visit_by_rndidx, &search) ? -1 : 0;
}

bool hbs_address_is_in_a_network(int family, const uint8_t *address) {
    if (!hbs_rnd_load())
        return false;
    address_search search{family, address, -1};
    (void)hbs_rnd_walk(visit_by_address, &search);
    return search.nwidx >= 0;
}

int hbs_address_to_nwidx(int family, const uint8_t *address) {
    if (!hbs_rnd_load())
        return -1;
    address_search search{family, address, -1};
    (void)hbs_rnd_walk(visit_by_address, &search);
    log_address(family, address, search.nwidx);
    return search.nwidx;
}

int hbs_ifindex_to_nwidx(uint32_t ifindex) {
    if (!hbs_rnd_load())
        return -1;
    ifindex_search search{ifindex, -1};
    (void)hbs_rnd_walk(visit_by_ifindex, &search);
    return search.nwidx;
}

int hbs_ifname_to_ifindex(const char *ifname) {
    if (!hbs_rnd_load())
        return -1;
    ifname_search search{ifname, -1};
    (void)hbs_rnd_walk(visit_by_ifname, &search);
    return search.ifindex;
}

int hbs_ssid_to_nwidx(uint32_t ssid) {
    if (!hbs_lsd_load())
        return -1;
    lsddb_key key{};
    key.type = LSDDB_KEY_DEVICE;
    (void)snprintf(key.device, sizeof key.device, "%d", static_cast<int>(ssid));
    lsddb_params params{};
    params.type = LSDDB_RECORD_DEVICE;
    params.group = -1;
    params.enabled = 1;
    hbs_copy_text(params.bridge, sizeof params.bridge, "l2sd0");
    return LSDDB_GetDevParams(&key, &params) == 0 ? params.group - 1 : -1;
}
