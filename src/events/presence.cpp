#include "events/presence.h"

#include <cstring>
#include <presence.h>
#include <sys/socket.h>

#include "base/clock.h"
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

bool hbs_presence_reached(hbs_client *client) {
    hbs_set_asked_at(client, 0);
    return PRESENCE_ByTraffic() != 0;
}

void hbs_presence_time(hbs_client *client) {
    if (PRESENCE_ByTraffic() != 0)
        hbs_lease_timer_start(client, HBS_TIMER_ONLINE, HBS_ONLINE_SECONDS);
    else if ((client->flags & HBS_FLAG_TIMER_ONLINE) != 0)
        hbs_lease_timer_stop(client, HBS_TIMER_ONLINE);
}

namespace {

struct own_address {
    int family; // AF_UNSPEC = none
    const uint8_t *bytes;
};

constexpr own_address no_address = {AF_UNSPEC, nullptr};

bool is_same(own_address one, own_address other) {
    return one.family == other.family && memcmp(one.bytes, other.bytes, one.family == AF_INET ? 4 : 16) == 0;
}

// Returns whether there is another address than that one.
bool ask_for(hbs_client *client, own_address except) {
    const own_address addresses[] = {{hbs_ipv4_is_zero(client->ipv4) ? AF_UNSPEC : AF_INET, client->ipv4},
                                     {hbs_ipv6_is_zero(client->ipv6) ? AF_UNSPEC : AF_INET6, client->ipv6},
                                     {hbs_ipv6_is_zero(client->ll) ? AF_UNSPEC : AF_INET6, client->ll}};
    bool asked = false;
    for (const own_address &each : addresses) {
        if (each.family == AF_UNSPEC || is_same(each, except))
            continue;
        PRESENCE_Ask(client->nwidx, each.family, each.bytes);
        asked = true;
    }
    if (asked)
        hbs_set_asked_at(client, hbs_monotonic_seconds());
    return asked;
}

// Then the one that did not answer was the last of them, or another follows.
bool was_just_asked(const hbs_client *client) {
    const uint32_t at = hbs_asked_at(client);
    return at != 0 && hbs_monotonic_seconds() - at <= LOOK_AGAIN_SECONDS;
}

} // namespace

void hbs_presence_unanswered(hbs_client *client, int family, const uint8_t *address) {
    if ((client->flags & HBS_FLAG_ONLINE) == 0 || hbs_mac_is_zero(client->mac) || !may_be_away(client))
        return;
    if (PRESENCE_IsSilent(client->mac) == 0 || PRESENCE_IsAnswering(client->mac) != 0 ||
        (!was_just_asked(client) && ask_for(client, {family, address}))) {
        hbs_lease_timer_start(client, HBS_TIMER_ONLINE, LOOK_AGAIN_SECONDS);
        return;
    }
    hbs_set_asked_at(client, 0);
    hbs_lease_timer_stop(client, HBS_TIMER_ONLINE);
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_REACH_2);
    hbs_clear_status_time(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: neither answer nor traffic of %s", hbs_client_log_text(client).text);
}

bool hbs_presence_stays(hbs_client *client) {
    // Without a MAC no answer could be told from another's.
    if (PRESENCE_ByTraffic() == 0 || hbs_mac_is_zero(client->mac))
        return false;
    if (PRESENCE_IsSilent(client->mac) != 0 && !ask_for(client, no_address))
        return false;
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
        (void)ask_for(client, no_address);
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
    if (begins) {
        hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
        hbs_presence_time(client);
        HBS_LOG(HBS_INFO, "HOSTBASE: traffic of %s", hbs_client_log_text(client).text);
    }
    if (moved || begins)
        hbs_publish(client);
}
