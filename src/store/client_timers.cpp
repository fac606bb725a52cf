#include "store/client_timers.h"

#include <ctime>

#include "base/log.h"
#include "base/state.h"
#include "store/clients.h"

namespace {

struct timer_kind {
    int kind;
    uint32_t armed;             // bit of flags
    uint32_t hbs_client::*word; // holds the kind while the timer exists
};

constexpr timer_kind KINDS[] = {
    {HBS_TIMER_DHCP_WAIT, HBS_FLAG_TIMER_DHCPWAIT, &hbs_client::dhcp_wait_timer},
    {HBS_TIMER_LEASE, HBS_FLAG_TIMER_LEASE, &hbs_client::lease_timer},
    {HBS_TIMER_ONLINE, HBS_FLAG_TIMER_ONLINE, &hbs_client::online_timer},
};
constexpr int KIND_COUNT = sizeof KINDS / sizeof KINDS[0];

hbs_timer_action actions[KIND_COUNT];

// Null for an unknown kind.
const timer_kind *kind_of(int kind) {
    return kind < 1 || kind > KIND_COUNT ? nullptr : &KINDS[kind - 1];
}

void delete_timer(hbs_client *client, const timer_kind *of, hbs_timer_slot *slot) {
    if (!slot->exists)
        return;
    (void)timer_delete(slot->handle);
    slot->exists = false;
    client->*of->word = 0;
}

bool has_expired(hbs_client *client, int kind) {
    const hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    itimerspec left{};
    return slot != nullptr && slot->exists && timer_gettime(slot->handle, &left) == 0 &&
           left.it_value.tv_sec == 0 && left.it_value.tv_nsec == 0;
}

// Runs on a thread of its own. While it waited for the lock the timer may have been stopped or started
// anew: that expiry is void.
template <int Kind> void on_expiry(union sigval client_id) {
    const hbs_list_hold hold;
    if (has_expired(hbs_find_by_id(static_cast<uint32_t>(client_id.sival_int)), Kind))
        actions[Kind - 1](client_id);
}

constexpr hbs_timer_action EXPIRIES[] = {on_expiry<HBS_TIMER_DHCP_WAIT>, on_expiry<HBS_TIMER_LEASE>,
                                         on_expiry<HBS_TIMER_ONLINE>};

// A kind without an action has nobody to tell of its expiry: no timer is made for it.
bool create_timer(hbs_client *client, const timer_kind *of, hbs_timer_slot *slot) {
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_signo = SIGRTMIN;
    event.sigev_value.sival_int = static_cast<int>(client->client_id);
    event.sigev_notify_function = EXPIRIES[of->kind - 1];
    if (actions[of->kind - 1] == nullptr || timer_create(CLOCK_MONOTONIC, &event, &slot->handle) != 0)
        return false;
    slot->exists = true;
    client->*of->word = static_cast<uint32_t>(of->kind);
    return true;
}

} // namespace

void hbs_lease_timers_register(hbs_timer_action dhcp_wait, hbs_timer_action lease, hbs_timer_action online) {
    actions[HBS_TIMER_DHCP_WAIT - 1] = dhcp_wait;
    actions[HBS_TIMER_LEASE - 1] = lease;
    actions[HBS_TIMER_ONLINE - 1] = online;
}

void hbs_lease_timer_start(hbs_client *client, int kind, uint32_t seconds) {
    const timer_kind *of = kind_of(kind);
    hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    if (of == nullptr || slot == nullptr)
        return;
    hbs_set_flags(client, 0, of->armed);
    delete_timer(client, of, slot);
    if (!create_timer(client, of, slot)) {
        HBS_LOG(HBS_ERROR, "Couldn't create timer");
        return;
    }
    itimerspec once{};
    once.it_value.tv_sec = static_cast<time_t>(seconds);
    if (timer_settime(slot->handle, 0, &once, nullptr) != 0) {
        HBS_LOG(HBS_ERROR, "Couldn't set timer");
        delete_timer(client, of, slot); // the armed bit stays set
    }
}

void hbs_lease_timer_stop(hbs_client *client, int kind) {
    const timer_kind *of = kind_of(kind);
    hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    if (of == nullptr || slot == nullptr)
        return;
    hbs_clear_flags(client, 0, of->armed);
    delete_timer(client, of, slot);
}

void hbs_lease_timer_discard(hbs_client *client, int kind) {
    const timer_kind *of = kind_of(kind);
    hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    if (of != nullptr && slot != nullptr)
        delete_timer(client, of, slot);
}

void hbs_lease_timers_clear(hbs_client *client) {
    for (const timer_kind &of : KINDS) {
        hbs_timer_slot *slot = hbs_client_timer_slot(client, of.kind);
        if (slot == nullptr || !slot->exists)
            continue;
        delete_timer(client, &of, slot);
        hbs_clear_flags(client, 0, of.armed);
        if (of.kind == HBS_TIMER_DHCP_WAIT)
            client->trust = 0;
    }
}
