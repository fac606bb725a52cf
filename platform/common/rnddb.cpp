// Router database: a copy of the LAN networks as the platform knows them, made by each RNDDB_Read.
#include <arpa/inet.h>
#include <cstring>
#include <pthread.h>

#include <rnddb.h>

#include "common_hooks.h"
#include "common_router.h"

namespace {

pthread_mutex_t database_mutex = PTHREAD_MUTEX_INITIALIZER;
common_router_table database;

// The fields that the file gives; the others keep the caller's preset.
void fill(const common_router_entry *entry, rnddb_params *params) {
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
bool copy_entry(int rndidx, common_router_entry *copy) {
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

bool same_bits(const uint8_t *a, const uint8_t *b, uint32_t bits) {
    const uint32_t whole = bits / 8, rest = bits % 8;
    return memcmp(a, b, whole) == 0 && (rest == 0 || (a[whole] ^ b[whole]) >> (8 - rest) == 0);
}

// The subnets that the caller's entry has itself: its primary address' and its IPv6 prefix.
bool in_own_subnet(const rnddb_params *entry, int family, const uint8_t *address, uint32_t *length) {
    if (family == AF_INET) {
        *length = entry->prefix_length;
        return !is_zero(entry->ipv4) && *length <= 32 && same_bits(entry->ipv4, address, *length);
    }
    *length = 64;
    return entry->ipv6_enabled != 0 && same_bits(entry->ipv6_prefix, address, *length);
}

bool in_other_subnet(const common_router_entry *entry, int family, const uint8_t *address, uint32_t *length) {
    for (size_t i = 0; i < entry->others; i++) {
        const common_router_subnet *subnet = &entry->other[i];
        if (subnet->family != family || !same_bits(subnet->address, address, subnet->length))
            continue;
        *length = subnet->length;
        return true;
    }
    return false;
}

} // namespace

void common_router_replace(const common_router_table *table) {
    (void)pthread_mutex_lock(&database_mutex);
    database = *table;
    (void)pthread_mutex_unlock(&database_mutex);
}

bool common_router_is_usable() {
    (void)pthread_mutex_lock(&database_mutex);
    const bool usable = database.usable;
    (void)pthread_mutex_unlock(&database_mutex);
    return usable;
}

int RNDDB_Read(int, int) {
    int result = 0;
    return common_call_fails("RNDDB_Read", &result) ? result : common_router_refresh();
}

int RNDDB_Get1stHandleParams(rnddb_handle *handle, rnddb_params *params) {
    int result = 0;
    if (common_call_fails("RNDDB_Get1stHandleParams", &result))
        return result;
    return handle != nullptr && params != nullptr ? step(handle, 0, params) : -1;
}

int RNDDB_GetNextHandleParams(rnddb_handle *handle, rnddb_params *params) {
    int result = 0;
    if (common_call_fails("RNDDB_GetNextHandleParams", &result))
        return result;
    return handle != nullptr && params != nullptr ? step(handle, handle->position, params) : -1;
}

int RNDDB_GetAddress(const rnddb_params *entry, int which, char *buffer, uint32_t size) {
    int result = 0;
    if (common_call_fails("RNDDB_GetAddress", &result))
        return result;
    if (entry == nullptr || buffer == nullptr || which != 1 || is_zero(entry->ipv4))
        return -1;
    common_line text;
    text.length = static_cast<size_t>(common_ipv4_to_text(entry->ipv4, text.text) - text.text);
    common_line_add_text(&text, "/");
    common_line_add_number(&text, entry->prefix_length);
    if (text.length >= size)
        return -1;
    memcpy(buffer, text.text, text.length);
    buffer[text.length] = '\0';
    return 0;
}

int RNDDB_GetSubnetForAddress(const rnddb_params *entry, int family, const uint8_t *address,
                              uint32_t *prefix_length) {
    int result = 0;
    if (common_call_fails("RNDDB_GetSubnetForAddress", &result))
        return result;
    if (entry == nullptr || address == nullptr)
        return -1;
    if (family != AF_INET && family != AF_INET6)
        return -1;
    uint32_t length = 0;
    common_router_entry whole = {};
    if (!in_own_subnet(entry, family, address, &length) &&
        (!copy_entry(entry->rndidx, &whole) || !in_other_subnet(&whole, family, address, &length)))
        return -1;
    if (prefix_length != nullptr)
        *prefix_length = length;
    return 0;
}

int RNDDB_boolGetWithKeyAndIndex(int rndidx, const char *key, int *value) {
    int result = 0;
    if (common_call_fails("RNDDB_boolGetWithKeyAndIndex", &result))
        return result;
    common_router_entry entry = {};
    if (key == nullptr || value == nullptr || strcmp(key, "Routed") != 0 || !copy_entry(rndidx, &entry))
        return -1;
    *value = entry.routed;
    return 0;
}

int RNDDB_inet4AddrGetWithKeyAndIndex(const char *key, int rndidx, uint8_t address[4]) {
    int result = 0;
    if (common_call_fails("RNDDB_inet4AddrGetWithKeyAndIndex", &result))
        return result;
    common_router_entry entry = {};
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
