#include "events/presence.h"

#include <presence.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "gateway/own_macs.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

// A station that is associated may sleep.
bool may_be_away(const hbs_client *client) {
    return (client->flags & HBS_FLAG_ASSOC) == 0 && PRESENCE_ByTraffic() != 0;
}

} // namespace

bool hbs_presence_reached() {
    return PRESENCE_ByTraffic() != 0;
}

void hbs_presence_unanswered(hbs_client *client) {
    if ((client->flags & HBS_FLAG_ONLINE) == 0 || hbs_mac_is_zero(client->mac) || !may_be_away(client) ||
        PRESENCE_IsSilent(client->mac) == 0 || PRESENCE_IsAnswering(client->mac) != 0)
        return;
    hbs_lease_timer_stop(client, HBS_TIMER_ONLINE);
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_REACH_2);
    hbs_clear_status_time(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: neither answer nor traffic of %s", hbs_client_log_text(client).text);
}

bool hbs_presence_leased(const hbs_client *client, int family, const uint8_t *address) {
    if (!may_be_away(client) || (!hbs_mac_is_zero(client->mac) && PRESENCE_IsSilent(client->mac) == 0))
        return true;
    HBS_LOG(HBS_INFO, "HOSTBASE: lease, but no traffic of %s", hbs_client_log_text(client).text);
    PRESENCE_Ask(client->nwidx, family, address);
    return false;
}

void hbs_presence_heard(const uint8_t mac[6]) {
    if (PRESENCE_ByTraffic() == 0)
        return;
    const hbs_list_hold hold;
    hbs_client *client = hbs_db_ready != 0 ? hbs_find_by_mac(mac) : nullptr;
    if (client == nullptr || (client->flags & HBS_FLAG_ONLINE) != 0 || !hbs_mac_is_lan_client(mac) ||
        (client->flags & HBS_FLAGS_ADDR) == 0)
        return;
    hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
    HBS_LOG(HBS_INFO, "HOSTBASE: traffic of %s", hbs_client_log_text(client).text);
    hbs_publish(client);
}
