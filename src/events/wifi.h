// Wi-Fi association events. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// ssid from 1. Returns the client, or null.
hbs_client *hbs_handle_wifi_association(const uint8_t mac[6], uint32_t ssid);

// Returns the client, or null. The MAC leaves the DOCSIS bridge in every case.
hbs_client *hbs_handle_wifi_disassociation(const uint8_t mac[6]);

// Reads the figures of a client's station from the Wi-Fi layer, for the SSID that the client is on, and
// writes the client to the segment, also when the Wi-Fi layer does not list it. No client, no change.
void hbs_update_wifi_assoc_info(const uint8_t mac[6]);

// Link figures of a client's station on an SSID into the client. 0, or the driver's error.
int hbs_read_wifi_assoc_info(hbs_client *client, uint32_t ssid);

// Which interfaces are hotspots has changed: published clients that are on one by now are marked.
void hbs_handle_xwifi_changed();
