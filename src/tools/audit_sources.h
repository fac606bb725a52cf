// Collects what the kernel and the DHCP servers know of the LAN.
#pragma once

#include <string>
#include <vector>

#include "tools/audit.h"

// The kernel's neighbours on the LAN side that have a link-layer address and are not known to be gone,
// from `ip -j neigh`. Throws std::runtime_error when the kernel cannot be asked.
std::vector<sighting> kernel_neighbours();

// All lease files of the DHCPv4 servers and the address database of the DHCPv6 server. A file that is
// not there holds nothing.
std::vector<sighting> dhcp_leases();

// The parsers, which skip whatever they do not understand.
std::vector<sighting> parse_neighbours(const std::string &text);
std::vector<sighting> parse_leases(const std::string &text, sighting::kind what, const std::string &file);
std::vector<sighting> parse_ipv6_leases(const std::string &text, const std::string &file);
