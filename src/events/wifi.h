// Wi-Fi association events. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>
#include <wlan.h>

// ssid from 1. Returns the client, or null.
hbs_client *hbs_handle_wifi_association(const uint8_t mac[6], uint32_t ssid);

// Returns the client, or null. The MAC leaves the DOCSIS bridge in every case.
hbs_client *hbs_handle_wifi_disassociation(const uint8_t mac[6]);

// New link figures of a station, in the driver's order. No client, no change.
struct hbs_wifi_assoc_info {
    uint8_t mac[6];
    uint32_t figure[WLAN_LINK_FIGURES];
};
void hbs_update_wifi_assoc_info(const hbs_wifi_assoc_info *info);

// Reads a station's present figures from the Wi-Fi layer, for the SSID of its client, and hands them to
// hbs_update_wifi_assoc_info. No client or no station: no change.
void hbs_refresh_wifi_assoc_info(const uint8_t mac[6]);

// Link figures of a client's station on an SSID into the client. 0, or the driver's error.
int hbs_read_wifi_assoc_info(hbs_client *client, uint32_t ssid);

// The set of enabled hotspot interfaces changed: recomputes hotspot in working and published copies.
void hbs_recheck_hotspot();
