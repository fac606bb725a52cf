#include "events/neighbours.h"

#include <linux/neighbour.h>
#include <sys/socket.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "events/adapter.h"
#include "events/dhcpv6.h"
#include "events/flap_list.h"
#include "events/neighbour_news.h"
#include "events/neighbour_seed.h"
#include "events/presence.h"
#include "events/tr69_events.h"
#include "events/wifi_index.h"
#include "files/leasev6.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "gateway/switch_ports.h"
#include "store/client_add.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

constexpr uint32_t DHCP_WAIT_SECONDS = 2; // for a lease to follow the first sign of life
constexpr uint8_t LINK_LOCAL_FIRST_BYTE = 0xFE;

bool is_ipv4_link_local(const uint8_t ipv4[4]) {
    return ipv4[0] == 169 && ipv4[1] == 254;
}

hbs_client *handle_ipv6(const uint8_t *mac, const uint8_t *address) {
    if (address[0] != LINK_LOCAL_FIRST_BYTE)
        return hbs_handle_ipv6_ia_neighbor(mac, address);
    hbs_client *client = hbs_handle_ipv6_ll_neighbor(mac, address);
    if (client != nullptr)
        hbs_seed_ipv6_neighbor(client);
    return client;
}

// The client that has the address (`holder`, may be null), else that of the MAC, else a new one.
hbs_client *find_or_add(hbs_client *holder, const uint8_t *mac, bool *is_new) {
    return holder != nullptr ? holder : hbs_find_or_add(mac, is_new);
}

// Without a MAC nothing new is known of the adapter.
void place(hbs_client *client, int nwidx, const uint8_t *mac, uint8_t adapter, const char *handler) {
    if (mac == nullptr)
        HBS_LOG(HBS_INFO, "HOSTBASE: %s: Keep Hbs client oringnal adapter type\n", handler);
    hbs_set_nwidx(client, static_cast<uint8_t>(nwidx));
    hbs_set_adapter_type(client, mac == nullptr ? client->adapter_type : adapter);
}

// An address is known now: the client is on line, and its join is counted once.
void go_online(hbs_client *client) {
    if ((client->flags & HBS_FLAG_ONLINE) != 0)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: Got REACHABLE event for %s", hbs_client_log_text(client).text);
    hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
    if (hbs_client_has_ipv6(client) && client->adapter_type != HBS_ADAPTER_WIFI && hbs_flap_list_enabled())
        hbs_flap_check_reach(client);
}

} // namespace

hbs_client *hbs_handle_ipv4_neighbor(const uint8_t *mac, const uint8_t ipv4[4], int ifindex) {
    int nwidx = hbs_address_to_nwidx(AF_INET, ipv4);
    if (nwidx < 0 && is_ipv4_link_local(ipv4))
        nwidx = hbs_ifindex_to_nwidx(static_cast<uint32_t>(ifindex));
    const uint8_t adapter = hbs_adapter_of(mac);
    if (adapter == HBS_ADAPTER_UNKNOWN || nwidx < 0)
        return nullptr;
    bool is_new = false;
    hbs_client *client = find_or_add(hbs_find_by_ipv4(ipv4), mac, &is_new);
    if (client == nullptr)
        return nullptr;
    place(client, nwidx, mac, adapter, "hbs_handle_ipv4_neighbor");
    hbs_set_ipv4(client, ipv4);
    if (is_new)
        hbs_take_wifi_index(client);
    (void)hbs_send_tr69_client_event(HBS_TR69_IPV4_NEIGHBOUR, client);
    return client;
}

// A new client is announced when it is added and again at the end: twice, which the agent relies on.
hbs_client *hbs_handle_ipv6_ia_neighbor(const uint8_t *mac, const uint8_t ipv6[16]) {
    const int nwidx = hbs_address_to_nwidx(AF_INET6, ipv6);
    const uint8_t adapter = hbs_adapter_of(mac);
    if (adapter == HBS_ADAPTER_UNKNOWN || nwidx < 0)
        return nullptr;
    bool is_new = false;
    hbs_client *client = find_or_add(hbs_find_by_ipv6(ipv6), mac, &is_new);
    if (client == nullptr)
        return nullptr;
    if (is_new)
        (void)hbs_send_tr69_client_event(HBS_TR69_IPV6_NEIGHBOUR, client);
    place(client, nwidx, mac, adapter, "hbs_handle_ipv6_ia_neighbor");
    hbs_set_ipv6(client, ipv6);
    if (is_new)
        hbs_take_wifi_index(client);
    (void)hbs_send_tr69_client_event(HBS_TR69_IPV6_NEIGHBOUR, client);
    return client;
}

hbs_client *hbs_neigh_update(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    if (!hbs_mac_is_lan_client(mac))
        return nullptr;
    if (hbs_address_is_multicast(family, address)) {
        HBS_LOG(HBS_INFO, "HOSTBASE: Got NEIGH event with multicast address - ignore");
        return nullptr;
    }
    hbs_client *client = nullptr;
    if (family == AF_INET)
        client = hbs_handle_ipv4_neighbor(mac, address, ifindex);
    else if (family == AF_INET6)
        client = handle_ipv6(mac, address);
    if (client != nullptr)
        hbs_set_interface(client, static_cast<uint8_t>(ifindex), nullptr); // its low byte only, deliberately
    return client;
}

hbs_client *hbs_handle_neigh_stale(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    const hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return nullptr;
    hbs_neigh_note(NUD_STALE, mac, family, address);
    hbs_client *client = hbs_neigh_update(mac, ifindex, family, address);
    if (client == nullptr)
        return nullptr;
    hbs_publish(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: Got STALE event for %s", hbs_client_log_text(client).text);
    if (client->adapter_type != HBS_ADAPTER_WIFI)
        hbs_lease_timer_start(client, HBS_TIMER_ONLINE, HBS_ONLINE_SECONDS);
    return client;
}

hbs_client *hbs_handle_neigh_reachable(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    const hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return nullptr;
    hbs_neigh_note(NUD_REACHABLE, mac, family, address);
    hbs_client *client = hbs_neigh_update(mac, ifindex, family, address);
    if (client == nullptr)
        return nullptr;
    const uint8_t *end = client->lease_v6_end;
    HBS_LOG(HBS_DEBUG, "HOSTBASE: addr_family=%d, clnt.lease_v6_end=%d %d %d %d ", family, end[0], end[1],
            end[2], end[3]);
    if (family == AF_INET6 && end[0] == 0)
        hbs_leasev6_find(client);
    if ((client->flags & HBS_FLAG_TIMER_ONLINE) != 0)
        hbs_lease_timer_stop(client, HBS_TIMER_ONLINE);
    hbs_set_flags(client, 0, HBS_FLAG_REACH | HBS_FLAG_REACH_2);
    const bool has_address = (client->flags & HBS_FLAGS_ADDR) != 0;
    const bool suffices = hbs_presence_reached(client);
    if (has_address || suffices)
        go_online(client);
    if (!has_address)
        hbs_lease_timer_start(client, HBS_TIMER_DHCP_WAIT, DHCP_WAIT_SECONDS);
    hbs_publish(client);
    return client;
}

// ONLINE and REACH stay: a client goes off line only through its online timer or a disassociation, unless the
// platform has presence go by traffic.
hbs_client *hbs_handle_neigh_gone(const uint8_t *mac, int ifindex, int family, const uint8_t *address) {
    const hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return nullptr;
    hbs_neigh_note(NUD_FAILED, mac, family, address);
    hbs_client *client = hbs_neigh_update(mac, ifindex, family, address);
    if (client == nullptr)
        return nullptr;
    client->lease_start_uptime = 0;
    hbs_presence_unanswered(client, family, address);
    hbs_publish(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: Got ARP GONE event for %s", hbs_client_log_text(client).text);
    (void)hbs_send_tr69_client_event(HBS_TR69_NEIGHBOUR_GONE, client);
    return client;
}
