// Text forms of MAC and IP addresses, and bounded copies into fixed fields.
#include "base/text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>

void hbs_bytes_to_hex(const uint8_t *bytes, size_t count, char separator, const char digits[16], char *out) {
    for (size_t i = 0; i < count; i++) {
        *out++ = digits[bytes[i] >> 4];
        *out++ = digits[bytes[i] & 15];
        *out++ = i + 1 < count ? separator : '\0';
    }
}

char *hbs_number_to_text(int number, char *out) {
    char digits[10];
    size_t count = 0;
    unsigned left = number < 0 ? 0 - static_cast<unsigned>(number) : static_cast<unsigned>(number);
    do
        digits[count++] = static_cast<char>('0' + left % 10);
    while ((left /= 10) != 0);
    if (number < 0)
        *out++ = '-';
    while (count > 0)
        *out++ = digits[--count];
    *out = '\0';
    return out;
}

hbs_mac_text hbs_mac_to_text(const uint8_t mac[6]) {
    hbs_mac_text out{};
    hbs_bytes_to_hex(mac, 6, ':', HBS_HEX_DIGITS, out.text);
    return out;
}

hbs_mac_text hbs_mac_to_text_upper(const uint8_t mac[6]) {
    hbs_mac_text out{};
    hbs_bytes_to_hex(mac, 6, ':', HBS_HEX_DIGITS_UPPER, out.text);
    return out;
}

int hbs_hex_digit(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

namespace {

// The form that nearly every MAC text has: six pairs of digits and five colons, and nothing else.
bool read_pairs(const char *text, uint8_t mac[6]) {
    if (strnlen(text, 18) != 17)
        return false;
    int wrong = 0;
    for (int i = 0; i < 6; ++i, text += 3) {
        const int high = hbs_hex_digit(text[0]);
        const int low = hbs_hex_digit(text[1]);
        wrong |= high | low | (text[2] == (i < 5 ? ':' : '\0') ? 0 : -1);
        mac[i] = static_cast<uint8_t>(high * 16 + low);
    }
    return wrong >= 0;
}

} // namespace

int hbs_text_to_mac(const char *text, uint8_t mac[6]) {
    if (text != nullptr && read_pairs(text, mac))
        return 6;
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
    char *at = out.text;
    for (size_t i = 0; i < 4; i++) {
        const unsigned byte = ipv4[i];
        if (byte >= 100)
            *at++ = static_cast<char>('0' + byte / 100);
        if (byte >= 10)
            *at++ = static_cast<char>('0' + byte / 10 % 10);
        *at++ = static_cast<char>('0' + byte % 10);
        *at++ = i < 3 ? '.' : '\0';
    }
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
    const size_t length = *text == '\0' ? 0 : strnlen(text, size - 1); // most fields are empty
    memmove(field, text, length);                                      // a field may be copied onto itself
    memset(field + length, 0, size - length);
}
