#include "tools/lan_networks.h"

#include <bit>
#include <charconv>
#include <cstring>
#include <fstream>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <hbs_db.h>

namespace {

constexpr std::string_view lan_prefix = "l2sd0.";
constexpr unsigned first_vlan = 2; // of network 0

// "NUMBER NAME" lines, numbers from 1: where a router's bridges have names of their own, the platform keeps
// them.
constexpr const char *kept_numbers = HBS_PERSISTENT_DIR "/networks";

std::optional<unsigned> kept_network(const std::string &name) {
    std::ifstream file(kept_numbers);
    unsigned number = 0;
    for (std::string kept; file >> number >> kept;)
        if (kept == name && number > 0)
            return number - 1;
    return std::nullopt;
}

ipv4_bytes bytes_of(const sockaddr *address) {
    sockaddr_in inet = {};
    memcpy(&inet, address, sizeof inet);
    ipv4_bytes bytes;
    memcpy(bytes.data(), &inet.sin_addr, bytes.size());
    return bytes;
}

template <typename Combine> ipv4_bytes combined(const lan_network &network, Combine combine) {
    ipv4_bytes bytes;
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<uint8_t>(combine(network.address[i], network.mask[i]));
    return bytes;
}

} // namespace

std::optional<unsigned> network_of_interface(const std::string &name) {
    unsigned vlan = 0;
    const char *end = name.data() + name.size();
    if (!name.starts_with(lan_prefix))
        return kept_network(name);
    const auto [stop, error] = std::from_chars(name.data() + lan_prefix.size(), end, vlan);
    return error == std::errc() && stop == end && vlan >= first_vlan ? std::optional(vlan - first_vlan)
                                                                     : std::nullopt;
}

bool is_router() {
    return std::ifstream(kept_numbers).good();
}

bool is_known_to_be_no_lan(const std::string &name) {
    return is_router() && !network_of_interface(name);
}

std::vector<lan_network> lan_networks() {
    std::vector<lan_network> networks;
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        return networks;
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        const bool ipv4 = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET;
        const auto number = network_of_interface(one->ifa_name);
        if (ipv4 && number && one->ifa_netmask != nullptr)
            networks.push_back({*number, bytes_of(one->ifa_addr), bytes_of(one->ifa_netmask)});
    }
    freeifaddrs(all);
    return networks;
}

bool is_in(const lan_network &network, const ipv4_bytes &address) {
    return first_address({network.number, address, network.mask}) == first_address(network);
}

ipv4_bytes first_address(const lan_network &network) {
    return combined(
        network, [](uint8_t address, uint8_t mask) { return address & mask; });
}

ipv4_bytes last_address(const lan_network &network) {
    return combined(
        network, [](uint8_t address, uint8_t mask) { return address | ~mask; });
}

std::string network_text(const lan_network &network) {
    int length = 0;
    for (uint8_t byte : network.mask)
        length += std::popcount(byte);
    return ipv4_text(first_address(network).data()) + "/" + std::to_string(length);
}
