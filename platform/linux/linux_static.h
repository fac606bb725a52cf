// The users' static leases for dnsmasq.
#pragma once

#include <cstddef>

// Keeps dnsmasq's file of hosts in line with the daemon's own files from now on, and has dnsmasq read it
// again after each change and once now, by which it tells all its leases again. Without a file of hosts in
// the settings there is the latter only.
void linux_static_start();

// What one line of the daemon's files ("MAC ADDRESS [INDEX]") is for dnsmasq, newline included. Returns
// whether it is a lease.
bool linux_static_line(const char *line, char *hosts_line, size_t size);
