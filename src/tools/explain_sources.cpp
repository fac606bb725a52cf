#include "tools/explain_sources.h"

#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/scope.h"
#include "tools/words.h"

namespace {

constexpr int bridge_patience_ms = 2000;

std::string device_name(int index) {
    char name[IF_NAMESIZE] = "";
    return if_indextoname(static_cast<unsigned>(index), name) != nullptr ? name : std::to_string(index);
}

std::string state_word(uint16_t state) {
    static constexpr struct {
        uint16_t state;
        const char *word;
    } words[] = {{NUD_INCOMPLETE, "incomplete"}, {NUD_REACHABLE, "reachable"}, {NUD_STALE, "stale"},
                 {NUD_DELAY, "delay"},           {NUD_PROBE, "probe"},         {NUD_FAILED, "failed"},
                 {NUD_NOARP, "noarp"},           {NUD_PERMANENT, "permanent"}};
    for (const auto &known : words)
        if (known.state == state)
            return known.word;
    return "none";
}

unsigned seconds_since(hbs_netlink_bytes bytes) {
    nda_cacheinfo ages = {};
    if (bytes.size >= sizeof ages)
        std::memcpy(&ages, bytes.data, sizeof ages);
    return ages.ndm_updated / static_cast<unsigned>(sysconf(_SC_CLK_TCK));
}

bool has_link(const std::string &name) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    hbs_at_exit end([fd] { (void)close(fd); });
    ifreq request = {};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return ioctl(fd, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

bool is_address_of(const hbs_client &client, int family, const std::string &address) {
    if (family == AF_INET)
        return address == ipv4_text(client.ipv4);
    return address == ipv6_text(client.ipv6) || address == ipv6_text(client.ll);
}

void take_neighbour(hbs_netlink_bytes message, void *context) {
    auto &known = *static_cast<explanation *>(context);
    if (const auto entry = neighbour_of(message, known.client))
        known.neighbours.push_back(*entry);
}

void take_forwarding(hbs_netlink_bytes message, void *context) {
    auto &known = *static_cast<explanation *>(context);
    if (const auto entry = forwarding_of(message, known.client))
        known.forwarding.push_back(*entry);
}

// The kernel's neighbour request for bridges has to have a whole header.
bool ask_bridges(explanation &known) {
    struct {
        nlmsghdr head;
        ndmsg body;
    } request = {};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = RTM_GETNEIGH;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.ndm_family = AF_BRIDGE;
    const int socket = hbs_netlink_open();
    if (socket < 0)
        return false;
    hbs_at_exit end([socket] { (void)close(socket); });
    if (!hbs_netlink_bind(socket, 0) || send(socket, &request, sizeof request, 0) < 0)
        return false;
    alignas(nlmsghdr) uint8_t buffer[16384];
    int result = 1;
    while (result > 0) {
        const ssize_t length = hbs_netlink_receive(socket, buffer, sizeof buffer, bridge_patience_ms);
        result = length < 0
                     ? -1
                     : hbs_netlink_walk({buffer, static_cast<size_t>(length)}, take_forwarding, &known);
    }
    return result == 0;
}

} // namespace

std::optional<neighbour_entry> neighbour_of(const hbs_netlink_bytes &message, const hbs_client &client) {
    hbs_neighbour entry;
    if (!hbs_netlink_neighbour(message, &entry))
        return {};
    const int family = entry.header.ndm_family;
    const hbs_netlink_bytes bytes = entry.attributes[NDA_DST];
    const hbs_netlink_bytes lladdr = entry.attributes[NDA_LLADDR];
    if ((family != AF_INET || bytes.size != 4) && (family != AF_INET6 || bytes.size != 16))
        return {};
    const std::string address = family == AF_INET ? ipv4_text(bytes.data) : ipv6_text(bytes.data);
    const bool same_mac =
        lladdr.size == HBS_MAC_SIZE && std::memcmp(lladdr.data, client.mac, HBS_MAC_SIZE) == 0;
    if (!same_mac && !is_address_of(client, family, address))
        return {};
    return neighbour_entry{address, state_word(entry.header.ndm_state), device_name(entry.header.ndm_ifindex),
                           seconds_since(entry.attributes[NDA_CACHEINFO])};
}

std::optional<forwarding_entry> forwarding_of(const hbs_netlink_bytes &message, const hbs_client &client) {
    constexpr size_t headers = NLMSG_HDRLEN + sizeof(ndmsg);
    ndmsg header;
    if (message.size < headers)
        return {};
    std::memcpy(&header, message.data + NLMSG_HDRLEN, sizeof header);
    hbs_netlink_bytes attribute[NDA_MASTER + 1] = {};
    hbs_netlink_attributes({message.data + headers, message.size - headers}, attribute, NDA_MASTER);
    const hbs_netlink_bytes lladdr = attribute[NDA_LLADDR];
    uint32_t master = 0;
    uint16_t vlan = 0;
    if (attribute[NDA_MASTER].size == sizeof master)
        std::memcpy(&master, attribute[NDA_MASTER].data, sizeof master);
    if (attribute[NDA_VLAN].size == sizeof vlan)
        std::memcpy(&vlan, attribute[NDA_VLAN].data, sizeof vlan);
    if (header.ndm_family != AF_BRIDGE || master == 0 || lladdr.size != HBS_MAC_SIZE ||
        std::memcmp(lladdr.data, client.mac, HBS_MAC_SIZE) != 0)
        return {};
    const std::string port = device_name(header.ndm_ifindex);
    return forwarding_entry{port, device_name(static_cast<int>(master)), vlan,
                            seconds_since(attribute[NDA_CACHEINFO]), has_link(port)};
}

void ask_kernel(explanation &known) {
    known.kernel_asked = hbs_netlink_dump_neighbours(AF_INET, take_neighbour, &known) &&
                         hbs_netlink_dump_neighbours(AF_INET6, take_neighbour, &known) && ask_bridges(known);
}
