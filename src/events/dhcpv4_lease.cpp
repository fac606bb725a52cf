// What a DHCPv4 lease, its release, and a DHCP information request do to a client.
#include "events/dhcpv4_lease.h"

#include <cstring>
#include <leases.h>
#include <sys/socket.h>

#include <wlan.h>

#include "base/log.h"
#include "base/text.h"
#include "events/adapter.h"
#include "events/board_mode.h"
#include "events/flap_list.h"
#include "events/lease_texts.h"
#include "events/presence.h"
#include "events/wifi_index.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "gateway/switch_ports.h"
#include "store/client_add.h"
#include "store/client_dates.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"
#include "store/published.h"

namespace {

// What a release clears. STIP4 stays: the static lease is still there.
constexpr uint32_t FLAGS_OF_A_LEASE =
    HBS_FLAG_REACH | HBS_FLAG_REACH_2 | HBS_FLAG_DYNIP4 | HBS_FLAG_USRIP4 | HBS_FLAG_ONLINE;

struct place {
    int32_t nwidx;
    int32_t adapter_type;
};

// Where a client is; what the event leaves open (-1) is worked out.
place resolve_place(const uint8_t mac[6], const uint8_t ipv4[4], int32_t nwidx, int32_t adapter_type) {
    place result = {nwidx, adapter_type};
    if (result.adapter_type == -1)
        result.adapter_type = hbs_adapter_of(mac);
    if (result.nwidx == -1)
        result.nwidx = hbs_address_to_nwidx(AF_INET, ipv4);
    return result;
}

// The SSID number, from 1, of a client that readers see; 0 = they do not see it yet.
uint32_t published_ssid(const hbs_client *client) {
    const hbs_client *published = hbs_published_of(client);
    return published == nullptr ? 0 : hbs_ssid_of(published);
}

bool is_on_open_ssid(const hbs_client *client) {
    char modes[WLAN_TEXT_SIZE] = "";
    (void)wlan_rpcConnectClient();
    const uint32_t ssid = published_ssid(client);
    return ssid != 0 && wlan_getWpaAuthenticationModes(ssid, modes) == 0 && strcmp(modes, "None") == 0;
}

void count_join(hbs_client *client) {
    if (!hbs_flap_list_enabled())
        return;
    if (client->adapter_type != HBS_ADAPTER_WIFI || is_on_open_ssid(client))
        hbs_flap_check_lease(client);
}

// Where leases are told again, one that no bridge knows just now need not have moved, and has joined nothing.
bool says_no_place(uint8_t adapter_type) {
    return adapter_type == HBS_ADAPTER_UNKNOWN && LEASES_AreToldAgain() != 0;
}

// Returns whether the lease says how its device is connected.
bool take_adapter(hbs_client *client, uint8_t adapter_type) {
    if (says_no_place(adapter_type))
        return false;
    hbs_set_adapter_type(client, adapter_type);
    count_join(client);
    return true;
}

void set_identity(hbs_client *client, const hbs_dhcpv4_lease *lease) {
    hbs_take_lease_host(client, lease->host);
    hbs_set_device_name(client, lease->ifname);
    const int ifindex = hbs_ifname_to_ifindex(lease->ifname);
    if (ifindex != -1)
        hbs_set_interface(client, static_cast<uint8_t>(ifindex), lease->ifname); // the low byte only
    if (client->lease_start_uptime == 0)
        hbs_set_start_time(client);
    hbs_take_lease_identity(client, lease->oui, lease->serial_number, lease->product_class);
}

void set_address_source(hbs_client *client, uint32_t source) {
    if ((client->flags & HBS_FLAGS_IP4) == source)
        return;
    hbs_clear_flags(client, 0, HBS_FLAGS_IP4);
    hbs_set_flags(client, 0, source);
}

void set_lease(hbs_client *client, const hbs_dhcpv4_lease *lease) {
    if (lease->dynamic || hbs_board_times_static_leases())
        hbs_lease_set(client, lease->seconds);
    set_address_source(client, lease->dynamic ? HBS_FLAG_DYNIP4 : HBS_FLAG_STIP4);
    if (lease->dynamic)
        hbs_set_lease_file(client, lease->lease_file);
    hbs_set_ipv4(client, lease->ipv4);
}

void mark_online(hbs_client *client) {
    if (!hbs_presence_leased(client, AF_INET, client->ipv4))
        return;
    hbs_presence_time(client);
    hbs_set_flags(client, 0, HBS_FLAG_REACH | HBS_FLAG_ONLINE);
}

void take_registered_ssid(hbs_client *client) {
    if (!hbs_wifi_is_registered())
        return;
    (void)wlan_registerQuarnRpc("192.168.254.254");
    // The SSID number itself, not the number - 1 that associations store: kept.
    if (const uint32_t ssid = published_ssid(client); ssid != 0)
        hbs_set_wifi_index(client, static_cast<uint8_t>(ssid));
}

} // namespace

hbs_client *hbs_handle_dhcpv4_lease(const hbs_dhcpv4_lease *lease) {
    if (!hbs_mac_is_lan_client(lease->mac))
        return nullptr;
    const place where = resolve_place(lease->mac, lease->ipv4, lease->nwidx, lease->adapter_type);
    if (where.nwidx < 0)
        return nullptr;
    bool is_new = false;
    hbs_client *client = hbs_find_or_add(lease->mac, &is_new);
    if (client == nullptr)
        return nullptr;
    if (is_new)
        hbs_set_start_time(client);
    hbs_lease_timer_stop(client, HBS_TIMER_DHCP_WAIT);
    hbs_lease_timer_stop(client, HBS_TIMER_LEASE);
    hbs_set_nwidx(client, static_cast<uint8_t>(where.nwidx));
    const bool placed = take_adapter(client, static_cast<uint8_t>(where.adapter_type));
    set_identity(client, lease);
    set_lease(client, lease);
    mark_online(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: Got DHCPV4 LEASE event for %d seconds for %s",
            static_cast<int>(lease->seconds), hbs_client_log_text(client).text);
    if (placed && client->adapter_type == HBS_ADAPTER_WIFI)
        take_registered_ssid(client);
    if (is_new)
        hbs_take_wifi_index(client);
    hbs_publish(client);
    return client;
}

hbs_client *hbs_handle_dhcpv4_release(const uint8_t mac[6], const uint8_t ipv4[4], int32_t dynamic,
                                      int32_t seconds) {
    if (!hbs_mac_is_lan_client(mac) || seconds < 1 || dynamic < 0)
        return nullptr;
    hbs_client *client = hbs_find_by_mac(mac);
    if (client == nullptr || memcmp(client->ipv4, ipv4, sizeof(client->ipv4)) != 0)
        return client;
    hbs_clear_flags(client, 0, FLAGS_OF_A_LEASE);
    hbs_publish(client);
    return client;
}

hbs_client *hbs_handle_dhcpv4_info(const uint8_t mac[6], const uint8_t ipv4[4], int32_t nwidx,
                                   int32_t adapter_type, hbs_dhcpv4_identity *identity) {
    if (!hbs_mac_is_lan_client(mac))
        return nullptr;
    const place where = resolve_place(mac, ipv4, nwidx, adapter_type);
    if (where.nwidx < 0 || where.adapter_type == HBS_ADAPTER_UNKNOWN)
        return nullptr;
    hbs_client *client = hbs_find_by_mac(mac);
    if (client == nullptr)
        return nullptr;
    constexpr uint8_t none[4] = {};
    hbs_set_ipv4(client, none);
    hbs_copy_text(identity->oui, sizeof(identity->oui), client->oui);
    hbs_copy_text(identity->serial_number, sizeof(identity->serial_number), client->serial_number);
    hbs_copy_text(identity->product_class, sizeof(identity->product_class), client->product_class);
    hbs_publish(client);
    return client;
}
