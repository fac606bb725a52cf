// A lease as any road brings it, notification file or command datagram, and as its handler takes it.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// Texts are NUL-terminated; empty where nothing is told.
struct hbs_dhcpv4_lease {
    uint8_t mac[HBS_MAC_SIZE];
    uint8_t ipv4[4];      // network order
    bool dynamic = false; // false = static lease
    uint32_t seconds = 0;
    char host[128];
    char ifname[64];
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
    char lease_file[259];
    int32_t nwidx = -1;        // -1 = to be worked out
    int32_t adapter_type = -1; // -1 = to be worked out
};

struct hbs_dhcpv6_lease {
    uint8_t ll[16];        // :: = not told
    uint8_t ipv6[16];      // :: = not told
    int64_t lease_end = 0; // seconds since the epoch, 0 = static lease; datagrams bring it unsigned, the
                           // notification file signed
    char host[128];        // the handler cuts it at its first "."
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
    char lease_file[HBS_LEASE_FILE_SIZE];
};
