#include "linux_neighbours.h"

#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct search {
    const uint8_t *mac;
    bool found;
};

void visit(hbs_netlink_bytes message, void *context) {
    auto *asked = static_cast<search *>(context);
    asked->found = asked->found || linux_neighbour_match(message, asked->mac);
}

} // namespace

bool linux_neighbour_answers(const uint8_t mac[6]) {
    struct {
        nlmsghdr head;
        ndmsg body;
    } request = {};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = RTM_GETNEIGH;
    request.head.nlmsg_flags = NLM_F_DUMP;
    search asked = {mac, false};
    return !linux_ask_soon(&request.head, visit, &asked) || asked.found;
}

void linux_neighbour_use(unsigned device, int family, const uint8_t *address) {
    const size_t size = family == AF_INET ? 4 : 16;
    struct {
        nlmsghdr head;
        ndmsg body;
        rtattr destination;
        uint8_t address[16];
    } request = {};
    request.head.nlmsg_len = static_cast<uint32_t>(sizeof request - sizeof request.address + size);
    request.head.nlmsg_type = RTM_NEWNEIGH;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    request.body.ndm_family = static_cast<uint8_t>(family);
    request.body.ndm_ifindex = static_cast<int>(device);
    request.body.ndm_flags = NTF_USE;
    request.destination = {static_cast<uint16_t>(RTA_LENGTH(size)), NDA_DST};
    memcpy(request.address, address, size);
    const int socket = device != 0 ? hbs_netlink_open() : -1;
    if (socket < 0)
        return;
    (void)send(socket, &request, request.head.nlmsg_len, MSG_DONTWAIT);
    (void)close(socket);
}
