#include "tools/words.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

namespace {

struct bit_word {
    uint32_t bit;
    const char *word;
};

// In the order, and with the words, of the daemon's own dump.
constexpr bit_word flag_table[] = {
    {HBS_FLAG_ASSOC, "ASSOC"}, {HBS_FLAG_REACH, "REACH"},   {HBS_FLAG_DYNIP4, "DYNIP4"},
    {HBS_FLAG_STIP4, "STIP4"}, {HBS_FLAG_USRIP4, "USRIP4"}, {HBS_FLAG_DYNIP6, "DYNIP6"},
    {HBS_FLAG_STIP6, "STIP6"}, {HBS_FLAG_USRIP6, "USRIP6"}, {HBS_FLAG_ONLINE, "ONLINE"},
};

constexpr bit_word trust_table[] = {
    {HBS_TRUST_SITE, "T-SITE"}, {HBS_TRUST_SERV, "T-SERV"}, {HBS_TRUST_WHITE, "WHITE"},
    {HBS_TRUST_BLACK, "BLACK"}, {HBS_TRUST_USER, "USER"},
};

constexpr bit_word adapter_table[] = {
    {HBS_ADAPTER_ETHERNET, "ethernet"}, {HBS_ADAPTER_USB, "usb"},         {HBS_ADAPTER_MOCA, "moca"},
    {HBS_ADAPTER_WIFI, "wifi"},         {HBS_ADAPTER_UNKNOWN, "unknown"},
};

template <size_t Count> std::vector<std::string> words_of(const bit_word (&table)[Count], uint32_t bits) {
    std::vector<std::string> words;
    for (const bit_word &entry : table)
        if ((bits & entry.bit) != 0)
            words.emplace_back(entry.word);
    return words;
}

bool all_zero(const uint8_t *bytes, size_t size) {
    return std::all_of(
        bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

std::string address_text(int family, const uint8_t *bytes, size_t size) {
    char text[INET6_ADDRSTRLEN] = "";
    return all_zero(bytes, size) ? "" : inet_ntop(family, bytes, text, sizeof text);
}

} // namespace

std::string mac_text(const uint8_t mac[6]) {
    char text[18] = "";
    if (!all_zero(mac, 6)) {
        snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                 mac[5]);
    }
    return text;
}

std::string ipv4_text(const uint8_t ipv4[4]) {
    return address_text(AF_INET, ipv4, 4);
}

std::string ipv6_text(const uint8_t ipv6[16]) {
    return address_text(AF_INET6, ipv6, 16);
}

std::string ip_text(const ip_address &address) {
    return address.family == AF_INET ? ipv4_text(address.ipv4.data()) : ipv6_text(address.ipv6.data());
}

std::string date_text(const uint8_t date[HBS_DATE_SIZE]) {
    char text[32] = "";
    if (!all_zero(date, HBS_DATE_SIZE)) {
        snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", date[0] * 256u + date[1], date[2],
                 date[3], date[4], date[5], date[6]);
    }
    return text;
}

std::string adapter_word(uint8_t adapter_type) {
    for (const bit_word &entry : adapter_table)
        if (entry.bit == adapter_type)
            return entry.word;
    return "unknown";
}

std::string list_word(uint8_t type) {
    switch (type) {
    case HBS_LIST_WHITE:
        return "white";
    case HBS_LIST_BLACK:
        return "black";
    }
    return std::to_string(type);
}

std::vector<std::string> flag_words(uint32_t flags) {
    return words_of(flag_table, flags);
}

std::vector<std::string> trust_words(uint32_t trust) {
    return words_of(trust_table, trust);
}

std::string joined(const std::vector<std::string> &words, std::string_view separator) {
    std::string text;
    for (const std::string &word : words)
        text.append(text.empty() ? "" : separator).append(word);
    return text;
}

std::optional<mac_bytes> parse_mac(const std::string &text) {
    mac_bytes mac = {};
    size_t at = 0;
    for (size_t i = 0; i < mac.size(); i++) {
        if (i > 0 && (at >= text.size() || (text[at] != ':' && text[at] != '-')))
            return std::nullopt;
        at += i > 0;
        size_t digits = 0;
        unsigned value = 0;
        while (digits < 2 && at < text.size() && isxdigit(static_cast<unsigned char>(text[at]))) {
            value = value * 16 + static_cast<unsigned>(std::stoi(text.substr(at, 1), nullptr, 16));
            at++;
            digits++;
        }
        if (digits == 0)
            return std::nullopt;
        mac[i] = static_cast<uint8_t>(value);
    }
    return at == text.size() ? std::optional(mac) : std::nullopt;
}

std::optional<ip_address> parse_ip(const std::string &text) {
    ip_address address;
    if (inet_pton(AF_INET, text.c_str(), address.ipv4.data()) == 1) {
        address.family = AF_INET;
        return address;
    }
    if (inet_pton(AF_INET6, text.c_str(), address.ipv6.data()) == 1) {
        address.family = AF_INET6;
        return address;
    }
    return std::nullopt;
}

std::optional<double> parse_duration(const std::string &text) {
    const size_t digits = text.find_first_not_of("0123456789");
    const std::string unit = digits == std::string::npos ? "s" : text.substr(digits);
    const std::string number = text.substr(0, digits);
    if (number.empty() || number.size() > 9)
        return std::nullopt;
    for (const auto &[name, seconds] : {std::pair("s", 1.0), {"m", 60.0}, {"h", 3600.0}, {"d", 86400.0}})
        if (unit == name)
            return std::stod(number) * seconds;
    return std::nullopt;
}

std::optional<uint8_t> parse_adapter(const std::string &word) {
    for (const bit_word &entry : adapter_table)
        if (word == entry.word)
            return static_cast<uint8_t>(entry.bit);
    return std::nullopt;
}
