// The SSID of a client that was first seen by its address or lease.
#pragma once

#include <hbs_db.h>

// For a Wi-Fi client: wifi_index from hbsWifiClntBssidTable, or a log line that it is not there. Does
// nothing for clients on other adapters. Caller holds hbs_list_mutex.
void hbs_take_wifi_index(hbs_client *client);
