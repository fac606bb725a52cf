// One static lease as dnsmasq reads it.
#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>

#include "common_text.h"
#include "linux_static.h"

// No tags: dnsmasq 2.90 ends by a fault when it reads its hosts again after it has served one that sets a
// tag.
bool linux_static_line(const char *line, char *hosts_line, size_t size) {
    char mac_text[18];
    char address_text[INET_ADDRSTRLEN];
    uint8_t mac[6];
    uint8_t address[4];
    if (sscanf(line, "%17s %15s", mac_text, address_text) != 2 || !common_text_to_mac(mac_text, mac) ||
        inet_pton(AF_INET, address_text, address) != 1)
        return false;
    const int length = snprintf(hosts_line, size, "%s,%s\n", mac_text, address_text);
    return length > 0 && static_cast<size_t>(length) < size;
}
