// Access points: none are asked yet.
#include <wlan.h>

int wlan_rpcConnectClient(void) {
    return -1;
}

int wlan_registerQuarnRpc(const char *) {
    return -1;
}

int wlan_getAssocDevicesNum(uint32_t, uint32_t *) {
    return -1;
}

int wlan_getAssocDevice(uint32_t, uint32_t, wlan_assoc_device *) {
    return -1;
}

int wlan_getWpsResultStatus(uint32_t, char *) {
    return -1;
}

int wlan_setWpsCancel(uint32_t) {
    return -1;
}

int wlan_getWpaAuthenticationModes(uint32_t, char *) {
    return -1;
}

int WifiGetSSID(const uint8_t *, uint32_t *) {
    return -1;
}
