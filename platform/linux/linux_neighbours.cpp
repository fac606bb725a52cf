#include "linux_neighbours.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

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
    int device;
    int family;
    uint8_t address[16];
};

// Said once until the kernel takes one again.
void tell_refusal(bool failed, int error) {
    static bool said; // one thread runs all jobs
    if (failed && !said)
        linux_log(3, "the kernel does not ask a device whether it is there: %s", strerror(error));
    said = failed;
}

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
    request.head.nlmsg_flags = NLM_F_CREATE;
    request.body.ndm_family = static_cast<uint8_t>(wanted->family);
    request.body.ndm_ifindex = wanted->device;
    request.body.ndm_flags = NTF_USE;
    request.destination = {static_cast<uint16_t>(RTA_LENGTH(size)), NDA_DST};
    memcpy(request.address, wanted->address, size);
    const bool asked = linux_ask(
        &request.head, patience_ms, [](hbs_netlink_bytes, void *) {}, nullptr);
    tell_refusal(!asked, errno);
    return asked;
}

} // namespace

void linux_neighbour_use(int device, int family, const uint8_t *address) {
    static bool said; // callers hold the daemon's lock
    if (device == 0)
        return;
    use wanted = {device, family, {}};
    memcpy(wanted.address, address, family == AF_INET ? 4 : 16);
    const bool taken = linux_later(use_address, &wanted, sizeof wanted);
    if (!taken && !said)
        linux_log(3, "too many devices to be asked whether they are there: the rest is not asked");
    said = !taken;
}
