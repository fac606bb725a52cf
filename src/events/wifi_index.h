// The SSID of a client that was first seen by its address or lease.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// For a Wi-Fi client: wifi_index from hbsWifiClntBssidTable, or a log line that it is not there. Does
// nothing for clients on other adapters. Caller holds hbs_list_mutex.
void hbs_take_wifi_index(hbs_client *client);

// Whether stations are looked up through the Wi-Fi manager's registration.
bool hbs_wifi_is_registered();

// The SSID number, from 1, of a client's record, published or not. While registered it may hold the number
// itself since its last lease, so there the table of the associations comes first. Caller holds
// hbs_list_mutex.
uint32_t hbs_ssid_of(const hbs_client *record);
