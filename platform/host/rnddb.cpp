// Router database: a copy of the LAN networks in the file of values, made by each RNDDB_Read.
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <pthread.h>

#include <rnddb.h>

#include "host_values.h"

namespace {

struct router_entry {
    rnddb_params params;
    bool has_lease_time;
    int routed;
};

struct router_table {
    bool usable;
    size_t count;
    router_entry entry[RNDDB_MAX_ENTRIES];
};

pthread_mutex_t database_mutex = PTHREAD_MUTEX_INITIALIZER;
router_table database;

// Reads "address/prefix" with the prefix length in 0 to `longest`.
bool read_prefix(const char *text, int family, uint8_t *address, uint32_t longest, uint32_t *prefix) {
    char copy[INET6_ADDRSTRLEN + 4];
    if (!host_copy_whole(copy, sizeof copy, text))
        return false;
    char *slash = strchr(copy, '/');
    if (slash == nullptr)
        return false;
    *slash = '\0';
    return host_text_to_u32(slash + 1, prefix) && *prefix <= longest && inet_pton(family, copy, address) == 1;
}

bool read_ipv4(const char *text, rnddb_params *params) {
    return text == nullptr || read_prefix(text, AF_INET, params->ipv4, 32, &params->prefix_length);
}

bool read_ipv6(const char *text, rnddb_params *params) {
    if (text == nullptr)
        return true;
    uint8_t address[16];
    uint32_t prefix = 0;
    if (!read_prefix(text, AF_INET6, address, 64, &prefix) || prefix != 64)
        return false;
    memcpy(params->ipv6_prefix, address, sizeof params->ipv6_prefix);
    params->ipv6_enabled = 1;
    return true;
}

bool read_pool(const char *text, rnddb_params *params) {
    if (text == nullptr)
        return true;
    char first[INET_ADDRSTRLEN];
    char last[INET_ADDRSTRLEN];
    char extra[1];
    return host_next_word(&text, first, sizeof first) == 1 && host_next_word(&text, last, sizeof last) == 1 &&
           host_next_word(&text, extra, sizeof extra) == 0 &&
           inet_pton(AF_INET, first, params->pool_start) == 1 &&
           inet_pton(AF_INET, last, params->pool_end) == 1;
}

bool read_numbers(unsigned number, router_entry *entry) {
    const char *lan = host_value_with("network.%u.lan", number);
    const char *routed = host_value_with("network.%u.routed", number);
    const char *lease_time = host_value_with("network.%u.lease_time", number);
    int64_t truth = 1;
    entry->params.lan_number = number + 1;
    if (lan != nullptr && !host_text_to_u32(lan, &entry->params.lan_number))
        return false;
    if (routed != nullptr && !host_text_to_number(routed, 0, 1, &truth))
        return false;
    entry->routed = static_cast<int>(truth);
    entry->has_lease_time = lease_time != nullptr;
    return lease_time == nullptr || host_text_to_u32(lease_time, &entry->params.lease_time);
}

bool read_entry(unsigned number, const char *ifname, router_entry *entry) {
    rnddb_params *params = &entry->params;
    params->rndidx = static_cast<int32_t>(number);
    return *ifname != '\0' && host_copy_whole(params->ifname, sizeof params->ifname, ifname) &&
           read_ipv4(host_value_with("network.%u.ipv4", number), params) &&
           read_pool(host_value_with("network.%u.pool", number), params) &&
           read_ipv6(host_value_with("network.%u.ipv6", number), params) && read_numbers(number, entry);
}

// Returns 0, or an error number for a file with no network or one that cannot be understood.
int read_entries(router_table *table) {
    for (unsigned number = 1; number <= RNDDB_MAX_ENTRIES; number++) {
        const char *ifname = host_value_with("network.%u.ifname", number);
        if (ifname == nullptr)
            continue;
        if (!read_entry(number, ifname, &table->entry[table->count]))
            return EINVAL;
        table->count++;
    }
    table->usable = table->count > 0;
    return table->usable ? 0 : ENOENT;
}

// The fields that the file gives; the others keep the caller's preset.
void fill(const router_entry *entry, rnddb_params *params) {
    rnddb_params filled = *params;
    const rnddb_params *from = &entry->params;
    filled.rndidx = from->rndidx;
    memcpy(filled.ifname, from->ifname, sizeof filled.ifname);
    memcpy(filled.ipv4, from->ipv4, sizeof filled.ipv4);
    filled.prefix_length = from->prefix_length;
    memcpy(filled.pool_start, from->pool_start, sizeof filled.pool_start);
    memcpy(filled.pool_end, from->pool_end, sizeof filled.pool_end);
    filled.ipv6_enabled = from->ipv6_enabled;
    memcpy(filled.ipv6_prefix, from->ipv6_prefix, sizeof filled.ipv6_prefix);
    filled.lan_number = from->lan_number;
    if (entry->has_lease_time)
        filled.lease_time = from->lease_time;
    *params = filled;
}

// One step of a walk: 0, 1 at the end, -1 when nothing was read yet.
int step(rnddb_handle *handle, int32_t position, rnddb_params *params) {
    int result = -1;
    (void)pthread_mutex_lock(&database_mutex);
    if (database.usable && position >= 0) {
        bool there = static_cast<size_t>(position) < database.count;
        if (there) {
            fill(&database.entry[position], params);
            handle->position = position + 1;
        }
        result = there ? 0 : 1;
    }
    (void)pthread_mutex_unlock(&database_mutex);
    return result;
}

// Copies the entry with a number. Returns whether there is one.
bool copy_entry(int rndidx, router_entry *copy) {
    bool found = false;
    (void)pthread_mutex_lock(&database_mutex);
    for (size_t i = 0; database.usable && i < database.count; i++) {
        if (database.entry[i].params.rndidx == rndidx) {
            *copy = database.entry[i];
            found = true;
        }
    }
    (void)pthread_mutex_unlock(&database_mutex);
    return found;
}

bool is_zero(const uint8_t address[4]) {
    return (address[0] | address[1] | address[2] | address[3]) == 0;
}

bool in_ipv4_subnet(const rnddb_params *entry, const uint8_t *address) {
    if (is_zero(entry->ipv4) || entry->prefix_length > 32)
        return false;
    for (uint32_t bit = 0; bit < entry->prefix_length; bit++)
        if (((entry->ipv4[bit / 8] ^ address[bit / 8]) >> (7 - bit % 8) & 1) != 0)
            return false;
    return true;
}

bool in_ipv6_subnet(const rnddb_params *entry, const uint8_t *address) {
    return entry->ipv6_enabled != 0 && memcmp(entry->ipv6_prefix, address, sizeof entry->ipv6_prefix) == 0;
}

} // namespace

int RNDDB_Read(int, int) {
    router_table fresh = {};
    int result = 0;
    {
        host_values_hold hold;
        if (host_told_to_fail("RNDDB_Read", &result))
            return result;
        result = read_entries(&fresh);
    }
    if (result != 0)
        return result;
    (void)pthread_mutex_lock(&database_mutex);
    database = fresh;
    (void)pthread_mutex_unlock(&database_mutex);
    return 0;
}

int RNDDB_Get1stHandleParams(rnddb_handle *handle, rnddb_params *params) {
    int result = 0;
    if (host_call_fails("RNDDB_Get1stHandleParams", &result))
        return result;
    return handle != nullptr && params != nullptr ? step(handle, 0, params) : -1;
}

int RNDDB_GetNextHandleParams(rnddb_handle *handle, rnddb_params *params) {
    int result = 0;
    if (host_call_fails("RNDDB_GetNextHandleParams", &result))
        return result;
    return handle != nullptr && params != nullptr ? step(handle, handle->position, params) : -1;
}

int RNDDB_GetAddress(const rnddb_params *entry, int which, char *buffer, uint32_t size) {
    int result = 0;
    if (host_call_fails("RNDDB_GetAddress", &result))
        return result;
    if (entry == nullptr || buffer == nullptr || which != 1 || is_zero(entry->ipv4))
        return -1;
    char text[INET_ADDRSTRLEN + 12];
    (void)snprintf(text, sizeof text, "%u.%u.%u.%u/%u", entry->ipv4[0], entry->ipv4[1], entry->ipv4[2],
                   entry->ipv4[3], entry->prefix_length);
    return host_copy_whole(buffer, size, text) ? 0 : -1;
}

int RNDDB_GetSubnetForAddress(const rnddb_params *entry, int family, const uint8_t *address,
                              uint32_t *prefix_length) {
    int result = 0;
    if (host_call_fails("RNDDB_GetSubnetForAddress", &result))
        return result;
    if (entry == nullptr || address == nullptr)
        return -1;
    bool inside = (family == AF_INET && in_ipv4_subnet(entry, address)) ||
                  (family == AF_INET6 && in_ipv6_subnet(entry, address));
    if (!inside)
        return -1;
    if (prefix_length != nullptr)
        *prefix_length = family == AF_INET ? entry->prefix_length : 64;
    return 0;
}

int RNDDB_boolGetWithKeyAndIndex(int rndidx, const char *key, int *value) {
    int result = 0;
    if (host_call_fails("RNDDB_boolGetWithKeyAndIndex", &result))
        return result;
    router_entry entry = {};
    if (key == nullptr || value == nullptr || strcmp(key, "Routed") != 0 || !copy_entry(rndidx, &entry))
        return -1;
    *value = entry.routed;
    return 0;
}

int RNDDB_inet4AddrGetWithKeyAndIndex(const char *key, int rndidx, uint8_t address[4]) {
    int result = 0;
    if (host_call_fails("RNDDB_inet4AddrGetWithKeyAndIndex", &result))
        return result;
    router_entry entry = {};
    if (key == nullptr || address == nullptr || !copy_entry(rndidx, &entry))
        return -1;
    const struct {
        const char *key;
        const uint8_t *address;
    } addresses[] = {{"address_1", entry.params.ipv4},
                     {"dhcpv4startaddress", entry.params.pool_start},
                     {"dhcpv4endaddress", entry.params.pool_end}};
    for (const auto &known : addresses) {
        if (strcmp(known.key, key) != 0)
            continue;
        if (is_zero(known.address))
            return -1;
        memcpy(address, known.address, 4);
        return 0;
    }
    return -1;
}
