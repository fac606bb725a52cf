// The kernel's answer to who has an address, to the daemon; and what hbsctl takes from such answers of one
// device.
#include <sys/socket.h>

#include "fuzz_netlink.h"
#include "fuzz_text.h"
#include "gateway/neighbour_answer.h"
#include "tools/explain_sources.h"

namespace {

constexpr uint32_t sequence = 7;
constexpr uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
constexpr uint8_t ipv4[4] = {192, 168, 1, 2};

void take(hbs_netlink_bytes message, void *) {
    hbs_client client = {};
    memcpy(client.mac, mac, sizeof mac);
    memcpy(client.ipv4, ipv4, sizeof ipv4);
    if (const auto entry = neighbour_of(message, client))
        fuzz_expect(!entry->address.empty() || !entry->state.empty());
    if (const auto entry = forwarding_of(message, client))
        fuzz_expect(!entry->port.empty() && !entry->bridge.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint8_t found[6] = {};
    (void)hbs_is_answer(data, size, sequence, 0);
    if (hbs_find_lladdr(data, size, sequence, AF_INET, ipv4, found) == 0)
        fuzz_expect(size > NLMSG_HDRLEN + sizeof(ndmsg));
    (void)hbs_netlink_walk({data, size}, take, nullptr);
    return 0;
}
