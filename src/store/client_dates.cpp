#include "store/client_dates.h"

#include <algorithm>
#include <limits>

#include "base/clock.h"
#include "base/date.h"
#include "base/log.h"
#include "store/client_text.h"
#include "store/client_timers.h"

void hbs_set_start_time(hbs_client *client) {
    uint32_t uptime = 0;
    if (!hbs_system_uptime(&uptime)) {
        HBS_LOG(HBS_ERROR, "hbs_set_start_time - failed to get system uptime from the kernel\n");
        return;
    }
    client->lease_start_uptime = uptime;
    HBS_LOG(HBS_INFO, "HOSTBASE: Added lease start time for  %s", hbs_client_log_text(client).text);
}

void hbs_lease_set(hbs_client *client, uint32_t seconds) {
    if (seconds == 0)
        return;
    const time_t now = hbs_time();
    if (hbs_date_is_zero(client->status_time))
        hbs_date_from_time(now, client->status_time);
    // A lease without end may lie beyond what a 32-bit time_t can tell.
    const time_t end = std::min<int64_t>(int64_t{now} + seconds, std::numeric_limits<time_t>::max());
    hbs_date_from_time(end, client->lease_end);
    hbs_lease_timer_start(client, HBS_TIMER_LEASE, seconds);
}

void hbs_leasev6_set(hbs_client *client, time_t end) {
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_leasev6_set:BEGIN lease = %d", static_cast<int>(end));
    if (end == 0)
        return;
    hbs_date_from_time(end, client->lease_v6_end);
    const uint8_t *date = client->lease_v6_end;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_leasev6_set:END lease_v6_end = %d %d %d %d %d %d %d", date[0], date[1],
            date[2], date[3], date[4], date[5], date[6]);
}

void hbs_clear_lease_end(hbs_client *client) {
    hbs_date_clear(client->lease_end);
}

void hbs_clear_lease_v6_end(hbs_client *client) {
    hbs_date_clear(client->lease_v6_end);
}
