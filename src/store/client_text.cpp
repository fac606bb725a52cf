// Texts of clients and index entries.
#include "store/client_text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/text.h"

namespace {

// A line that grows piece by piece; what does not fit is cut, and the text stays terminated.
struct text_line {
    char *buffer;
    size_t size;
    size_t used;
};

text_line start_line(char *buffer, size_t size) {
    if (size > 0)
        buffer[0] = '\0';
    return {buffer, size, 0};
}

void append_text(text_line *line, std::string_view text) {
    if (line->used + 1 >= line->size)
        return;
    const size_t length = std::min(text.size(), line->size - line->used - 1);
    memcpy(line->buffer + line->used, text.data(), length);
    line->used += length;
    line->buffer[line->used] = '\0';
}

// A text that stands in the code: its length is no work. N counts its NUL.
template <size_t N> void append_literal(text_line *line, const char (&text)[N]) {
    append_text(line, {text, N - 1});
}

void append_number(text_line *line, int number) {
    char text[12];
    const char *end = hbs_number_to_text(number, text);
    append_text(line, {text, static_cast<size_t>(end - text)});
}

__attribute__((format(printf, 2, 3))) void append(text_line *line, const char *format, ...) {
    if (line->used + 1 >= line->size)
        return;
    size_t room = line->size - line->used;
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(line->buffer + line->used, room, format, arguments);
    va_end(arguments);
    if (length > 0)
        line->used += std::min(static_cast<size_t>(length), room - 1);
}

struct label {
    uint32_t bit;
    std::string_view text;
};

constexpr label flag_labels[] = {
    {HBS_FLAG_ASSOC, "ASSOC|"}, {HBS_FLAG_REACH, "REACH|"},   {HBS_FLAG_DYNIP4, "DYNIP4|"},
    {HBS_FLAG_STIP4, "STIP4|"}, {HBS_FLAG_USRIP4, "USRIP4|"}, {HBS_FLAG_DYNIP6, "DYNIP6|"},
    {HBS_FLAG_STIP6, "STIP6|"}, {HBS_FLAG_USRIP6, "USRIP6|"}, {HBS_FLAG_ONLINE, "ONLINE|"},
};

constexpr label trust_labels[] = {
    {HBS_TRUST_SITE, "T-SITE|"},
    {HBS_TRUST_SERV, "T-SERV|"},
    {HBS_TRUST_WHITE, "WHITE|"},
    {HBS_TRUST_BLACK, "BLACK|"},
};

// By adapter code; codes without a text, and those past the table, are unknown.
constexpr std::string_view adapter_texts[] = {"", "on Ethernet: ", "on USB: ", "on Moca: ", "", "on WiFi: "};

std::string_view adapter_text(uint8_t code) {
    const std::string_view text = code < std::size(adapter_texts) ? adapter_texts[code] : "";
    return !text.empty() ? text : "on unknown if: ";
}

void append_addresses(text_line *line, const hbs_client *client) {
    append_text(line, hbs_ipv4_is_zero(client->ipv4) ? "no IPv4" : hbs_ipv4_to_text(client->ipv4).text);
    append_literal(line, " - ");
    append_text(line, hbs_ipv6_is_zero(client->ipv6) ? "no IPv6" : hbs_ipv6_to_text(client->ipv6).text);
    append_literal(line, " - (");
    if (hbs_ipv6_is_zero(client->ll)) {
        append_literal(line, "no LL");
    } else {
        append_literal(line, "LL ");
        append_text(line, hbs_ipv6_to_text(client->ll).text);
    }
    append_literal(line, ") - ");
}

void append_client(text_line *line, const hbs_client *client) {
    append_literal(line, "[");
    append_text(line, hbs_mac_to_text(client->mac).text);
    append_literal(line, "] ");
    append_text(line, adapter_text(client->adapter_type));
    append_literal(line, "index: ");
    append_number(line, client->nwidx);
    append_literal(line, " ");
    append_addresses(line, client);
    if (client->host[0] != '\0') {
        append_literal(line, "(");
        append_text(line, {client->host, strnlen(client->host, HBS_HOST_SIZE)});
        append_literal(line, ") ");
    }
    append_literal(line, "|");
    for (const label &flag : flag_labels)
        if ((client->flags & flag.bit) != 0)
            append_text(line, flag.text);
    for (const label &trust : trust_labels)
        if ((client->trust & trust.bit) != 0)
            append_text(line, trust.text);
}

} // namespace

char *hbs_client_to_str(const hbs_client *client, char *buffer, size_t size) {
    text_line line = start_line(buffer, size);
    if (client == nullptr)
        return buffer;
    append_client(&line, client);
    if (client->hotspot != 0)
        append_literal(&line, "HOTSPOT|");
    return buffer;
}

hbs_client_text hbs_client_log_text(const hbs_client *client) {
    hbs_client_text result{};
    text_line line = start_line(result.text, sizeof result.text);
    if (client != nullptr)
        append_client(&line, client);
    return result;
}

namespace {

// Words from number `hex_from` on in hexadecimal.
void append_words(text_line *line, const uint32_t *words, uint32_t count, uint32_t hex_from) {
    for (uint32_t i = 0; i < count; i++) {
        if (i >= hex_from)
            append(line, "%x", words[i]);
        else
            append_number(line, static_cast<int>(words[i]));
        append_literal(line, " ");
    }
}

uint32_t bounded_count(uint32_t count, size_t room) {
    return std::min(count, static_cast<uint32_t>(room));
}

} // namespace

char *hbs_ip_entry_to_str(const hbs_ip_entry *entry, char *buffer, size_t size) {
    text_line line = start_line(buffer, size);
    uint32_t count = bounded_count(entry->count, std::size(entry->key));
    bool ipv6 = entry->key[1] == HBS_KEY_IPV6 && entry->key[2] == sizeof(hbs_client::ipv6);
    append_words(&line, entry->key, count, ipv6 ? 3 : count);
    return buffer;
}

char *hbs_dhcp_entry_to_str(const hbs_ip_entry *entry, char *buffer, size_t size) {
    text_line line = start_line(buffer, size);
    uint32_t count = bounded_count(entry->count, std::size(entry->key));
    append_words(&line, entry->key, count, entry->key[1] == HBS_KEY_IPV6 ? 2 : count);
    append(&line, ": %p", hbs_dbpos_for_log(entry->dbpos));
    return buffer;
}

char *hbs_if_entry_to_str(const hbs_if_entry *entry, char *buffer, size_t size) {
    constexpr uint32_t largest = 255; // of a count and of a word that is printed
    text_line line = start_line(buffer, size);
    if (entry->count > largest)
        return buffer;
    uint32_t count = bounded_count(entry->count, std::size(entry->key));
    for (uint32_t i = 0; i < count; i++)
        if (entry->key[i] <= largest) {
            append_number(&line, static_cast<int>(entry->key[i]));
            append_literal(&line, " ");
        }
    return buffer;
}

char *hbs_pri_entry_to_str(const hbs_pri_entry *entry, char *buffer, size_t size) {
    text_line line = start_line(buffer, size);
    uint32_t count = bounded_count(entry->count, std::size(entry->key));
    append_words(&line, entry->key, count, count);
    return buffer;
}

char *hbs_rule_entry_to_str(const hbs_rule_entry *entry, char *buffer, size_t size) {
    text_line line = start_line(buffer, size);
    uint32_t count = bounded_count(entry->count, std::size(entry->key));
    append_words(&line, entry->key, count, count);
    return buffer;
}

hbs_entry_text hbs_ip_entry_text(const hbs_ip_entry *entry) {
    hbs_entry_text result{};
    (void)hbs_ip_entry_to_str(entry, result.text, sizeof result.text);
    return result;
}

hbs_entry_text hbs_dhcp_entry_text(const hbs_ip_entry *entry) {
    hbs_entry_text result{};
    (void)hbs_dhcp_entry_to_str(entry, result.text, sizeof result.text);
    return result;
}

hbs_entry_text hbs_if_entry_text(const hbs_if_entry *entry) {
    hbs_entry_text result{};
    (void)hbs_if_entry_to_str(entry, result.text, sizeof result.text);
    return result;
}

hbs_entry_text hbs_pri_entry_text(const hbs_pri_entry *entry) {
    hbs_entry_text result{};
    (void)hbs_pri_entry_to_str(entry, result.text, sizeof result.text);
    return result;
}

hbs_entry_text hbs_rule_entry_text(const hbs_rule_entry *entry) {
    hbs_entry_text result{};
    (void)hbs_rule_entry_to_str(entry, result.text, sizeof result.text);
    return result;
}
