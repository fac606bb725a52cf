// The roles of the kernel's interfaces: outward is where a default route leads.
#include <netif.h>

#include "linux_watch.h"

int NETIF_IsOutward(int ifindex) {
    return linux_watch_start() && linux_watch_is_outward(ifindex) ? 1 : 0;
}

int NETIF_GetLanName(uint32_t network, char name[NETIF_NAME_SIZE]) {
    return name != nullptr && linux_watch_start() && linux_watch_lan_name(network + 1, name) ? 0 : -1;
}

int NETIF_GetIndex(const char *name) {
    return name != nullptr && linux_watch_start() ? linux_watch_index(name) : 0;
}
