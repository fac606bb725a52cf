#include "linux_fdb.h"

#include <cerrno>
#include <cstring>
#include <linux/if_link.h>
#include <sys/socket.h>

#include "linux_log.h"
#include "linux_watch.h"

namespace {

struct search {
    const uint8_t *mac;
    int bridge;
    bool found;
    linux_fdb_entry entry;
};

void visit(hbs_netlink_bytes message, void *context) {
    auto *asked = static_cast<search *>(context);
    linux_fdb_entry entry = {};
    if (!linux_fdb_match(message, asked->bridge, asked->mac, &entry) ||
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
    request.master.number = asked->bridge;
    return linux_ask_soon(&request.head, visit, asked);
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
    request.master.number = asked->bridge;
    return linux_ask_soon(&request.head, visit, asked);
}

// A bridge that went meanwhile has no entries.
bool is_no(int error) {
    return error == ENOENT || error == ENODEV || error == EINVAL;
}

} // namespace

int linux_fdb_find(const uint8_t mac[6], linux_fdb_entry *found) {
    int bridge[LINUX_MOST_BRIDGES];
    bool vlan_aware[LINUX_MOST_BRIDGES];
    const int count = linux_watch_bridges(bridge, vlan_aware);
    search asked = {mac, 0, false, {}};
    bool failed = false;
    for (int i = 0; i < count && !failed; i++) {
        asked.bridge = bridge[i];
        const bool answered = vlan_aware[i] ? ask_all(&asked) : ask_one(&asked);
        failed = !answered && !is_no(errno);
    }
    if (asked.found)
        *found = asked.entry;
    if (asked.found)
        return 1;
    if (failed)
        linux_log(9, "the forwarding table does not answer in time: %s", strerror(errno));
    return failed ? -1 : 0;
}
