// Access points and their stations, from what hostapd said last.
#include <cstdio>
#include <cstring>

#include <wlan.h>

#include "common_text.h"
#include "linux_wifi.h"

int wlan_rpcConnectClient(void) {
    return 0;
}

// Nobody keeps addresses of listeners here: stations come by datagrams of the platform's own.
int wlan_registerQuarnRpc(const char *address) {
    return address != nullptr ? 0 : -1;
}

int wlan_getAssocDevicesNum(uint32_t ssid, uint32_t *count) {
    return count != nullptr && linux_wifi_count(ssid, count) ? 0 : -1;
}

int wlan_getAssocDevice(uint32_t ssid, uint32_t index, wlan_assoc_device *device) {
    linux_station station;
    if (device == nullptr || !linux_wifi_station(ssid, index, &station))
        return -1;
    const uint8_t *mac = station.mac;
    *device = {};
    common_mac_to_text(mac, device->mac);
    memcpy(device->figure, station.figure, sizeof device->figure);
    return 0;
}

int wlan_getWpsResultStatus(uint32_t ssid, char text[WLAN_TEXT_SIZE]) {
    return text != nullptr && linux_wifi_wps_result(ssid, text) ? 0 : -1;
}

int wlan_setWpsCancel(uint32_t ssid) {
    return linux_wifi_cancel(ssid) ? 0 : -1;
}

int wlan_getWpaAuthenticationModes(uint32_t ssid, char text[WLAN_TEXT_SIZE]) {
    return text != nullptr && linux_wifi_authentication(ssid, text) ? 0 : -1;
}

int WifiGetSSID(const uint8_t mac[6], uint32_t *ssid) {
    return mac != nullptr && ssid != nullptr && linux_wifi_ssid_of(mac, ssid) ? 0 : -1;
}
