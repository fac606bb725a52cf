// Collects what the kernel and the DHCP servers know of the LAN.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/netlink.h"
#include "tools/audit.h"

// The kernel's neighbours on the LAN side that have a link-layer address and are not known to be gone,
// from its tables of both families. Throws std::runtime_error when the kernel cannot be asked.
std::vector<sighting> kernel_neighbours();

// Static leases, and on a gateway all lease files of the DHCPv4 servers and the address database of the
// DHCPv6 server, where a file that is not there holds nothing; on a Linux router those of the servers of such
// machines.
lease_knowledge dhcp_leases();

// Of those only what users set; what is not there or cannot be read holds nothing.
std::vector<sighting> static_leases();

// None for an entry that is gone, on no LAN interface, or has no address or MAC of the right length.
std::optional<sighting> neighbour_sighting(const hbs_neighbour &entry, const std::string &interface);

// The parsers, which skip whatever they do not understand.
std::vector<sighting> parse_leases(const std::string &text, sighting::kind what, const std::string &file);
std::vector<sighting> parse_ipv6_leases(const std::string &text, const std::string &file);
