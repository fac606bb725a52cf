// What the DHCP servers' notification files say, handed to the lease handlers.
#pragma once

// Take the notification file at `path` away and act on it. An empty file is nothing to do; null returns.
// False when it could not be taken (logged) and has to be looked at again after a while. Each takes
// hbs_list_mutex around each handler call, and calls none while hbs_db_ready is 0.
bool hbs_watch_dhcpv4_notices(const char *path);
bool hbs_watch_dhcpv6_notices(const char *path); // one lease or release: the last value of each key wins
