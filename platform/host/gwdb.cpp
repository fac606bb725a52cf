// Gateway settings: flap list and extra Wi-Fi interfaces, from the file of values.
#include <cstring>

#include <gwdb.h>

#include "host_values.h"

namespace {

int get_number(const char *call, const char *key, uint32_t *value) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail(call, &result))
        return result;
    return value != nullptr && common_text_to_u32(host_value(key), value) ? 0 : -1;
}

} // namespace

int GWDB_FLAPLISTCFG_ENABLE_GET(uint32_t *value) {
    return get_number("GWDB_FLAPLISTCFG_ENABLE_GET", "flaplist.enable", value);
}

int GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET(uint32_t *value) {
    return get_number("GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET", "flaplist.dhcp_interval", value);
}

int GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET(uint32_t *value) {
    return get_number("GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET", "flaplist.wlan_interval", value);
}

int GWDB_FLAPLISTCFG_REPORT_PERIOD_GET(uint32_t *value) {
    return get_number("GWDB_FLAPLISTCFG_REPORT_PERIOD_GET", "flaplist.report_period", value);
}

int GWDB_XWIFI_GET_ENABLED_IFNAME(int group, gwdb_xwifi_names *names) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("GWDB_XWIFI_GET_ENABLED_IFNAME", &result))
        return result;
    if (names == nullptr || group < 0 || group >= GWDB_XWIFI_GROUPS)
        return -1;
    const char *rest = host_value_with("xwifi.%d.ifnames", group);
    if (rest == nullptr)
        return -1;
    gwdb_xwifi_names found = {};
    char word[GWDB_XWIFI_NAME_SIZE];
    int more = 0;
    for (size_t row = 0; (more = common_next_word(&rest, word, sizeof word)) == 1; row++) {
        if (row == GWDB_XWIFI_NAMES)
            return -1;
        memcpy(found.name[row], word, strlen(word));
    }
    if (more < 0)
        return -1;
    *names = found;
    return 0;
}
