// External switch: ports and learned addresses from the file of values, which a thread of the switch's own
// looks at for link changes.
#include <atomic>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <strings.h>

#include <extswt.h>

#include "common_thread.h"
#include "host_values.h"

namespace {

constexpr long poll_ns = 100000000;

std::atomic<extswt_link_cb> link_callback = nullptr;
pthread_mutex_t watch_mutex = PTHREAD_MUTEX_INITIALIZER;
bool watching;
uint32_t states[EXTSWT_PORTS]; // as last reported; after the start only the watcher thread uses them

// A port that the file does not name is up.
void read_states(uint32_t now[EXTSWT_PORTS]) {
    host_values_hold hold;
    for (unsigned port = 1; port <= EXTSWT_PORTS; port++) {
        const char *state = host_value_with("switch.port.%u", port);
        now[port - 1] = state == nullptr || strcasecmp(state, "down") != 0 ? 1 : 0;
    }
}

void report_changes() {
    uint32_t now[EXTSWT_PORTS];
    read_states(now);
    if (memcmp(now, states, sizeof states) == 0)
        return;
    memcpy(states, now, sizeof states);
    link_callback.load()(now);
}

void *watch_links(void *) {
    for (;;) {
        timespec pause = {0, poll_ns};
        (void)nanosleep(&pause, nullptr);
        report_changes();
    }
    return nullptr;
}

int watch_from_now_on() {
    int result = 0;
    (void)pthread_mutex_lock(&watch_mutex);
    if (!watching) {
        read_states(states);
        result = common_thread_start(watch_links) ? 0 : -1;
        watching = result == 0;
    }
    (void)pthread_mutex_unlock(&watch_mutex);
    return result;
}

} // namespace

int EXTSWT_RegisterLinkStatusCb(extswt_link_cb callback) {
    int result = 0;
    if (host_call_fails("EXTSWT_RegisterLinkStatusCb", &result))
        return result;
    if (callback == nullptr)
        return -1;
    link_callback.store(callback);
    return watch_from_now_on();
}

int extSwitchSearchMac(const uint8_t mac[6], uint16_t *hit, uint32_t *port) {
    if (hit == nullptr || port == nullptr)
        return -1;
    *hit = 0;
    *port = 0;
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("extSwitchSearchMac", &result))
        return result;
    if (mac == nullptr)
        return -1;
    const char *learned = host_value_of_mac("switch.mac.", mac);
    if (learned == nullptr)
        return 0;
    if (!common_text_to_u32(learned, port))
        return -1;
    *hit = 1;
    return 0;
}
