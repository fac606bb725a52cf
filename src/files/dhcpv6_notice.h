// The DHCPv6 server's notification file: keys and values that together tell of one lease.
#pragma once

#include "files/lease.h"

// The number is shown to a person, so it is kept as it goes into the log.
enum hbs_dhcpv6_notice_type : int { HBS_NOTICE_NONE = 0, HBS_NOTICE_LEASE = 106, HBS_NOTICE_RELEASE = 108 };

// A key that the file does not give leaves zero bytes. The key "lease_time" is the lease's end.
struct hbs_dhcpv6_notice : hbs_dhcpv6_lease {
    hbs_dhcpv6_notice_type type;
};

// Stores the value of one line (NUL-terminated, without its line end). A line that does not hold two
// words, an unknown key and an address that is none change nothing. Words after the second are ignored.
void hbs_dhcpv6_notice_read(const char *line, hbs_dhcpv6_notice *notice);

// Takes the file at `path` away and hands what all its lines say together to the handler: the last value of
// each key wins. What the handler has no use for (false) is logged. Path, result and thread as of
// hbs_dhcpv4_notices_read.
using hbs_dhcpv6_notice_handler = bool (*)(hbs_dhcpv6_notice *notice);
bool hbs_dhcpv6_notices_read(const char *path, hbs_dhcpv6_notice_handler handler);
