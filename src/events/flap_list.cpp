// Counts the joins of a client, and as flaps those that follow each other within a configured interval.
#include "events/flap_list.h"

#include <gwdb.h>

#include "base/clock.h"
#include "base/log.h"

namespace {

// Seconds that hold while the gateway has no setting.
constexpr uint32_t DEFAULT_DHCP_INTERVAL = 300;
constexpr uint32_t DEFAULT_WLAN_INTERVAL = 120;
constexpr uint32_t DEFAULT_REPORT_PERIOD = 86400;

struct join_counters {
    uint32_t *last_join; // time() seconds, 0 = never
    uint32_t *joins;
    uint32_t *flaps;
    uint32_t *cleared; // what a join outside the interval sets to 0
};

uint32_t setting(int (*get)(uint32_t *), uint32_t fallback) {
    uint32_t value = 0;
    return get(&value) == 0 ? value : fallback;
}

void count_join(const join_counters *counters, uint32_t interval) {
    // Read with the interval on every join, though the counting does not depend on it.
    (void)setting(GWDB_FLAPLISTCFG_REPORT_PERIOD_GET, DEFAULT_REPORT_PERIOD);
    const uint32_t now = static_cast<uint32_t>(hbs_time());
    HBS_LOG(
        HBS_INFO,
        "HOSTBASE: flaplist:current time = %u , clnt.last_joinReqTimeStamp = %u flapClientInterval = %u\n",
        now, *counters->last_join, interval);
    if (now - *counters->last_join >= interval) { // unsigned: right also across the 32-bit wrap
        HBS_LOG(HBS_INFO,
                "HOSTBASE: flaplist:Join req received is > flapClientInterval.. so clearing flap count");
        *counters->cleared = 0;
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: flaplist:Join request received within %u sec so client is flapping\n",
                interval);
        ++*counters->flaps;
    }
    ++*counters->joins;
    *counters->last_join = now;
}

} // namespace

bool hbs_flap_list_enabled() {
    uint32_t enabled = 0;
    return GWDB_FLAPLISTCFG_ENABLE_GET(&enabled) == 0 && enabled == 1;
}

void hbs_flap_check_lease(hbs_client *client) {
    const uint32_t interval = client->adapter_type == HBS_ADAPTER_WIFI
                                  ? setting(GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET, DEFAULT_WLAN_INTERVAL)
                                  : setting(GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET, DEFAULT_DHCP_INTERVAL);
    const join_counters counters = {&client->last_joinReqTimeStamp, &client->join_req_count,
                                    &client->flap_count, &client->flap_count};
    count_join(&counters, interval);
}

void hbs_flap_check_reach(hbs_client *client) {
    const uint32_t interval = setting(GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET, DEFAULT_DHCP_INTERVAL);
    // A late join clears the flap count of the other set, which is kept: dhcp_flap_count only ever grows.
    const join_counters counters = {&client->last_dhcpReqTimeStamp, &client->dhcp_req_count,
                                    &client->dhcp_flap_count, &client->flap_count};
    count_join(&counters, interval);
}
