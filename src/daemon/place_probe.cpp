#include "daemon/place_probe.h"

#include <presence.h>

#include "base/clock.h"
#include "base/state.h"
#include "daemon/neighbour_tables.h"
#include "events/neighbour_news.h"
#include "events/presence.h"

namespace {

// No question is out for longer: what changed before was told when its place was known.
constexpr int64_t MOST_WAITED_MS = 60'000;

void forget_what_was_told(const uint8_t mac[6]) {
    const hbs_list_hold hold;
    hbs_neigh_forget(mac);
}

} // namespace

void hbs_probe_place(const hbs_probe *probe, bool in_time) {
    if (!in_time) { // behind others whose answers are late, too
        (void)hbs_probe_post(probe);
        return;
    }
    if (PRESENCE_Await(probe->mac) == 0)
        return;
    hbs_presence_placed(probe->mac);
    forget_what_was_told(probe->mac);
    (void)hbs_read_neighbours_of(probe->mac, hbs_monotonic_milliseconds() - MOST_WAITED_MS);
}
