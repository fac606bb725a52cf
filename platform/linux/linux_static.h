// The users' static leases for dnsmasq.
#pragma once

#include <cstddef>

// Keeps dnsmasq's file of hosts in line with the daemon's own files from now on, and has dnsmasq read it
// again after each change. Does nothing when the settings name no file.
void linux_static_start();

// What one line of the daemon's files ("MAC ADDRESS [INDEX]") is for dnsmasq, newline included. Returns
// whether it is a lease.
bool linux_static_line(const char *line, char *hosts_line, size_t size);
