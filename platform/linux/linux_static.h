// The users' static leases for dnsmasq.
#pragma once

#include <cstddef>

// Keeps dnsmasq's file of hosts in line with the daemon's own files from now on, and has dnsmasq read it
// again after each change and once now, by which it tells all its leases again. Without a file of hosts in
// the settings there is the latter only.
void linux_static_start();

enum class linux_hosts { same, changed, failed };

// Makes dnsmasq's file of hosts anew from all files of static leases in a directory. When one that is there
// cannot be read, or the new one not be written, the old one stays, and that is logged: `failed`.
linux_hosts linux_hosts_write(const char *directory, const char *path);

// What one line of the daemon's files ("MAC ADDRESS [INDEX]") is for dnsmasq, newline included. Returns
// whether it is a lease.
bool linux_static_line(const char *line, char *hosts_line, size_t size);
