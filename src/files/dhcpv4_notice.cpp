#include "files/dhcpv4_notice.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "base/event.h"
#include "base/log.h"
#include "base/text.h"
#include "files/notice_file.h"

namespace {

// A name is cut to this, its NUL included; a datagram's may be longer.
constexpr size_t LEASE_FILE_MAX = 256;

bool read_action(const char *token, hbs_notice_action *action) {
    if (strcasecmp(token, "ADD") == 0) {
        *action = hbs_notice_action::add;
        return true;
    }
    *action = hbs_notice_action::del;
    return strcasecmp(token, "DEL") == 0;
}

bool read_mac(const char *token, uint8_t mac[6]) {
    return hbs_text_to_mac(token, mac) == 6 && !hbs_mac_is_zero(mac);
}

// Decimal, 0x-hex or 0-octal, by strtoul as it is on a 32-bit system whatever the width of long is here: more
// than 32 bits is an overflow, and a number with a minus sign is its two's complement.
bool read_seconds(const char *token, uint32_t *seconds) {
    char *end = nullptr;
    errno = 0;
    const unsigned long value = strtoul(token, &end, 0);
    const unsigned long amount =
        token[0] == '-' ? 0UL - value : value; // no white space: it would end the token
    *seconds = static_cast<uint32_t>(value);
    return end != token && errno != ERANGE && amount <= UINT32_MAX;
}

int digit_or_zero(char c) {
    return std::max(0, hbs_hex_digit(c));
}

// Not hbs_hex_to_str: here a character that is no hex digit counts as 0, and no text is special.
void read_hex_text(const char *token, char *text, size_t size) {
    const size_t count = std::min(strlen(token) / 2, size - 1);
    memset(text, 0, size);
    for (size_t i = 0; i < count; i++)
        text[i] = static_cast<char>(digit_or_zero(token[2 * i]) << 4 | digit_or_zero(token[2 * i + 1]));
}

// A token that may be missing; "null" (any case) means none.
void read_text(const char *token, char *text, size_t size) {
    const bool none = token == nullptr || strcasecmp(token, "null") == 0;
    hbs_copy_text(text, size, none ? "" : token);
}

const char *next_token(char **rest) {
    return strtok_r(nullptr, " \t", rest);
}

// Tokens 9 to 12, of a granted lease only. The optional ones end at the first missing one.
bool read_lease_tokens(char **rest, hbs_dhcpv4_notice *notice) {
    const char *file = next_token(rest);
    if (file == nullptr)
        return false;
    read_text(strcasecmp(file, "null") == 0 ? "unknown file" : file, notice->lease_file, LEASE_FILE_MAX);
    read_text(next_token(rest), notice->oui, sizeof(notice->oui));
    read_text(next_token(rest), notice->serial_number, sizeof(notice->serial_number));
    read_text(next_token(rest), notice->product_class, sizeof(notice->product_class));
    return true;
}

} // namespace

bool hbs_dhcpv4_notice_parse(char *line, hbs_dhcpv4_notice *notice) {
    constexpr int required = 8;
    const char *token[required];
    char *rest = nullptr;
    token[0] = strtok_r(line, " \t", &rest);
    for (int i = 1; i < required; i++)
        token[i] = token[i - 1] != nullptr ? next_token(&rest) : nullptr;
    if (token[required - 1] == nullptr)
        return false;
    *notice = {};
    if (!read_action(token[0], &notice->action) || !read_mac(token[1], notice->mac) ||
        inet_pton(AF_INET, token[2], notice->ipv4) != 1 || !read_seconds(token[3], &notice->seconds))
        return false;
    read_hex_text(token[4], notice->host, sizeof(notice->host));
    read_hex_text(token[5], notice->ifname, sizeof(notice->ifname));
    notice->dynamic = token[6][0] == '1';
    return notice->action == hbs_notice_action::del || read_lease_tokens(&rest, notice);
}

namespace {

struct line_reading {
    hbs_dhcpv4_notice_handler handler;
    bool had_lines;
};

void read_line(char *line, void *context) {
    const hbs_event event;
    auto *reading = static_cast<line_reading *>(context);
    reading->had_lines = true;
    HBS_LOG(HBS_INFO, "HOSTBASE: Watched DHCP lease changes: %s", line);
    hbs_dhcpv4_notice notice;
    if (hbs_dhcpv4_notice_parse(line, &notice))
        reading->handler(&notice);
    else
        HBS_LOG(HBS_ERROR, "HOSTBASE: Ignore invalid DHCPv4 lease notification!");
}

} // namespace

bool hbs_dhcpv4_notices_read(const char *path, hbs_dhcpv4_notice_handler handler) {
    line_reading reading = {handler, false};
    const hbs_notice_taken taken = hbs_notice_take(path, &hbs_dhcpv4_notice_source, read_line, &reading);
    if (taken.lines && !reading.had_lines)
        hbs_notice_log_no_data();
    return !taken.again;
}
