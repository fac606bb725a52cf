// The LAN networks that this machine has an address on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/words.h"

struct lan_network {
    unsigned number;    // from 0
    ipv4_bytes address; // the gateway's own
    ipv4_bytes mask;
};

// From the kernel's interfaces: network n is on l2sd0.(n+2), or on the bridge that a router's platform keeps
// it for. Empty where there are none, so that nothing is known about addresses.
std::vector<lan_network> lan_networks();

// The number of the network of an interface name; none when it is no LAN interface.
std::optional<unsigned> network_of_interface(const std::string &name);

// Whether this is a Linux router, whose platform keeps which bridges are LAN networks.
bool is_router();

// Whether a router's LAN interfaces are known by name and this is none of them.
bool is_known_to_be_no_lan(const std::string &name);

bool is_in(const lan_network &network, const ipv4_bytes &address);
ipv4_bytes first_address(const lan_network &network); // names the network itself
ipv4_bytes last_address(const lan_network &network);  // goes to everybody
std::string network_text(const lan_network &network); // "192.168.0.0/24"
