// Text forms of MAC and IP addresses, and bounded copies into fixed fields.
#pragma once

#include <cstddef>
#include <cstdint>

// Texts returned by value: usable inside one log call, no shared buffer.
struct hbs_mac_text {
    char text[18];
};
struct hbs_addr_text {
    char text[46];
};

inline constexpr char HBS_HEX_DIGITS[] = "0123456789abcdef";
inline constexpr char HBS_HEX_DIGITS_UPPER[] = "0123456789ABCDEF";

// Bytes as pairs of hex digits with a separator between them: 3 * count characters into `out`, the last one
// NUL.
void hbs_bytes_to_hex(const uint8_t *bytes, size_t count, char separator, const char digits[16], char *out);

// The value of a hex digit of either case; -1 when it is none.
int hbs_hex_digit(char digit);

// A number in decimal with its NUL, at most 12 characters. Returns the place of the NUL.
char *hbs_number_to_text(int number, char *out);

hbs_mac_text hbs_mac_to_text(const uint8_t mac[6]);       // "%02x:..." logs and files
hbs_mac_text hbs_mac_to_text_upper(const uint8_t mac[6]); // "%02X:..." towards Wi-Fi and TR-069

// Parses "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx" into mac, which is zeroed first.
// Returns how many bytes were converted (0-6); a MAC is usable only when all 6 were.
int hbs_text_to_mac(const char *text, uint8_t mac[6]);

uint64_t hbs_mac_to_number(const uint8_t mac[6]); // 48-bit number, byte 0 most significant
bool hbs_mac_is_zero(const uint8_t mac[6]);

hbs_addr_text hbs_ipv4_to_text(const uint8_t ipv4[4]);
hbs_addr_text hbs_ipv6_to_text(const uint8_t ipv6[16]);
bool hbs_ipv4_is_zero(const uint8_t ipv4[4]);
bool hbs_ipv6_is_zero(const uint8_t ipv6[16]);

// 32-bit number of an address in host order, first byte most significant, and back.
uint32_t hbs_ipv4_to_number(const uint8_t ipv4[4]);
void hbs_ipv4_from_number(uint32_t number, uint8_t ipv4[4]);

// An address is multicast when, for IPv4, its first byte is 224-239, and, for IPv6, 255.
bool hbs_address_is_multicast(int family, const uint8_t *address);

// Copies a NUL-terminated text into a field of `size` bytes: cut at size - 1, the rest of the field is
// zeroed, always terminated.
void hbs_copy_text(char *field, size_t size, const char *text);
