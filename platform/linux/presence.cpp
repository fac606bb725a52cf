// Presence by traffic: what the forwarding tables have heard.
#include <presence.h>
#include <unistd.h>

#include "linux_conf.h"
#include "linux_fdb.h"
#include "linux_neighbours.h"
#include "linux_watch.h"

// A question that is not waited for: the kernel asks the device as it would for traffic of its own.
void PRESENCE_Ask(uint32_t network, int family, const uint8_t *address) {
    if (linux_watch_start())
        linux_neighbour_use(linux_watch_lan_index(network + 1), family, address);
}

int PRESENCE_ByTraffic(void) {
    return linux_settings()->presence ? 1 : 0;
}

int PRESENCE_Await(const uint8_t mac[6]) {
    return mac != nullptr && linux_watch_start() && linux_fdb_await(mac) ? 1 : -1;
}

void PRESENCE_Learned(const uint8_t mac[6], int ifindex) {
    if (mac != nullptr && (linux_watch_port_of(ifindex) != 0 || linux_watch_is_wifi(ifindex)))
        linux_fdb_learned(mac, ifindex);
}

// An entry is kept for five minutes, so its age says more than that it is there.
int PRESENCE_IsSilent(const uint8_t mac[6]) {
    linux_fdb_entry entry = {};
    const int found = mac != nullptr ? linux_fdb_find(mac, &entry) : -1;
    if (found < 0)
        return 0;
    const auto ticks = static_cast<uint32_t>(sysconf(_SC_CLK_TCK));
    return found == 0 || entry.age / ticks >= PRESENCE_SILENT_SECONDS ? 1 : 0;
}

int PRESENCE_IsAnswering(const uint8_t mac[6]) {
    return mac == nullptr || linux_neighbour_answers(mac) ? 1 : 0;
}
