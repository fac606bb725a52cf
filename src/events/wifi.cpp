// Wi-Fi stations that come and go, and their link figures.
#include "events/wifi.h"

#include <cstring>

#include <rnddb.h>
#include <wlan.h>

#include "base/log.h"
#include "base/text.h"
#include "events/adapter.h"
#include "events/flap_list.h"
#include "events/wifi_index.h"
#include "gateway/bssid_table.h"
#include "gateway/docsis_bridge.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "store/client_add.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/index.h"
#include "store/publish.h"

namespace {

constexpr uint32_t DHCP_WAIT_SECONDS = 2;
constexpr uint32_t MAX_SSID = 16;

// Primary SSIDs of the two radios.
constexpr uint32_t FIRST_RADIO_SSID = 1;
constexpr uint32_t SECOND_RADIO_SSID = 9;

// A client that moves to another SSID leaves the indices until it is published again.
void leave_old_bssid(hbs_client *client, uint32_t ssid) {
    if (client->wifi_index == ssid - 1)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_wifi_association: old client, new bssid");
    hbs_file_remove_if_idx_locked(client);
    hbs_set_flags(client, 0, HBS_CHANGED_BSSID);
}

// The check of the SSID number applies only to new clients.
hbs_client *find_or_add_station(const uint8_t mac[6], uint32_t ssid) {
    if (hbs_client *client = hbs_find_by_mac(mac); client != nullptr) {
        leave_old_bssid(client, ssid);
        return client;
    }
    if (ssid < 1 || ssid > MAX_SSID) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: ASSOCIATED event on invalid index (%d)", static_cast<int>(ssid));
        return nullptr;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_wifi_association: add new client");
    return hbs_add(mac);
}

// A push-button pairing that succeeded on one radio ends the session on the other. Any SSID but 1 counts
// as the second radio.
void cancel_other_radio(uint32_t ssid) {
    char text[WLAN_TEXT_SIZE] = "";
    if (wlan_getWpsResultStatus(ssid, text) != 0)
        return;
    text[sizeof text - 1] = '\0';
    if (strstr(text, "Success") == nullptr)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: PBC on SSID%d success, cancel PBC session on the other radio",
            static_cast<int>(ssid));
    if (ssid != FIRST_RADIO_SSID) {
        HBS_LOG(HBS_INFO, "HOSTBASE: Cancel PBC session on SSID1");
        (void)wlan_setWpsCancel(FIRST_RADIO_SSID);
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: Cancel PBC session on SSID9");
        (void)wlan_setWpsCancel(SECOND_RADIO_SSID);
    }
}

// Waits for a lease where the network is routed and the client has no IPv4 address yet. 0, or -1 when the
// network's mode cannot be read.
int wait_for_dhcp(hbs_client *client, int nwidx) {
    int routed = 0;
    if (RNDDB_boolGetWithKeyAndIndex(nwidx + 1, "Routed", &routed) != 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_handle_wifi_association: get route-mode error.");
        return -1;
    }
    if (routed == 0) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_wifi_association: do not need to set lease in bridge mode.");
    } else if ((client->flags & HBS_FLAGS_IP4) == 0) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_wifi_association: wait for dhcp");
        hbs_lease_timer_start(client, HBS_TIMER_DHCP_WAIT, DHCP_WAIT_SECONDS);
    }
    return 0;
}

// Link figures: the first as the driver lists it, the other four in reverse order.
void store_figures(hbs_client *client, const uint32_t figure[WLAN_LINK_FIGURES]) {
    client->wifi_link_info[0] = figure[0];
    for (int i = 1; i < WLAN_LINK_FIGURES; ++i)
        client->wifi_link_info[i] = figure[WLAN_LINK_FIGURES - i];
}

// Finds a station on an SSID. Returns 0 or the driver's error; whether it is there is told by *found.
int find_station(const uint8_t mac[6], uint32_t ssid, wlan_assoc_device *station, bool *found) {
    *found = false;
    (void)wlan_rpcConnectClient();
    uint32_t count = 0;
    (void)wlan_getAssocDevicesNum(ssid, &count);
    int result = 0;
    for (uint32_t i = 0; result == 0 && !*found && i < count; ++i) {
        uint8_t station_mac[6];
        result = wlan_getAssocDevice(ssid, i, station);
        *found = result == 0 && hbs_text_to_mac(station->mac, station_mac) == 6 &&
                 memcmp(station_mac, mac, sizeof station_mac) == 0;
    }
    return result;
}

void leave(hbs_client *client, const uint8_t mac[6]) {
    hbs_clear_flags(client, 0, HBS_FLAG_ASSOC | HBS_FLAG_REACH | HBS_FLAG_ONLINE);
    client->lease_start_uptime = 0;
    hbs_clear_status_time(client);
    hbs_shm_commit(client);
    hbs_del_wifi_clnt_bssid(mac);
    HBS_LOG(HBS_INFO, "HOSTBASE: Got DISASSOCIATED event for %s", hbs_client_log_text(client).text);
}

} // namespace

hbs_client *hbs_handle_wifi_association(const uint8_t mac[6], uint32_t ssid) {
    if (!hbs_mac_is_lan_client(mac))
        return nullptr;
    const int nwidx = hbs_ssid_to_nwidx(ssid);
    if (nwidx < 0)
        return nullptr;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_wifi_association: find mac %02x:%02x:%02x:%02x:%02x:%02x", mac[0],
            mac[1], mac[2], mac[3], mac[4], mac[5]);
    hbs_client *client = find_or_add_station(mac, ssid);
    if (client == nullptr)
        return nullptr;
    hbs_set_adapter_type(client, HBS_ADAPTER_WIFI);
    hbs_set_nwidx(client, static_cast<uint8_t>(nwidx));
    hbs_set_wifi_index(client, static_cast<uint8_t>(ssid - 1));
    hbs_set_flags(client, 0, HBS_FLAG_ASSOC | HBS_FLAG_ONLINE);
    if (hbs_flap_list_enabled())
        hbs_flap_check_lease(client);
    (void)hbs_read_wifi_assoc_info(client, ssid);
    HBS_LOG(HBS_INFO, "HOSTBASE: Got ASSOCIATED event for %s", hbs_client_log_text(client).text);
    cancel_other_radio(ssid);
    if (wait_for_dhcp(client, nwidx) != 0)
        return nullptr;
    hbs_wifi_bssid_table_set(mac, ssid);
    hbs_publish(client);
    return client;
}

hbs_client *hbs_handle_wifi_disassociation(const uint8_t mac[6]) {
    hbs_client *client = hbs_mac_is_lan_client(mac) ? hbs_find_by_mac(mac) : nullptr;
    if (client != nullptr)
        leave(client, mac);
    hbs_remove_cpe_from_docsis_bridge(mac);
    return client;
}

int hbs_read_wifi_assoc_info(hbs_client *client, uint32_t ssid) {
    wlan_assoc_device station{};
    bool found = false;
    const int result = find_station(client->mac, ssid, &station, &found);
    if (found) {
        store_figures(client, station.figure);
        hbs_set_flags(client, 0, HBS_CHANGED);
    }
    return result;
}

void hbs_update_wifi_assoc_info(const uint8_t mac[6]) {
    hbs_client *client = hbs_find_by_mac(mac);
    if (client == nullptr)
        return;
    wlan_assoc_device station{};
    bool found = false;
    (void)find_station(mac, hbs_ssid_of(client), &station, &found);
    if (found)
        store_figures(client, station.figure);
    hbs_shm_commit(client);
}

void hbs_handle_xwifi_changed() {
    hbs_shm_mark_hotspot();
}
