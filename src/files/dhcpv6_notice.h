// The DHCPv6 server's notification file: keys and values that together tell of one lease.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>

// The number is shown to a person, so it is kept as it goes into the log.
enum hbs_dhcpv6_notice_type : int { HBS_NOTICE_NONE = 0, HBS_NOTICE_LEASE = 106, HBS_NOTICE_RELEASE = 108 };

// A key that the file does not give leaves zero bytes.
struct hbs_dhcpv6_notice {
    hbs_dhcpv6_notice_type type;
    uint8_t ipv6[16];
    uint8_t ll[16];
    int32_t lease_time; // handed on as the lease's end: seconds since the epoch, 0 = static lease
    char lease_file[HBS_LEASE_FILE_SIZE];
    char host[128];
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
};

// Stores the value of one line (NUL-terminated, without its line end). A line that does not hold two
// words, an unknown key and an address that is none change nothing. Words after the second are ignored.
void hbs_dhcpv6_notice_read(const char *line, hbs_dhcpv6_notice *notice);
