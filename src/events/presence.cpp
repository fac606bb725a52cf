#include "events/presence.h"

#include <presence.h>
#include <sys/socket.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "events/adapter.h"
#include "gateway/own_macs.h"
#include "gateway/switch_ports.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

// By then one that fell silent just now has been silent for long enough.
constexpr uint32_t LOOK_AGAIN_SECONDS = PRESENCE_SILENT_SECONDS + 1;

// A station that is associated may sleep.
bool may_be_away(const hbs_client *client) {
    return (client->flags & HBS_FLAG_ASSOC) == 0 && PRESENCE_ByTraffic() != 0;
}

} // namespace

bool hbs_presence_reached() {
    return PRESENCE_ByTraffic() != 0;
}

void hbs_presence_unanswered(hbs_client *client) {
    if ((client->flags & HBS_FLAG_ONLINE) == 0 || hbs_mac_is_zero(client->mac) || !may_be_away(client))
        return;
    if (PRESENCE_IsSilent(client->mac) == 0 || PRESENCE_IsAnswering(client->mac) != 0) {
        hbs_lease_timer_start(client, HBS_TIMER_ONLINE, LOOK_AGAIN_SECONDS);
        return;
    }
    hbs_lease_timer_stop(client, HBS_TIMER_ONLINE);
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_REACH_2);
    hbs_clear_status_time(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: neither answer nor traffic of %s", hbs_client_log_text(client).text);
}

namespace {

void ask_for(const hbs_client *client) {
    if (!hbs_ipv4_is_zero(client->ipv4))
        PRESENCE_Ask(client->nwidx, AF_INET, client->ipv4);
    if (!hbs_ipv6_is_zero(client->ipv6))
        PRESENCE_Ask(client->nwidx, AF_INET6, client->ipv6);
    if (!hbs_ipv6_is_zero(client->ll))
        PRESENCE_Ask(client->nwidx, AF_INET6, client->ll);
}

bool has_address(const hbs_client *client) {
    return !hbs_ipv4_is_zero(client->ipv4) || !hbs_ipv6_is_zero(client->ipv6) ||
           !hbs_ipv6_is_zero(client->ll);
}

} // namespace

bool hbs_presence_stays(hbs_client *client) {
    // Without a MAC no answer could be told from another's.
    if (PRESENCE_ByTraffic() == 0 || hbs_mac_is_zero(client->mac))
        return false;
    const bool silent = PRESENCE_IsSilent(client->mac) != 0;
    if (silent && !has_address(client))
        return false;
    if (silent)
        ask_for(client);
    hbs_lease_timer_start(client, HBS_TIMER_ONLINE, HBS_ONLINE_SECONDS);
    return true;
}

bool hbs_presence_leased(const hbs_client *client, int family, const uint8_t *address) {
    if (!may_be_away(client) || (!hbs_mac_is_zero(client->mac) && PRESENCE_IsSilent(client->mac) == 0))
        return true;
    HBS_LOG(HBS_INFO, "HOSTBASE: lease, but no traffic of %s", hbs_client_log_text(client).text);
    PRESENCE_Ask(client->nwidx, family, address);
    return false;
}

namespace {

// Returns whether the client was elsewhere before.
bool move_to(hbs_client *client, uint8_t adapter) {
    const uint8_t adapter_before = client->adapter_type;
    const auto port_before = client->switch_port;
    hbs_set_adapter_type(client, adapter);
    return client->adapter_type != adapter_before || client->switch_port != port_before;
}

// Null for a stranger, and in bridge mode.
hbs_client *client_of(const uint8_t mac[6]) {
    return hbs_db_ready != 0 && hbs_mac_is_lan_client(mac) ? hbs_find_by_mac(mac) : nullptr;
}

} // namespace

void hbs_presence_placed(const uint8_t mac[6]) {
    const hbs_list_hold hold;
    hbs_client *client = client_of(mac);
    if (client == nullptr)
        return;
    const uint8_t adapter = hbs_adapter_of(mac);
    if (adapter != HBS_ADAPTER_UNKNOWN && move_to(client, adapter))
        hbs_publish(client);
    if ((client->flags & HBS_FLAG_ONLINE) != 0 && may_be_away(client) && PRESENCE_IsSilent(mac) != 0)
        ask_for(client);
}

void hbs_presence_heard(const uint8_t mac[6], int ifindex) {
    if (PRESENCE_ByTraffic() == 0)
        return;
    PRESENCE_Learned(mac, ifindex);
    const hbs_list_hold hold;
    hbs_client *client = client_of(mac);
    const uint8_t adapter = client == nullptr ? uint8_t{HBS_ADAPTER_UNKNOWN} : hbs_adapter_of(mac);
    if (adapter == HBS_ADAPTER_UNKNOWN) // a stranger, or on no network of ours
        return;
    const bool moved = move_to(client, adapter);
    const bool begins = (client->flags & HBS_FLAG_ONLINE) == 0 && (client->flags & HBS_FLAGS_ADDR) != 0;
    if (begins)
        hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
    if (begins)
        HBS_LOG(HBS_INFO, "HOSTBASE: traffic of %s", hbs_client_log_text(client).text);
    if (moved || begins)
        hbs_publish(client);
}
