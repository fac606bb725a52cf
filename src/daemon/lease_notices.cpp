#include "daemon/lease_notices.h"

#include <cstring>

#include <wlan.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "files/dhcpv4_notice.h"
#include "files/dhcpv6_notice.h"
#include "files/notice_file.h"

static void log_no_valid_data() {
    HBS_LOG(HBS_ERROR, "HOSTBASE: SOMETHING WRONG? Got notification but there is no valid data in the file.");
}

static void add_dhcpv4(const hbs_dhcpv4_notice *notice) {
    // Asked before the lock is taken, because the Wi-Fi manager may be slow. Nothing here depends on its
    // answer.
    uint32_t ssid = 0;
    (void)WifiGetSSID(notice->mac, &ssid);
    hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV4 LEASE EVT from inotify : mac %s, ip %s",
            hbs_mac_to_text(notice->mac).text, hbs_ipv4_to_text(notice->ipv4).text);
    hbs_dhcpv4_lease lease{};
    memcpy(lease.mac, notice->mac, sizeof(lease.mac));
    memcpy(lease.ipv4, notice->ipv4, sizeof(lease.ipv4));
    lease.dynamic = notice->dynamic;
    lease.seconds = notice->seconds;
    lease.host = notice->host;
    lease.ifname = notice->ifname;
    lease.oui = notice->oui;
    lease.serial_number = notice->serial_number;
    lease.product_class = notice->product_class;
    lease.lease_file = notice->lease_file;
    lease.nwidx = -1;
    lease.adapter_type = -1;
    (void)hbs_handle_dhcpv4_lease(&lease);
}

static void delete_dhcpv4(const hbs_dhcpv4_notice *notice) {
    hbs_list_hold hold;
    if (hbs_db_ready == 0)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV4 RLEASE EVT from inotify : mac %s, ip %s",
            hbs_mac_to_text(notice->mac).text, hbs_ipv4_to_text(notice->ipv4).text);
    (void)hbs_handle_dhcpv4_release(notice->mac, notice->ipv4, notice->dynamic ? 1 : 0,
                                    static_cast<int32_t>(notice->seconds));
}

static void handle_dhcpv4_line(char *line) {
    HBS_LOG(HBS_INFO, "HOSTBASE: Watched DHCP lease changes: %s", line);
    hbs_dhcpv4_notice notice;
    if (!hbs_dhcpv4_notice_parse(line, &notice)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Ignore invalid DHCPv4 lease notification!");
        return;
    }
    switch (notice.action) {
    case hbs_notice_action::add:
        add_dhcpv4(&notice);
        return;
    case hbs_notice_action::del:
        delete_dhcpv4(&notice);
        return;
    }
}

bool hbs_watch_dhcpv4_notices(const char *path) {
    int lines = 0;
    const auto reader = [](char *line, void *context) {
        ++*static_cast<int *>(context);
        handle_dhcpv4_line(line);
    };
    const hbs_notice_taken taken = hbs_notice_take(path, &hbs_dhcpv4_notice_source, reader, &lines);
    if (taken.lines && lines == 0)
        log_no_valid_data();
    return !taken.again;
}

// Returns whether the handler was called and did something.
static bool lease_dhcpv6(hbs_dhcpv6_notice *notice) {
    hbs_dhcpv6_lease lease{};
    memcpy(lease.ll, notice->ll, sizeof(lease.ll));
    memcpy(lease.ipv6, notice->ipv6, sizeof(lease.ipv6));
    lease.lease_end = notice->lease_time;
    lease.host = notice->host;
    lease.oui = notice->oui;
    lease.serial_number = notice->serial_number;
    lease.product_class = notice->product_class;
    lease.lease_file = notice->lease_file;
    lease.neighbour = hbs_ask_dhcpv6_neighbour(lease.ll, lease.ipv6);
    hbs_list_hold hold;
    return hbs_db_ready != 0 && hbs_handle_dhcpv6_lease(&lease) != nullptr;
}

static bool release_dhcpv6(const hbs_dhcpv6_notice *notice) {
    hbs_list_hold hold;
    return hbs_db_ready != 0 && hbs_handle_dhcpv6_release(nullptr, notice->ll, notice->ipv6) != nullptr;
}

static bool handle_dhcpv6(hbs_dhcpv6_notice *notice) {
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

bool hbs_watch_dhcpv6_notices(const char *path) {
    hbs_dhcpv6_notice notice{};
    const auto reader = [](char *line, void *context) {
        hbs_dhcpv6_notice_read(line, static_cast<hbs_dhcpv6_notice *>(context));
    };
    const hbs_notice_taken taken = hbs_notice_take(path, &hbs_dhcpv6_notice_source, reader, &notice);
    if (taken.lines && !handle_dhcpv6(&notice))
        log_no_valid_data();
    return !taken.again;
}
