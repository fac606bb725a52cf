// What happens to a client when one of its three timers expires.
#include "events/lease_timers.h"

#include <hbs_db.h>

#include "base/log.h"
#include "base/state.h"
#include "events/board_mode.h"
#include "events/tr69_events.h"
#include "files/client_leases.h"
#include "files/client_removal.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"

// The client whose timer of a kind expired, rid of that timer; null when it is gone.
static hbs_client *expired_client(union sigval client_id, int kind) {
    hbs_client *client = hbs_find_by_id(static_cast<uint32_t>(client_id.sival_int));
    if (client != nullptr)
        hbs_lease_timer_discard(client, kind);
    return client;
}

void hbs_on_dhcp_wait_expired(union sigval client_id) {
    const hbs_list_hold hold;
    hbs_client *client = expired_client(client_id, HBS_TIMER_DHCP_WAIT);
    // A lease that came while this thread waited for the lock has cleared the armed bit.
    if (client == nullptr || !(client->flags & HBS_FLAG_TIMER_DHCPWAIT))
        return;
    hbs_clear_flags(client, 0, HBS_FLAG_TIMER_DHCPWAIT);
    hbs_check_lease(client);
    hbs_shm_commit(client);
}

void hbs_on_lease_expired(union sigval client_id) {
    const hbs_list_hold hold;
    hbs_client *client = expired_client(client_id, HBS_TIMER_LEASE);
    if (client == nullptr)
        return;
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

void hbs_on_online_expired(union sigval client_id) {
    const hbs_list_hold hold;
    hbs_client *client = expired_client(client_id, HBS_TIMER_ONLINE);
    if (client == nullptr || !(client->flags & HBS_FLAG_ONLINE))
        return;
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    client->lease_start_uptime = 0;
    hbs_shm_commit(client);
}
