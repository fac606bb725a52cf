// The words and text forms of what a record holds, and the way back from what a person types.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <hbs_db.h>
#include <hbs_msg.h>

using mac_bytes = std::array<uint8_t, 6>;
using ipv4_bytes = std::array<uint8_t, 4>;
using ipv6_bytes = std::array<uint8_t, 16>;

// One address of either family; the bytes of the other family are zero.
struct ip_address {
    uint16_t family = 0; // AF_INET or AF_INET6
    ipv4_bytes ipv4 = {};
    ipv6_bytes ipv6 = {};
    bool operator==(const ip_address &) const = default;
};

// Text of a fixed field: up to its NUL, or the whole field when it has none. May hold any byte.
template <size_t Size> std::string field_text(const char (&field)[Size]) {
    std::string_view view(field, Size);
    return std::string(view.substr(0, view.find('\0')));
}

// A text of a device's identity: the daemon writes "null" for one that is not known.
template <size_t Size> std::string identity_text(const char (&field)[Size]) {
    const std::string text = field_text(field);
    return text == "null" ? "" : text;
}

// Empty when all bytes are zero, which means "none" in a record.
std::string mac_text(const uint8_t mac[6]);
std::string ipv4_text(const uint8_t ipv4[4]);
std::string ipv6_text(const uint8_t ipv6[16]);
std::string ip_text(const ip_address &address);

// "2026-11-21 01:02:03" of a date-and-time field; empty when it is all zero.
std::string date_text(const uint8_t date[HBS_DATE_SIZE]);

std::string adapter_word(uint8_t adapter_type); // "ethernet", "usb", "moca", "wifi", "unknown"
std::string list_word(uint8_t type);            // "white", "black", or the number
std::vector<std::string> flag_words(uint32_t flags);
std::vector<std::string> trust_words(uint32_t trust);
std::string joined(const std::vector<std::string> &words, std::string_view separator);

// What a person typed; none when it is not of that form. A MAC has six bytes of one or two hexadecimal
// digits, separated by ':' or '-'.
std::optional<mac_bytes> parse_mac(const std::string &text);
std::optional<ip_address> parse_ip(const std::string &text);
std::optional<double> parse_duration(const std::string &text); // seconds, of "90", "90s", "10m", "2h", "1d"
std::optional<uint8_t> parse_adapter(const std::string &word);
