// Wi-Fi manager: stations, WPS results and authentication modes from the file of values.
#include <cstdlib>
#include <cstring>

#include <wlan.h>

#include "host_journal.h"
#include "host_values.h"

namespace {

constexpr uint32_t last_ssid = 16; // SSID numbers 1 to 16 exist on every gateway

bool ssid_exists(uint32_t ssid) {
    return ssid >= 1 && ssid <= last_ssid;
}

// SSID number of a line "wifi.ssid.N.station"; false for any other line.
bool station_ssid(const host_entry *entry, uint32_t *ssid) {
    const char *number = host_key_after(entry, "wifi.ssid.");
    const char *dot = number != nullptr ? strchr(number, '.') : nullptr;
    char text[12];
    if (dot == nullptr || strcmp(dot, ".station") != 0 || static_cast<size_t>(dot - number) >= sizeof text)
        return false;
    memcpy(text, number, static_cast<size_t>(dot - number));
    text[dot - number] = '\0';
    return common_text_to_u32(text, ssid);
}

struct station {
    uint32_t ssid;
    const char *line;
};

// The station lines of an edition of the values, in the file's order; only inside a hold.
struct {
    uint32_t edition; // 0 = none yet
    size_t count;
    station *all;
} stations;

bool make_room(size_t lines) {
    free(stations.all);
    stations = {0, 0, static_cast<station *>(calloc(lines + 1, sizeof(station)))};
    return stations.all != nullptr;
}

// Without memory there are none, and the next call tries again.
void find_stations() {
    if (stations.edition == host_values_edition())
        return;
    size_t lines = 0;
    while (host_entry_at(lines) != nullptr)
        lines++;
    if (!make_room(lines))
        return;
    for (size_t i = 0; i < lines; i++) {
        const host_entry *entry = host_entry_at(i);
        uint32_t ssid = 0;
        if (station_ssid(entry, &ssid))
            stations.all[stations.count++] = {ssid, entry->value};
    }
    stations.edition = host_values_edition();
}

// Station line number `index` of an SSID, or null when it has no more than *passed lines.
const char *station_line(uint32_t ssid, uint32_t index, uint32_t *passed) {
    find_stations();
    *passed = 0;
    for (size_t i = 0; i < stations.count; i++) {
        if (stations.all[i].ssid != ssid)
            continue;
        if (*passed == index)
            return stations.all[i].line;
        (*passed)++;
    }
    return nullptr;
}

// The MAC address at the start of a station line; *line is moved behind it.
bool station_mac(const char **line, uint8_t mac[6]) {
    char word[WLAN_MAC_TEXT_SIZE];
    return common_next_word(line, word, sizeof word) == 1 && common_text_to_mac(word, mac);
}

bool read_station(const char *line, wlan_assoc_device *device) {
    uint8_t mac[6];
    if (!station_mac(&line, mac))
        return false;
    char word[12];
    for (uint32_t &figure : device->figure)
        if (common_next_word(&line, word, sizeof word) != 1 || !common_text_to_u32(word, &figure))
            return false;
    common_mac_to_text(mac, device->mac);
    return common_next_word(&line, word, sizeof word) == 0;
}

int get_text(const char *call, uint32_t ssid, const char *what, char text[WLAN_TEXT_SIZE]) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail(call, &result))
        return result;
    if (text == nullptr)
        return -1;
    return common_copy_whole(text, WLAN_TEXT_SIZE, host_value_with("wifi.ssid.%u.%s", ssid, what)) ? 0 : -1;
}

} // namespace

int wlan_rpcConnectClient(void) {
    int result = 0;
    return host_call_fails("wlan_rpcConnectClient", &result) ? result : 0;
}

int wlan_registerQuarnRpc(const char *address) {
    int result = 0;
    if (host_call_fails("wlan_registerQuarnRpc", &result))
        return result;
    if (address == nullptr)
        return -1;
    common_line line;
    common_line_add(&line, "wlan register ");
    common_line_add_escaped(&line, address, strlen(address), common_quotes::plain);
    host_journal_write(&line);
    return 0;
}

int wlan_getAssocDevicesNum(uint32_t ssid, uint32_t *count) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("wlan_getAssocDevicesNum", &result))
        return result;
    uint32_t found = 0;
    (void)station_line(ssid, UINT32_MAX, &found);
    if (count == nullptr || (found == 0 && !ssid_exists(ssid)))
        return -1;
    *count = found;
    return 0;
}

int wlan_getAssocDevice(uint32_t ssid, uint32_t index, wlan_assoc_device *device) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("wlan_getAssocDevice", &result))
        return result;
    uint32_t passed = 0;
    const char *line = station_line(ssid, index, &passed);
    wlan_assoc_device found = {};
    if (device == nullptr || line == nullptr || !read_station(line, &found))
        return -1;
    *device = found;
    return 0;
}

int wlan_getWpsResultStatus(uint32_t ssid, char text[WLAN_TEXT_SIZE]) {
    return get_text("wlan_getWpsResultStatus", ssid, "wps", text);
}

int wlan_setWpsCancel(uint32_t ssid) {
    int result = 0;
    if (host_call_fails("wlan_setWpsCancel", &result))
        return result;
    if (!ssid_exists(ssid))
        return -1;
    common_line line;
    common_line_add(&line, "wlan wps-cancel %u", ssid);
    host_journal_write(&line);
    return 0;
}

int wlan_getWpaAuthenticationModes(uint32_t ssid, char text[WLAN_TEXT_SIZE]) {
    return get_text("wlan_getWpaAuthenticationModes", ssid, "auth", text);
}

int WifiGetSSID(const uint8_t mac[6], uint32_t *ssid) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("WifiGetSSID", &result))
        return result;
    if (mac == nullptr || ssid == nullptr)
        return -1;
    find_stations();
    for (size_t i = 0; i < stations.count; i++) {
        uint8_t found[6];
        const char *line = stations.all[i].line;
        if (!station_mac(&line, found) || memcmp(found, mac, sizeof found) != 0)
            continue;
        *ssid = stations.all[i].ssid;
        return 0;
    }
    return -1;
}
