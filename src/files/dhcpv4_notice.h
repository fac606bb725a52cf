// The DHCPv4 server's notification lines: a lease that was granted or released, as text.
#pragma once

#include <cstdint>

#include <hbs_db.h>

enum class hbs_notice_action { add, del };

// Texts are empty where the line says "null" or nothing.
struct hbs_dhcpv4_notice {
    hbs_notice_action action;
    uint8_t mac[6];
    uint8_t ipv4[4];
    uint32_t seconds;
    char host[128];
    char ifname[64]; // second name of the line
    bool dynamic;
    char lease_file[256]; // ADD only: "unknown file" for none
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
};

// Reads one line (without its line end), which is cut up in place. Returns false, with `notice`
// undefined, when the line breaks any rule.
bool hbs_dhcpv4_notice_parse(char *line, hbs_dhcpv4_notice *notice);
