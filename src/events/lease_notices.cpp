#include "events/lease_notices.h"

#include <wlan.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"

namespace {

void add_dhcpv4(const hbs_dhcpv4_notice *notice) {
    // Asked before the lock is taken, because the Wi-Fi manager may be slow. Nothing here depends on its
    // answer.
    uint32_t ssid = 0;
    (void)WifiGetSSID(notice->mac, &ssid);
    const hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV4 LEASE EVT from inotify : mac %s, ip %s",
            hbs_mac_to_text(notice->mac).text, hbs_ipv4_to_text(notice->ipv4).text);
    (void)hbs_handle_dhcpv4_lease(notice);
}

void delete_dhcpv4(const hbs_dhcpv4_notice *notice) {
    const hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV4 RLEASE EVT from inotify : mac %s, ip %s",
            hbs_mac_to_text(notice->mac).text, hbs_ipv4_to_text(notice->ipv4).text);
    (void)hbs_handle_dhcpv4_release(notice->mac, notice->ipv4, notice->dynamic ? 1 : 0,
                                    static_cast<int32_t>(notice->seconds));
}

bool lease_dhcpv6(hbs_dhcpv6_notice *notice) {
    const hbs_dhcpv6_neighbour neighbour = hbs_ask_dhcpv6_neighbour(notice->ll, notice->ipv6);
    const hbs_list_hold hold;
    return hbs_db_ready != 0 && hbs_handle_dhcpv6_lease(notice, &neighbour) != nullptr;
}

bool release_dhcpv6(const hbs_dhcpv6_notice *notice) {
    const hbs_list_hold hold;
    return hbs_db_ready != 0 && hbs_handle_dhcpv6_release(nullptr, notice->ll, notice->ipv6) != nullptr;
}

} // namespace

void hbs_handle_dhcpv4_notice(const hbs_dhcpv4_notice *notice) {
    switch (notice->action) {
    case hbs_notice_action::add:
        add_dhcpv4(notice);
        return;
    case hbs_notice_action::del:
        delete_dhcpv4(notice);
        return;
    }
}

bool hbs_handle_dhcpv6_notice(hbs_dhcpv6_notice *notice) {
    switch (notice->type) {
    case HBS_NOTICE_LEASE:
        return lease_dhcpv6(notice);
    case HBS_NOTICE_RELEASE:
        return release_dhcpv6(notice);
    case HBS_NOTICE_NONE:
        HBS_LOG(HBS_ERROR, "HOSTBASE: Unsupported notification(%d)", notice->type);
        return false;
    }
    return false;
}
