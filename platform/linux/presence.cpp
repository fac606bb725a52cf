// Presence by traffic: what the forwarding tables have heard.
#include <presence.h>
#include <unistd.h>

#include "linux_conf.h"
#include "linux_fdb.h"

namespace {

// Who answers no question for its address and has sent nothing for so long is not there. An entry is kept for
// five minutes, so its age says more than that it is there.
constexpr uint32_t silent_seconds = 30;

} // namespace

int PRESENCE_ByTraffic(void) {
    return linux_settings()->presence ? 1 : 0;
}

int PRESENCE_IsSilent(const uint8_t mac[6]) {
    linux_fdb_entry entry = {};
    const int found = mac != nullptr ? linux_fdb_find(mac, &entry) : -1;
    if (found < 0)
        return 0;
    const auto ticks = static_cast<uint32_t>(sysconf(_SC_CLK_TCK));
    return found == 0 || entry.age / ticks >= silent_seconds ? 1 : 0;
}
