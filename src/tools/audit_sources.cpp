#include "tools/audit_sources.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <glob.h>
#include <net/if.h>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>

#include "base/paths.h"
#include "tools/lan_networks.h"
#include "tools/server_leases.h"
#include "tools/whole_file.h"
#include "tools/words.h"

namespace {

// The gateway's own outward interfaces: their neighbours are never clients.
constexpr std::string_view outward[] = {"wan0", "mta0", "erouter0", "lo"};
constexpr uint16_t gone_states = NUD_FAILED | NUD_INCOMPLETE | NUD_NOARP;

bool is_multicast(const ip_address &address) {
    return address.family == HBS_FAMILY_IPV4 ? address.ipv4[0] >= 224 && address.ipv4[0] <= 239
                                             : address.ipv6[0] == 0xFF;
}

std::optional<ip_address> destination_of(const hbs_neighbour &entry) {
    const hbs_netlink_bytes bytes = entry.attributes[NDA_DST];
    ip_address address;
    address.family = entry.header.ndm_family;
    if (address.family == HBS_FAMILY_IPV4 && bytes.size == address.ipv4.size())
        std::copy_n(bytes.data, bytes.size, address.ipv4.begin());
    else if (address.family == HBS_FAMILY_IPV6 && bytes.size == address.ipv6.size())
        std::copy_n(bytes.data, bytes.size, address.ipv6.begin());
    else
        return {};
    return address;
}

std::string interface_name(int index) {
    char name[IF_NAMESIZE] = "";
    return if_indextoname(static_cast<unsigned>(index), name) != nullptr ? name : "";
}

void add_neighbour(hbs_netlink_bytes message, void *context) {
    hbs_neighbour entry;
    if (!hbs_netlink_neighbour(message, &entry))
        return;
    const auto found = neighbour_sighting(entry, interface_name(entry.header.ndm_ifindex));
    if (found)
        static_cast<std::vector<sighting> *>(context)->push_back(*found);
}

std::vector<std::string> files_like(const char *pattern) {
    glob_t found = {};
    std::vector<std::string> paths;
    if (glob(pattern, 0, nullptr, &found) == 0)
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return paths;
}

void append(std::vector<sighting> &all, const std::vector<sighting> &more) {
    all.insert(all.end(), more.begin(), more.end());
}

lease_knowledge gateway_leases() {
    lease_knowledge known;
    for (const std::string &file : files_like(HBS_DYNAMIC_LEASES_BEFORE "*" HBS_DYNAMIC_LEASES_AFTER))
        append(known.leases, parse_leases(text_of_others(file).value_or(""), sighting::dynamic_lease, file));
    append(known.leases,
           parse_ipv6_leases(text_of_others(HBS_LEASEV6_DATABASE).value_or(""), HBS_LEASEV6_DATABASE));
    return known;
}

} // namespace

std::optional<sighting> neighbour_sighting(const hbs_neighbour &entry, const std::string &interface) {
    const hbs_netlink_bytes lladdr = entry.attributes[NDA_LLADDR];
    const std::optional<ip_address> address = destination_of(entry);
    const uint16_t state = entry.header.ndm_state;
    const bool outside = std::find(std::begin(outward), std::end(outward), interface) != std::end(outward) ||
                         is_known_to_be_no_lan(interface);
    if (outside || state == NUD_NONE || (state & gone_states) != 0 || lladdr.data == nullptr ||
        lladdr.size != HBS_MAC_SIZE || !address || is_multicast(*address))
        return {};
    return sighting{sighting::neighbour, mac_text(lladdr.data), ip_text(*address), interface};
}

std::vector<sighting> parse_leases(const std::string &text, sighting::kind what, const std::string &file) {
    std::vector<sighting> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string mac_word, address_word;
        words >> mac_word >> address_word;
        const auto mac = parse_mac(mac_word);
        const auto address = parse_ip(address_word);
        if (mac && address && !mac_text(mac->data()).empty() && !ip_text(*address).empty())
            found.push_back({what, mac_text(mac->data()), ip_text(*address), file});
    }
    return found;
}

std::vector<sighting> parse_ipv6_leases(const std::string &text, const std::string &file) {
    constexpr std::string_view element = "<AddrAddr";
    std::vector<sighting> found;
    size_t at = 0;
    while ((at = text.find(element, at)) != std::string::npos) {
        at += element.size();
        const size_t begin = text.find('>', at);
        const size_t end = text.find('<', at);
        if (begin == std::string::npos || end == std::string::npos || end < begin)
            continue;
        const auto address = parse_ip(text.substr(begin + 1, end - begin - 1));
        if (address && address->family == HBS_FAMILY_IPV6)
            found.push_back({sighting::ipv6_lease, "", ip_text(*address), file});
    }
    return found;
}

std::vector<sighting> kernel_neighbours() {
    std::vector<sighting> all;
    for (const int family : {AF_INET, AF_INET6})
        if (!hbs_netlink_dump_neighbours(family, add_neighbour, &all))
            throw std::runtime_error(std::string("cannot ask the kernel for its neighbours: ") +
                                     strerror(errno));
    return all;
}

lease_knowledge dhcp_leases() {
    lease_knowledge known = is_router() ? server_leases() : gateway_leases();
    append(known.leases, static_leases());
    return known;
}

std::vector<sighting> static_leases() {
    std::vector<sighting> leases;
    for (const std::string &file : files_like(HBS_STATIC_LEASES_BEFORE "*" HBS_STATIC_LEASES_AFTER))
        append(leases, parse_leases(text_of_others(file).value_or(""), sighting::static_lease, file));
    return leases;
}
