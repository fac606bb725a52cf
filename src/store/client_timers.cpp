#include "store/client_timers.h"

#include <csignal>
#include <ctime>

#include "base/clock.h"
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
    slot->arming = 0;
    slot->deadline = 0;
    if (!slot->exists)
        return;
    (void)timer_delete(slot->handle);
    slot->exists = false;
    client->*of->word = 0;
}

// Number of an arming, never 0. A client_id may be borne by two clients, and a client may have started the
// timer anew since: neither can be said of this number.
int next_arming() {
    static uint32_t last;
    if (++last == 0)
        last = 1;
    return static_cast<int>(last);
}

bool is_of_arming(hbs_client *client, int kind, int arming) {
    const hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    return slot != nullptr && slot->exists && slot->arming == arming;
}

hbs_client *client_of_arming(int kind, int arming) {
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
        if (is_of_arming(client, kind, arming))
            return client;
    for (hbs_client *client = hbs_nomac_first(); client != nullptr; client = hbs_nomac_next(client))
        if (is_of_arming(client, kind, arming))
            return client;
    return nullptr;
}

// Runs on a thread of its own. While it waited for the lock the timer may have been stopped or started
// anew: that expiry is void.
template <int Kind> void on_expiry(union sigval arming) {
    const hbs_list_hold hold;
    hbs_lease_timer_expire(client_of_arming(Kind, arming.sival_int), Kind);
}

using timer_thread = void (*)(union sigval arming);
constexpr timer_thread EXPIRIES[] = {on_expiry<HBS_TIMER_DHCP_WAIT>, on_expiry<HBS_TIMER_LEASE>,
                                     on_expiry<HBS_TIMER_ONLINE>};

// A kind without an action has nobody to tell of its expiry: no timer is made for it.
bool create_timer(hbs_client *client, const timer_kind *of, hbs_timer_slot *slot) {
    const int arming = next_arming();
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_signo = SIGRTMIN;
    event.sigev_value.sival_int = arming;
    event.sigev_notify_function = EXPIRIES[of->kind - 1];
    if (actions[of->kind - 1] == nullptr || timer_create(CLOCK_MONOTONIC, &event, &slot->handle) != 0)
        return false;
    slot->exists = true;
    slot->arming = arming;
    client->*of->word = static_cast<uint32_t>(of->kind);
    return true;
}

// 0 seconds disarm a timer and set no deadline.
int64_t deadline_after(uint32_t seconds) {
    return seconds == 0 ? 0 : int64_t{hbs_monotonic_seconds()} + seconds;
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
    slot->deadline = deadline_after(seconds);
    if (!create_timer(client, of, slot)) {
        HBS_LOG(HBS_ERROR, "Couldn't create timer");
        return;
    }
    itimerspec once{};
    once.it_value.tv_sec = static_cast<time_t>(seconds);
    if (timer_settime(slot->handle, 0, &once, nullptr) != 0) {
        HBS_LOG(HBS_ERROR, "Couldn't set timer");
        delete_timer(client, of, slot); // the armed bit stays set
        slot->deadline = deadline_after(seconds);
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

int64_t hbs_lease_timer_deadline(hbs_client *client, int kind) {
    const hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    return slot == nullptr ? 0 : slot->deadline;
}

void hbs_lease_timer_expire(hbs_client *client, int kind) {
    const timer_kind *of = kind_of(kind);
    hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
    if (of == nullptr || slot == nullptr)
        return;
    delete_timer(client, of, slot);
    if (actions[kind - 1] != nullptr)
        actions[kind - 1](client);
}

void hbs_lease_timers_clear(hbs_client *client) {
    for (const timer_kind &of : KINDS) {
        hbs_timer_slot *slot = hbs_client_timer_slot(client, of.kind);
        if (slot == nullptr)
            continue;
        const bool existed = slot->exists;
        delete_timer(client, &of, slot);
        if (!existed)
            continue;
        hbs_clear_flags(client, 0, of.armed);
        if (of.kind == HBS_TIMER_DHCP_WAIT)
            client->trust = 0;
    }
}
