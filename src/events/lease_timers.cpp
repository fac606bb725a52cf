// What happens to a client when one of its three timers expires.
#include "events/lease_timers.h"

#include <leases.h>

#include <hbs_db.h>

#include "base/log.h"
#include "base/text.h"
#include "events/board_mode.h"
#include "events/presence.h"
#include "events/tr69_events.h"
#include "files/client_leases.h"
#include "files/client_removal.h"
#include "gateway/lease_files.h"
#include "store/client_dates.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"

void hbs_on_dhcp_wait_expired(hbs_client *client) {
    if (!(client->flags & HBS_FLAG_TIMER_DHCPWAIT))
        return;
    hbs_clear_flags(client, 0, HBS_FLAG_TIMER_DHCPWAIT);
    hbs_check_lease(client);
    hbs_shm_commit(client);
}

namespace {

bool has_static_lease(const hbs_client *client) {
    return hbs_has_commanded_lease(client) ||
           (!hbs_mac_is_zero(client->mac) &&
            hbs_check_lease_get_ipv4_static_lease(client->mac, nullptr) == 0);
}

// Whether the device is still there says its presence.
void end_lease_alone(hbs_client *client) {
    hbs_lease_timer_stop(client, HBS_TIMER_LEASE);
    hbs_clear_flags(client, 0, HBS_FLAG_DYNIP4);
    hbs_clear_lease_end(client);
    hbs_on_online_expired(client);
    hbs_publish(client);
}

} // namespace

void hbs_on_lease_expired(hbs_client *client) {
    if (client->trust & HBS_TRUST_REMEMBERED) {
        HBS_LOG(HBS_INFO, "HOSTBASE: Lease expired for remembered CPE %s", hbs_client_log_text(client).text);
        return;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: Lease expired for un-remembered CPE %s", hbs_client_log_text(client).text);
    if (hbs_board_times_static_leases())
        return;
    (void)hbs_send_tr69_event(HBS_TR69_LEASE_EXPIRED, client);
    // Where a server tells leases again, the one from before the user fixed an address goes on beside it;
    // with its client the line of the static one would go.
    if (LEASES_AreToldAgain() != 0 && has_static_lease(client))
        end_lease_alone(client);
    else
        hbs_remove_client(client);
}

void hbs_on_online_expired(hbs_client *client) {
    if (!(client->flags & HBS_FLAG_ONLINE) || hbs_presence_stays(client))
        return;
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    client->lease_start_uptime = 0;
    hbs_shm_commit(client);
}
