// The roles of the kernel's interfaces, by the names that they have on the gateway.
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <net/if.h>
#include <netif.h>

#include "host_values.h"

namespace {

constexpr uint32_t first_lan = 2; // network 0 is "l2sd0.2"
constexpr uint32_t most_networks = 256;

} // namespace

int NETIF_IsOutward(int ifindex) {
    static constexpr const char *names[] = {"wan0", "mta0", "erouter0"};
    static int32_t indices[] = {-1, -1, -1}; // negative = not looked up; 0 = there was none
    bool outward = false;
    for (size_t i = 0; i < std::size(names); i++) {
        if (indices[i] < 0)
            indices[i] = static_cast<int32_t>(if_nametoindex(names[i]));
        outward = outward || indices[i] == ifindex;
    }
    return outward ? 1 : 0;
}

int NETIF_GetLanName(uint32_t network, char name[NETIF_NAME_SIZE]) {
    int result = 0;
    if (host_call_fails("NETIF_GetLanName", &result))
        return result;
    if (name == nullptr || network >= most_networks)
        return -1;
    (void)snprintf(name, NETIF_NAME_SIZE, "l2sd0.%u", network + first_lan);
    return 0;
}

int NETIF_GetIndex(const char *name) {
    return name == nullptr ? 0 : static_cast<int>(if_nametoindex(name));
}
