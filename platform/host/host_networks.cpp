// The LAN networks in the file of values.
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>

#include "common_router.h"
#include "host_values.h"

namespace {

// Reads "address/prefix" with the prefix length in 0 to `longest`.
bool read_prefix(const char *text, int family, uint8_t *address, uint32_t longest, uint32_t *prefix) {
    char copy[INET6_ADDRSTRLEN + 4];
    if (!common_copy_whole(copy, sizeof copy, text))
        return false;
    char *slash = strchr(copy, '/');
    if (slash == nullptr)
        return false;
    *slash = '\0';
    return common_text_to_u32(slash + 1, prefix) && *prefix <= longest &&
           inet_pton(family, copy, address) == 1;
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
    return text == nullptr || common_text_to_pool(text, params->pool_start, params->pool_end);
}

bool read_numbers(unsigned number, common_router_entry *entry) {
    const char *lan = host_value_with("network.%u.lan", number);
    const char *routed = host_value_with("network.%u.routed", number);
    const char *lease_time = host_value_with("network.%u.lease_time", number);
    int64_t truth = 1;
    entry->params.lan_number = number + 1;
    if (lan != nullptr && !common_text_to_u32(lan, &entry->params.lan_number))
        return false;
    if (routed != nullptr && !common_text_to_number(routed, 0, 1, &truth))
        return false;
    entry->routed = static_cast<int>(truth);
    entry->has_lease_time = lease_time != nullptr;
    return lease_time == nullptr || common_text_to_u32(lease_time, &entry->params.lease_time);
}

bool read_entry(unsigned number, const char *ifname, common_router_entry *entry) {
    rnddb_params *params = &entry->params;
    params->rndidx = static_cast<int32_t>(number);
    return *ifname != '\0' && common_copy_whole(params->ifname, sizeof params->ifname, ifname) &&
           read_ipv4(host_value_with("network.%u.ipv4", number), params) &&
           read_pool(host_value_with("network.%u.pool", number), params) &&
           read_ipv6(host_value_with("network.%u.ipv6", number), params) && read_numbers(number, entry);
}

// ENOENT for a file with no network, EINVAL for one that cannot be understood.
int read_table(common_router_table *table) {
    host_values_hold hold;
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

} // namespace

int common_router_refresh() {
    common_router_table fresh = {};
    const int result = read_table(&fresh);
    if (result == 0)
        common_router_replace(&fresh);
    return result;
}
