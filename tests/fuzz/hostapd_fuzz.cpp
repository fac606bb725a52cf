// What an access point says: answers that describe stations and settings, and events.
#include "fuzz_text.h"
#include "linux_hostapd.h"

void linux_log(uint32_t, const char *, ...) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // As it is received: bytes, and a NUL behind them.
    const std::string reply = fuzz_text(data, size);
    uint8_t mac[6] = {};
    linux_station station;
    char value[WLAN_TEXT_SIZE];
    if (linux_hostapd_event(reply.c_str(), mac) != 0)
        linux_wifi_gone(1, mac, 0);
    if (linux_hostapd_station(reply.c_str(), &station) && linux_hostapd_authorized(reply.c_str()))
        linux_wifi_here(linux_wifi_number("wlan0"), &station, false, true);
    for (const char *name : {"key_mgmt", "flags", ""})
        linux_hostapd_value(reply.c_str(), name, value, sizeof value);
    (void)linux_hostapd_authentication(reply.c_str(), value, sizeof value);
    (void)linux_hostapd_wps_result(reply.c_str(), value, sizeof value);
    return 0;
}
