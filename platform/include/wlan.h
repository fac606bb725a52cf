/* Wi-Fi manager, reached by remote procedure calls. */
#ifndef HBS_PLATFORM_WLAN_H
#define HBS_PLATFORM_WLAN_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define WLAN_MAC_TEXT_SIZE 18
#define WLAN_LINK_FIGURES 5
#define WLAN_TEXT_SIZE 64

/* One associated station as the driver lists it. */
typedef struct wlan_assoc_device {
    char mac[WLAN_MAC_TEXT_SIZE]; /* "%02X:%02X:%02X:%02X:%02X:%02X" */
    uint8_t reserved[2];
    uint32_t figure[WLAN_LINK_FIGURES]; /* link figures in the driver's order */
} wlan_assoc_device;

/* Connects to the Wi-Fi manager. Returns 0, or non-zero. */
int wlan_rpcConnectClient(void);

/* Registers with the manager at an address (text). Returns 0, or non-zero. Journalled. */
int wlan_registerQuarnRpc(const char *address);

/* Number of stations on an SSID (1-based) into count. Returns 0, or non-zero (count untouched). */
int wlan_getAssocDevicesNum(uint32_t ssid, uint32_t *count);

/* Station number `index` (from 0) of an SSID into device. Returns 0, or the driver's error. */
int wlan_getAssocDevice(uint32_t ssid, uint32_t index, wlan_assoc_device *device);

/* Result text of the last WPS session of an SSID into text (64 bytes, NUL included).
 * Returns 0, or non-zero. */
int wlan_getWpsResultStatus(uint32_t ssid, char text[WLAN_TEXT_SIZE]);

/* Cancels the push-button session of an SSID. Returns 0, or non-zero. Journalled. */
int wlan_setWpsCancel(uint32_t ssid);

/* WPA authentication modes of an SSID into text (64 bytes); exactly "None" for an open SSID.
 * Returns 0, or non-zero. */
int wlan_getWpaAuthenticationModes(uint32_t ssid, char text[WLAN_TEXT_SIZE]);

/* SSID number (1-based) that a station is on, by MAC (6 bytes), into ssid.
 * Returns 0, or non-zero when it is on none (ssid untouched). */
int WifiGetSSID(const uint8_t mac[6], uint32_t *ssid);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
