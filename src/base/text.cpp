// Text forms of MAC and IP addresses, and bounded copies into fixed fields.
#include "base/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>

hbs_mac_text hbs_mac_to_text(const uint8_t mac[6]) {
    hbs_mac_text out{};
    (void)snprintf(out.text, sizeof out.text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                   mac[4], mac[5]);
    return out;
}

hbs_mac_text hbs_mac_to_text_upper(const uint8_t mac[6]) {
    hbs_mac_text out{};
    (void)snprintf(out.text, sizeof out.text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3],
                   mac[4], mac[5]);
    return out;
}

int hbs_text_to_mac(const char *text, uint8_t mac[6]) {
    std::fill_n(mac, 6, uint8_t{0});
    if (text == nullptr)
        return 0;
    // An empty text gives EOF (-1), which is no byte either.
    return std::max(0, sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3],
                              &mac[4], &mac[5]));
}

uint64_t hbs_mac_to_number(const uint8_t mac[6]) {
    uint64_t number = 0;
    for (int i = 0; i < 6; ++i)
        number = number << 8 | mac[i];
    return number;
}

namespace {

bool all_zero(const uint8_t *bytes, size_t count) {
    return std::all_of(
        bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

} // namespace

bool hbs_mac_is_zero(const uint8_t mac[6]) {
    return all_zero(mac, 6);
}

bool hbs_ipv4_is_zero(const uint8_t ipv4[4]) {
    return all_zero(ipv4, 4);
}

bool hbs_ipv6_is_zero(const uint8_t ipv6[16]) {
    return all_zero(ipv6, 16);
}

hbs_addr_text hbs_ipv4_to_text(const uint8_t ipv4[4]) {
    hbs_addr_text out{};
    (void)snprintf(out.text, sizeof out.text, "%d.%d.%d.%d", ipv4[0], ipv4[1], ipv4[2], ipv4[3]);
    return out;
}

hbs_addr_text hbs_ipv6_to_text(const uint8_t ipv6[16]) {
    hbs_addr_text out{};
    (void)inet_ntop(AF_INET6, ipv6, out.text, sizeof out.text);
    return out;
}

uint32_t hbs_ipv4_to_number(const uint8_t ipv4[4]) {
    return uint32_t{ipv4[0]} << 24 | uint32_t{ipv4[1]} << 16 | uint32_t{ipv4[2]} << 8 | ipv4[3];
}

void hbs_ipv4_from_number(uint32_t number, uint8_t ipv4[4]) {
    for (int i = 0; i < 4; ++i)
        ipv4[i] = static_cast<uint8_t>(number >> (24 - 8 * i));
}

bool hbs_address_is_multicast(int family, const uint8_t *address) {
    if (family == AF_INET)
        return address[0] >= 224 && address[0] <= 239;
    return family == AF_INET6 && address[0] == 255;
}

void hbs_copy_text(char *field, size_t size, const char *text) {
    const size_t length = strnlen(text, size - 1);
    memmove(field, text, length); // a field may be copied onto itself
    memset(field + length, 0, size - length);
}
