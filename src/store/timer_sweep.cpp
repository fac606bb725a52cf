#include "store/timer_sweep.h"

#include <cstdint>

#include "base/clock.h"
#include "base/state.h"
#include "store/client_timers.h"
#include "store/clients.h"

namespace {

constexpr int KINDS[] = {HBS_TIMER_DHCP_WAIT, HBS_TIMER_LEASE, HBS_TIMER_ONLINE};

// Both are whole seconds, cut off: only the next one is surely not before the timer's own end.
bool is_over(int64_t deadline) {
    return deadline != 0 && int64_t{hbs_monotonic_seconds()} > deadline;
}

// Returns whether there was one. The client may be gone then, and others with it.
bool expire_one_of(hbs_client *client) {
    for (const int kind : KINDS) {
        if (!is_over(hbs_lease_timer_deadline(client, kind)))
            continue;
        hbs_lease_timer_expire(client, kind);
        return true;
    }
    return false;
}

bool expire_one() {
    const hbs_list_hold hold;
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
        if (expire_one_of(client))
            return true;
    for (hbs_client *client = hbs_nomac_first(); client != nullptr; client = hbs_nomac_next(client))
        if (expire_one_of(client))
            return true;
    return false;
}

} // namespace

// An expiry takes its deadline away, so that this ends.
void hbs_timer_sweep() {
    while (expire_one()) {}
}
