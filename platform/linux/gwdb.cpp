// The flap list's settings; extra Wi-Fi networks are not known here.
#include <gwdb.h>

#include "linux_conf.h"

namespace {

int get(const linux_number *number, uint32_t *value) {
    if (value == nullptr || !number->given)
        return -1;
    *value = number->value;
    return 0;
}

} // namespace

int GWDB_FLAPLISTCFG_ENABLE_GET(uint32_t *value) {
    return get(&linux_settings()->flap_enable, value);
}

int GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET(uint32_t *value) {
    return get(&linux_settings()->flap_dhcp_interval, value);
}

int GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET(uint32_t *value) {
    return get(&linux_settings()->flap_wlan_interval, value);
}

int GWDB_FLAPLISTCFG_REPORT_PERIOD_GET(uint32_t *value) {
    return get(&linux_settings()->flap_report_period, value);
}

int GWDB_XWIFI_GET_ENABLED_IFNAME(int, gwdb_xwifi_names *) {
    return -1;
}
