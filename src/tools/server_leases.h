// The lease files of the DHCP servers of a Linux router.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "tools/audit.h"

// The text of dnsmasq's file, or of one of Kea's, which says of the same address again and again: the last
// word counts, until the lease ends. What is not understood is skipped.
std::vector<sighting> parse_server_leases(const std::string &text, const std::string &file, time_t now);

// Of this machine: the file that the settings name, else those in the usual places that can be read. What no
// server can be asked for is told by `leases`.
lease_knowledge server_leases();
