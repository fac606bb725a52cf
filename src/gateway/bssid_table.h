// hbsWifiClntBssidTable: which SSID each associated Wi-Fi station is on. Process memory, not persisted.
// Guarded by hbs_list_mutex.
#pragma once

#include <cstdint>

constexpr int HBS_BSSID_ROWS = 64;

struct hbs_bssid_row {
    uint8_t mac[6];
    uint8_t bssid;  // SSID number - 1
    uint8_t in_use; // 1 = in use, 0 = free
};

struct hbs_bssid_table {
    uint8_t count; // rows in use
    hbs_bssid_row row[HBS_BSSID_ROWS];
};
static_assert(sizeof(hbs_bssid_table) == 513);

extern hbs_bssid_table hbsWifiClntBssidTable;

void hbs_wifi_bssid_table_clear();

// Row number 0-63 of an in-use row that holds the MAC, or -1.
int hbs_wifi_bssid_table_find(const uint8_t mac[6]);

// First free row, or -1: with a full table (count 64) the "is full" line is logged; when no free row is
// found although count is below 64, nothing is.
int hbs_wifi_bssid_table_find_empty();

// Puts a MAC on an SSID (from 1): its row is rewritten, else a free row is taken.
void hbs_wifi_bssid_table_set(const uint8_t mac[6], uint32_t ssid);

// Frees the MAC's row, or logs that there is none.
void hbs_del_wifi_clnt_bssid(const uint8_t mac[6]);

// BSSID index of a MAC (SSID number - 1), or -1.
int hbs_bssid_of(const uint8_t mac[6]);
