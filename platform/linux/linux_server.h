// The DHCP server of this machine.
#pragma once

// Has the dnsmasq that a pid file names read its file of hosts again, by which it tells all its leases again.
// What speaks against it is logged; a file that cannot be read is, once until it is another. Returns false
// when it is to be tried again soon, true also where no server runs: it reads the file when it starts.
bool linux_server_tell(const char *pid_file);
