// Rows of the SSID table never move; a free one is found from row 0.
#include "gateway/bssid_table.h"

#include <cstring>

#include "base/log.h"

hbs_bssid_table hbsWifiClntBssidTable;

void hbs_wifi_bssid_table_clear() {
    hbsWifiClntBssidTable = {};
}

int hbs_wifi_bssid_table_find(const uint8_t mac[6]) {
    for (int i = 0; i < HBS_BSSID_ROWS; ++i) {
        const hbs_bssid_row &row = hbsWifiClntBssidTable.row[i];
        if (row.in_use == 1 && memcmp(row.mac, mac, sizeof row.mac) == 0)
            return i;
    }
    return -1;
}

int hbs_wifi_bssid_table_find_empty() {
    if (hbsWifiClntBssidTable.count == HBS_BSSID_ROWS) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_wifi_bssid_table_find_empty : hbsWifiClntBssidTable is full");
        return -1;
    }
    for (int i = 0; i < HBS_BSSID_ROWS; ++i)
        if (hbsWifiClntBssidTable.row[i].in_use == 0)
            return i;
    return -1;
}

void hbs_wifi_bssid_table_set(const uint8_t mac[6], uint32_t ssid) {
    int number = hbs_wifi_bssid_table_find(mac);
    if (number < 0) {
        number = hbs_wifi_bssid_table_find_empty();
        if (number < 0)
            return;
        ++hbsWifiClntBssidTable.count;
    }
    hbs_bssid_row &row = hbsWifiClntBssidTable.row[number];
    memcpy(row.mac, mac, sizeof row.mac);
    row.bssid = static_cast<uint8_t>(ssid - 1);
    row.in_use = 1;
}

void hbs_del_wifi_clnt_bssid(const uint8_t mac[6]) {
    const int number = hbs_wifi_bssid_table_find(mac);
    if (number < 0) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_del_wifi_clnt_bssid : do not match mac");
        return;
    }
    hbsWifiClntBssidTable.row[number].in_use = 0;
    --hbsWifiClntBssidTable.count;
}

int hbs_bssid_of(const uint8_t mac[6]) {
    const int number = hbs_wifi_bssid_table_find(mac);
    return number < 0 ? -1 : hbsWifiClntBssidTable.row[number].bssid;
}
