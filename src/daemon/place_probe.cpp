#include "daemon/place_probe.h"

#include <presence.h>

#include "base/clock.h"
#include "base/state.h"
#include "daemon/neighbour_tables.h"
#include "events/neighbour_news.h"
#include "events/presence.h"

namespace {

// What changed earlier was told when its place was known. Whoever is asked for when the kernel's lock was
// held for longer than that is told of by the next event.
constexpr int64_t MOST_WAITED_MS = 60'000;

void forget_what_was_told(const uint8_t mac[6]) {
    const hbs_list_hold hold;
    hbs_neigh_forget(mac);
}

bool make_up_for(const uint8_t mac[6]) {
    const int answered = PRESENCE_Await(mac);
    if (answered <= 0)
        return answered == 0;
    hbs_presence_placed(mac);
    forget_what_was_told(mac);
    return hbs_read_neighbours_of(mac, hbs_monotonic_milliseconds() - MOST_WAITED_MS);
}

} // namespace

void hbs_probe_place(const hbs_probe *probe, bool) {
    if (!make_up_for(probe->mac))
        (void)hbs_probe_post(probe); // as often as the device's share allows
}
