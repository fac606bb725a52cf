#include "events/dhcpv6.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <sys/socket.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "events/adapter.h"
#include "events/lease_texts.h"
#include "events/presence.h"
#include "events/wifi_index.h"
#include "gateway/neighbour_probe.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "gateway/switch_ports.h"
#include "store/client_add.h"
#include "store/client_dates.h"
#include "store/client_end.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/clients.h"
#include "store/merge.h"
#include "store/publish.h"

namespace {

// Whether a lease counts and no client has its link-local address.
bool is_of_nobody(const uint8_t ll[16], const uint8_t ipv6[16]) {
    const hbs_list_hold hold;
    return hbs_db_ready != 0 && hbs_address_is_in_a_network(AF_INET6, ipv6) &&
           hbs_find_by_ipv6(ll) == nullptr;
}

// Told of by its global address only, so the device of that address has no other name.
hbs_client *find_by_global_only(const uint8_t ipv6[16]) {
    hbs_client *client = hbs_find_nomac_by_ipv6(ipv6);
    return client != nullptr && !hbs_client_has_ll(client) ? client : nullptr;
}

// One that begins with 00 counts as absent when a client is to get it, deliberately; so do the zeros of one
// that is not known.
bool counts_as_mac(const uint8_t mac[6]) {
    return mac[0] != 0;
}

// By the link-local address, else by the MAC that the kernel has for it: one that was told of by its global
// address only is merged into that client, or gets the MAC. A message without a link-local address tells of
// the client that has the leased one.
hbs_client *find_leased(const hbs_dhcpv6_lease *lease, const hbs_dhcpv6_neighbour *neighbour) {
    if (hbs_ipv6_is_zero(lease->ll))
        return hbs_find_by_ipv6(lease->ipv6);
    if (hbs_client *client = hbs_find_by_ipv6(lease->ll); client != nullptr)
        return client;
    if (hbs_client *client = find_by_global_only(lease->ipv6); client != nullptr)
        return counts_as_mac(neighbour->mac) ? hbs_set_mac(client, neighbour->mac) : client;
    return neighbour->known ? hbs_find_by_mac(neighbour->mac) : nullptr;
}

// The client of a lease, or a new one. Null when memory runs out.
hbs_client *find_or_add(const hbs_dhcpv6_lease *lease, const hbs_dhcpv6_neighbour *neighbour, int nwidx) {
    const uint8_t *mac = neighbour->mac; // zeros when it is not known
    hbs_client *client = find_leased(lease, neighbour);
    if (client != nullptr)
        return client;
    HBS_LOG(HBS_INFO,
            "HOSTBASE: Got DHCPv6 LEASE event on nw %d: no client with this linklocal address "
            "[%02x:%02x:%02x:%02x:%02x:%02x]",
            nwidx, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    if (!counts_as_mac(mac))
        hbs_client_end_nobody();
    client = hbs_add(counts_as_mac(mac) ? mac : nullptr);
    if (client != nullptr)
        hbs_set_start_time(client);
    return client;
}

// Whether a message names a client by either address; one that does not is dropped.
bool names_client(const char *event, const uint8_t ll[16], const uint8_t ipv6[16]) {
    if (!hbs_ipv6_is_zero(ll) || !hbs_ipv6_is_zero(ipv6))
        return true;
    HBS_LOG(HBS_ERROR, "HOSTBASE: Got DHCPv6 %s event without an address - ignore", event);
    return false;
}

// An end beyond the clock of a 32-bit system becomes its last second, not a time before the epoch.
time_t lease_end_of(const hbs_dhcpv6_lease *lease) {
    constexpr int64_t latest = std::numeric_limits<time_t>::max();
    return static_cast<time_t>(std::min(lease->lease_end, latest));
}

void set_lease(hbs_client *client, const hbs_dhcpv6_lease *lease) {
    uint32_t source = HBS_FLAG_STIP6;
    if (lease->lease_end != 0) {
        hbs_leasev6_set(client, lease_end_of(lease));
        source = HBS_FLAG_DYNIP6;
    } else {
        hbs_clear_lease_v6_end(client);
    }
    if ((client->flags & HBS_FLAGS_IP6) != source) {
        hbs_clear_flags(client, 0, HBS_FLAGS_IP6);
        hbs_set_flags(client, 0, source);
    }
    if (source == HBS_FLAG_DYNIP6)
        hbs_set_lease_file6(client, lease->lease_file);
}

// A client of the nomac list that holds the address is merged into the client of the MAC, whatever `ll`
// that one had. Returns the surviving client.
hbs_client *merge_holder(hbs_client *client, const uint8_t *mac, const uint8_t ll[16]) {
    hbs_client *holder = hbs_find_nomac_by_ipv6(ll);
    if (holder == nullptr)
        return client;
    HBS_LOG(HBS_INFO, "HOSTBASE: merge no-mac client with existing client");
    return hbs_set_mac(holder, mac);
}

bool is_same_ll(const hbs_client *client, const uint8_t ll[16]) {
    return memcmp(client->ll, ll, 16) == 0;
}

// The address belongs to the device that the kernel named last. Another one with a MAC of its own keeps its
// record, without the address: two with the same one would leave the index entry with the wrong client.
void take_from_others(const hbs_client *client, const uint8_t ll[16]) {
    constexpr uint8_t none[16] = {};
    for (hbs_client *other = hbs_client_first(); other != nullptr; other = hbs_client_next(other)) {
        if (other == client || !is_same_ll(other, ll))
            continue;
        hbs_set_ll(other, none);
        if (hbs_is_published(other)) // publishing afresh could reclaim the slot of `client`
            hbs_publish(other);
    }
}

hbs_client *add_for_later(const uint8_t *mac, uint8_t adapter, const uint8_t ll[16]) {
    HBS_LOG(HBS_INFO, "HOSTBASE: Got MAC and LL address for unknwn client - save it away for later");
    hbs_client *client = hbs_add(mac);
    if (client == nullptr)
        return nullptr;
    hbs_set_adapter_type(client, adapter);
    hbs_set_ll(client, ll);
    hbs_take_wifi_index(client);
    return client;
}

// A link-local address of a MAC that no client has, or of none.
hbs_client *identify_by_address(const uint8_t *mac, uint8_t adapter, const uint8_t ll[16]) {
    hbs_client *client = hbs_find_by_ipv6(ll);
    if (client == nullptr)
        return mac != nullptr ? add_for_later(mac, adapter, ll) : nullptr;
    if (hbs_mac_is_zero(client->mac)) {
        HBS_LOG(HBS_INFO, "HOSTBASE: Got MAC address for previously LEASED IPv6 client - merge or into db");
        client = hbs_set_mac(client, mac);
    } else if (hbs_client_has_ll(client)) {
        return client;
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: Got LL address for previously known client set LL address");
    }
    hbs_set_adapter_type(client, adapter);
    hbs_set_ll(client, ll);
    return client;
}

} // namespace

hbs_dhcpv6_neighbour hbs_ask_dhcpv6_neighbour(const uint8_t ll[16], const uint8_t ipv6[16]) {
    hbs_dhcpv6_neighbour neighbour{};
    if (!hbs_ipv6_is_zero(ll) && is_of_nobody(ll, ipv6))
        neighbour.known = hbs_ask_neigh_lladdr(ll, neighbour.mac) == 0;
    return neighbour;
}

namespace {

void mark_online(hbs_client *client) {
    if (!hbs_presence_leased(client, AF_INET6, client->ipv6))
        return;
    hbs_presence_time(client);
    hbs_set_flags(client, 0, HBS_FLAG_REACH | HBS_FLAG_ONLINE);
}

} // namespace

hbs_client *hbs_handle_dhcpv6_lease(hbs_dhcpv6_lease *lease, const hbs_dhcpv6_neighbour *neighbour) {
    if (!names_client("LEASE", lease->ll, lease->ipv6))
        return nullptr;
    const int nwidx = hbs_address_to_nwidx(AF_INET6, lease->ipv6);
    if (nwidx < 0)
        return nullptr;
    hbs_client *client = find_or_add(lease, neighbour, nwidx);
    if (client == nullptr)
        return nullptr;
    hbs_set_nwidx(client, static_cast<uint8_t>(nwidx));
    lease->host[strcspn(lease->host, ".")] = '\0';
    if (lease->host[0] != '\0')
        hbs_set_host(client, lease->host);
    if (client->lease_start_uptime == 0)
        hbs_set_start_time(client);
    hbs_take_lease_identity(client, lease->oui, lease->serial_number, lease->product_class);
    set_lease(client, lease);
    if (!hbs_ipv6_is_zero(lease->ll)) // a message without one does not take away what is known
        hbs_set_ll(client, lease->ll);
    hbs_set_ipv6(client, lease->ipv6);
    mark_online(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: Got DHCPV6 LEASE event for %s", hbs_client_log_text(client).text);
    hbs_publish(client);
    return client;
}

hbs_client *hbs_handle_dhcpv6_release(const uint8_t *mac, const uint8_t ll[16], const uint8_t ipv6[16]) {
    if (!hbs_mac_is_lan_client(mac) || !names_client("RELEASE", ll, ipv6))
        return nullptr;
    hbs_client *client = hbs_find_by_ipv6(hbs_ipv6_is_zero(ll) ? ipv6 : ll);
    if (client == nullptr)
        return nullptr;
    constexpr uint8_t none[16] = {};
    hbs_set_ipv6(client, none);
    hbs_set_ll(client, none);
    return client;
}

hbs_client *hbs_handle_ipv6_ll_neighbor(const uint8_t *mac, const uint8_t ll[16]) {
    const uint8_t adapter = hbs_adapter_of(mac);
    if (adapter == HBS_ADAPTER_UNKNOWN)
        return nullptr;
    hbs_client *client = hbs_find_by_mac(mac);
    if (client == nullptr)
        return identify_by_address(mac, adapter, ll);
    if (is_same_ll(client, ll))
        return client;
    const bool had_ll = hbs_client_has_ll(client);
    client = merge_holder(client, mac, ll);
    take_from_others(client, ll);
    if (!had_ll) {
        HBS_LOG(HBS_INFO, "HOSTBASE: Got LL address for previously known client set LL address");
        hbs_set_adapter_type(client, adapter);
    }
    hbs_set_ll(client, ll);
    return client;
}
