// What hostapd's replies say.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common_text.h"
#include "linux_hostapd.h"

namespace {

uint32_t number_of(const char *reply, const char *name) {
    char value[128]; // a rate stands before words of its kind
    linux_hostapd_value(reply, name, value, sizeof value);
    return static_cast<uint32_t>(strtol(value, nullptr, 10));
}

} // namespace

void linux_hostapd_value(const char *reply, const char *name, char *value, size_t size) {
    value[0] = '\0';
    const size_t length = strlen(name);
    for (const char *line = reply; line != nullptr; line = strchr(line, '\n')) {
        line += *line == '\n';
        if (strncmp(line, name, length) != 0 || (line[length] != '=' && line[length] != ':'))
            continue;
        const char *start = line + length + 1;
        start += *start == ' ';
        const size_t taken = std::min(strcspn(start, "\n"), size - 1);
        memcpy(value, start, taken);
        value[taken] = '\0';
        return;
    }
}

bool linux_hostapd_station(const char *reply, linux_station *station) {
    char text[WLAN_MAC_TEXT_SIZE];
    const size_t length = strcspn(reply, "\n");
    *station = {};
    if (length + 1 != sizeof text)
        return false;
    memcpy(text, reply, length);
    text[length] = '\0';
    if (!common_text_to_mac(text, station->mac))
        return false;
    station->figure[LINUX_SIGNAL] = number_of(reply, "signal");
    station->figure[LINUX_TRANSMIT_RATE] = number_of(reply, "tx_rate_info");
    station->figure[LINUX_RECEIVE_RATE] = number_of(reply, "rx_rate_info");
    station->figure[LINUX_CONNECTED_TIME] = number_of(reply, "connected_time");
    station->figure[LINUX_INACTIVE_TIME] = number_of(reply, "inactive_msec");
    return true;
}

bool linux_hostapd_authorized(const char *reply) {
    char flags[512];
    linux_hostapd_value(reply, "flags", flags, sizeof flags);
    return flags[0] == '\0' || strstr(flags, "[AUTHORIZED]") != nullptr;
}

bool linux_hostapd_refuses(const char *reply) {
    return strncmp(reply, "FAIL", 4) == 0 || strncmp(reply, "UNKNOWN COMMAND", 15) == 0;
}

bool linux_hostapd_authentication(const char *reply, char *modes, size_t size) {
    char address[WLAN_MAC_TEXT_SIZE + 1]; // one that is too long shows as such
    linux_hostapd_value(reply, "bssid", address, sizeof address);
    if (address[0] == '\0' || strlen(address) >= WLAN_MAC_TEXT_SIZE)
        return false;
    linux_hostapd_value(reply, "key_mgmt", modes, size);
    return modes[0] != '\0' || common_copy_whole(modes, size, "None");
}

bool linux_hostapd_wps_result(const char *reply, char *result, size_t size) {
    linux_hostapd_value(reply, "Last WPS result", result, size);
    return result[0] != '\0' || linux_hostapd_refuses(reply);
}

int linux_hostapd_event(const char *text, uint8_t mac[6]) {
    static constexpr struct {
        const char *word;
        int direction;
    } known[] = {{"AP-STA-CONNECTED ", 1}, {"AP-STA-DISCONNECTED ", -1}};
    const char *word = strchr(text, '>');
    if (word == nullptr)
        return 0;
    word++;
    for (const auto &event : known) {
        const size_t length = strlen(event.word);
        char mac_text[WLAN_MAC_TEXT_SIZE];
        if (strncmp(word, event.word, length) != 0)
            continue;
        const char *rest = word + length;
        if (common_next_word(&rest, mac_text, sizeof mac_text) == 1 && common_text_to_mac(mac_text, mac))
            return event.direction;
    }
    return 0;
}
