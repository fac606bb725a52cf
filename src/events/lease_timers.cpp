// What happens to a client when one of its three timers expires.
#include "events/lease_timers.h"

#include <hbs_db.h>

#include "base/log.h"
#include "events/board_mode.h"
#include "events/presence.h"
#include "events/tr69_events.h"
#include "files/client_leases.h"
#include "files/client_removal.h"
#include "store/client_text.h"
#include "store/clients.h"
#include "store/publish.h"

void hbs_on_dhcp_wait_expired(hbs_client *client) {
    if (!(client->flags & HBS_FLAG_TIMER_DHCPWAIT))
        return;
    hbs_clear_flags(client, 0, HBS_FLAG_TIMER_DHCPWAIT);
    hbs_check_lease(client);
    hbs_shm_commit(client);
}

void hbs_on_lease_expired(hbs_client *client) {
    if (client->trust & HBS_TRUST_REMEMBERED) {
        HBS_LOG(HBS_INFO, "HOSTBASE: Lease expired for remembered CPE %s", hbs_client_log_text(client).text);
        return;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: Lease expired for un-remembered CPE %s", hbs_client_log_text(client).text);
    if (hbs_board_times_static_leases())
        return;
    (void)hbs_send_tr69_event(HBS_TR69_LEASE_EXPIRED, client);
    hbs_remove_client(client);
}

void hbs_on_online_expired(hbs_client *client) {
    if (!(client->flags & HBS_FLAG_ONLINE) || hbs_presence_stays(client))
        return;
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    client->lease_start_uptime = 0;
    hbs_shm_commit(client);
}
