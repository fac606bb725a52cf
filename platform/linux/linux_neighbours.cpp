#include "linux_neighbours.h"

#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include "linux_log.h"
#include "linux_netlink.h"
#include "linux_soon.h"

namespace {

constexpr int patience_ms = 1000;

struct search {
    uint8_t mac[6];
    bool found;
};

void visit(hbs_netlink_bytes message, void *context) {
    auto *asked = static_cast<search *>(context);
    asked->found = asked->found || linux_neighbour_match(message, asked->mac);
}

bool look_for(void *context) {
    struct {
        nlmsghdr head;
        ndmsg body;
    } request = {};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = RTM_GETNEIGH;
    request.head.nlmsg_flags = NLM_F_DUMP;
    return linux_ask(&request.head, patience_ms, visit, context);
}

} // namespace

bool linux_neighbour_answers(const uint8_t mac[6]) {
    search asked = {};
    memcpy(asked.mac, mac, sizeof asked.mac);
    return !linux_soon(look_for, &asked, sizeof asked) || asked.found;
}

namespace {

struct use {
    unsigned device;
    int family;
    uint8_t address[16];
};

bool use_address(void *context) {
    const use *wanted = static_cast<const use *>(context);
    const size_t size = wanted->family == AF_INET ? 4 : 16;
    struct {
        nlmsghdr head;
        ndmsg body;
        rtattr destination;
        uint8_t address[16];
    } request = {};
    request.head.nlmsg_len = static_cast<uint32_t>(sizeof request - sizeof request.address + size);
    request.head.nlmsg_type = RTM_NEWNEIGH;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    request.body.ndm_family = static_cast<uint8_t>(wanted->family);
    request.body.ndm_ifindex = static_cast<int>(wanted->device);
    request.body.ndm_flags = NTF_USE;
    request.destination = {static_cast<uint16_t>(RTA_LENGTH(size)), NDA_DST};
    memcpy(request.address, wanted->address, size);
    const int socket = hbs_netlink_open();
    if (socket < 0)
        return false;
    const bool sent = send(socket, &request, request.head.nlmsg_len, MSG_DONTWAIT) >= 0;
    (void)close(socket);
    return sent;
}

} // namespace

void linux_neighbour_use(unsigned device, int family, const uint8_t *address) {
    use wanted = {device, family, {}};
    memcpy(wanted.address, address, family == AF_INET ? 4 : 16);
    if (device != 0 && !linux_later(use_address, &wanted, sizeof wanted))
        linux_log(9, "too many devices to be asked whether they are there");
}
