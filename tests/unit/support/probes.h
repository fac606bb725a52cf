// Questions that the code under test has queued: asked here, one after the other, on the test's own thread.
#pragma once

#include "base/probe_queue.h"
#include "events/neighbour_seed.h"
#include "files/client_leases.h"
#include "gateway/neighbour_probe.h"

// As the daemon does it at its start.
inline void open_probes() {
    hbs_probe_register(HBS_PROBE_NETBIOS, hbs_probe_netbios);
    hbs_probe_register(HBS_PROBE_SEED, hbs_probe_seed);
    hbs_probe_register(HBS_PROBE_NEIGHBOUR, hbs_probe_neighbour);
    hbs_probe_open();
}

// Asks everything that is queued; returns how many questions there were.
inline int serve_probes() {
    int count = 0;
    while (hbs_probe_serve())
        ++count;
    return count;
}
