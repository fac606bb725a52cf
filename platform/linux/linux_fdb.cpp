#include "linux_fdb.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <linux/if_link.h>
#include <pthread.h>
#include <sys/socket.h>

#include "linux_log.h"
#include "linux_netlink.h"
#include "linux_soon.h"
#include "linux_watch.h"

namespace {

constexpr int patience_ms = 1000; // nobody waits for so long

constexpr size_t most_remembered = 256;

struct remembered {
    uint8_t mac[6];
    int port; // 0 = of nobody
};

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
remembered memory[most_remembered];
size_t oldest; // of those that are remembered, when there is no room

remembered *place_of(const uint8_t mac[6]) {
    for (remembered &each : memory)
        if (each.port != 0 && memcmp(each.mac, mac, sizeof each.mac) == 0)
            return &each;
    return nullptr;
}

remembered *new_place() {
    for (remembered &each : memory)
        if (each.port == 0)
            return &each;
    oldest = (oldest + 1) % most_remembered;
    return &memory[oldest];
}

void remember(const uint8_t mac[6], int port) {
    remembered *place = place_of(mac);
    if (place == nullptr && port != 0)
        place = new_place();
    if (place == nullptr)
        return;
    memcpy(place->mac, mac, sizeof place->mac);
    place->port = port;
}

struct search {
    uint8_t mac[6];
    bool found;
    linux_fdb_entry entry;
    int bridges;
    int bridge[LINUX_MOST_BRIDGES];
    bool vlan_aware[LINUX_MOST_BRIDGES];
    int now; // of the bridges, the one that is asked
};

void visit(hbs_netlink_bytes message, void *context) {
    auto *asked = static_cast<search *>(context);
    linux_fdb_entry entry = {};
    if (!linux_fdb_match(message, asked->bridge[asked->now], asked->mac, &entry) ||
        (asked->found && asked->entry.age <= entry.age))
        return;
    asked->entry = entry;
    asked->found = true;
}

struct attribute_of_mac {
    rtattr head;
    uint8_t mac[6];
    uint8_t padding[2];
};

struct attribute_of_number {
    rtattr head;
    int32_t number;
};

bool ask_one(search *asked) {
    struct {
        nlmsghdr head;
        ndmsg body;
        attribute_of_mac mac;
        attribute_of_number master;
    } request = {};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = RTM_GETNEIGH;
    request.body.ndm_family = AF_BRIDGE;
    request.mac.head = {RTA_LENGTH(sizeof request.mac.mac), NDA_LLADDR};
    memcpy(request.mac.mac, asked->mac, sizeof request.mac.mac);
    request.master.head = {RTA_LENGTH(sizeof request.master.number), NDA_MASTER};
    request.master.number = asked->bridge[asked->now];
    return linux_ask(&request.head, patience_ms, visit, asked);
}

// A request for one MAC names its VLAN; who does not know it looks at all entries.
bool ask_all(search *asked) {
    struct {
        nlmsghdr head;
        ifinfomsg body;
        attribute_of_number master;
    } request = {};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = RTM_GETNEIGH;
    request.head.nlmsg_flags = NLM_F_DUMP;
    request.body.ifi_family = AF_BRIDGE;
    request.master.head = {RTA_LENGTH(sizeof request.master.number), IFLA_MASTER};
    request.master.number = asked->bridge[asked->now];
    return linux_ask(&request.head, patience_ms, visit, asked);
}

// Kernels before 5.0 answer no question for one MAC.
bool ask_bridge(search *asked) {
    static std::atomic<bool> only_all = false;
    if (asked->vlan_aware[asked->now] || only_all)
        return ask_all(asked);
    if (ask_one(asked))
        return true;
    only_all = errno == EOPNOTSUPP;
    return only_all && ask_all(asked);
}

// A bridge that went meanwhile has no entries.
bool is_no(int error) {
    return error == ENOENT || error == ENODEV || error == EINVAL;
}

bool ask_bridges(void *context) {
    auto *asked = static_cast<search *>(context);
    for (asked->now = 0; asked->now < asked->bridges; asked->now++)
        if (!ask_bridge(asked) && !is_no(errno))
            return false;
    linux_fdb_learned(asked->mac, asked->found ? asked->entry.port : 0); // whoever still waits for it
    return true;
}

search search_for(const uint8_t mac[6]) {
    search asked = {};
    memcpy(asked.mac, mac, sizeof asked.mac);
    asked.bridges = linux_watch_bridges(asked.bridge, asked.vlan_aware);
    return asked;
}

// Said once until the kernel answers again.
void tell_silence(bool failed, int error) {
    static bool said; // callers hold the daemon's lock
    if (failed && !said)
        linux_log(3, "the forwarding table does not answer in time, its last answers count: %s",
                  strerror(error));
    said = failed;
}

} // namespace

int linux_fdb_find(const uint8_t mac[6], linux_fdb_entry *found) {
    search asked = search_for(mac);
    const bool failed = !linux_soon(ask_bridges, &asked, sizeof asked);
    tell_silence(failed, errno);
    if (failed)
        return -1;
    if (asked.found)
        *found = asked.entry;
    return asked.found ? 1 : 0;
}

bool linux_fdb_await(const uint8_t mac[6]) {
    search asked = search_for(mac);
    return ask_bridges(&asked);
}

void linux_fdb_learned(const uint8_t mac[6], int port) {
    (void)pthread_mutex_lock(&lock);
    remember(mac, port);
    (void)pthread_mutex_unlock(&lock);
}

int linux_fdb_port(const uint8_t mac[6], int *port) {
    linux_fdb_entry entry = {};
    const int found = linux_fdb_find(mac, &entry);
    *port = entry.port;
    if (found >= 0)
        return found;
    (void)pthread_mutex_lock(&lock);
    const remembered *place = place_of(mac);
    if (place != nullptr)
        *port = place->port;
    (void)pthread_mutex_unlock(&lock);
    return place != nullptr ? 1 : found;
}
