#include "files/dhcpv6_notice.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/event.h"
#include "base/text.h"
#include "files/notice_file.h"

namespace {

// Longer than any value that is kept; what is longer still is cut.
using value_text = char[512];

constexpr const char *WHITE_SPACE = " \t\v\f\r\n";

// Takes the first word off the text; empty when there is none.
std::string_view take_word(const char **text) {
    const char *start = *text + strspn(*text, WHITE_SPACE);
    const size_t length = strcspn(start, WHITE_SPACE);
    *text = start + length;
    return {start, length};
}

void read_event(const char *value, hbs_dhcpv6_notice *notice) {
    if (strcmp(value, "LEASE") == 0)
        notice->type = HBS_NOTICE_LEASE;
    else if (strcmp(value, "RELEASE") == 0)
        notice->type = HBS_NOTICE_RELEASE;
}

void read_address(const char *value, uint8_t address[16]) {
    uint8_t bytes[16];
    if (inet_pton(AF_INET6, value, bytes) == 1)
        memcpy(address, bytes, sizeof(bytes));
}

// atoi, with its overflow as it is on a 32-bit system: the nearest number that fits.
int32_t read_seconds(const char *value) {
    const long seconds = strtol(value, nullptr, 10);
    return static_cast<int32_t>(std::clamp<long>(seconds, INT32_MIN, INT32_MAX));
}

using value_reader = void (*)(const char *value, hbs_dhcpv6_notice *notice);

struct notice_key {
    std::string_view name;
    value_reader read;
};

} // namespace

#define TEXT_READER(field)                                                                                   \
    [](const char *value, hbs_dhcpv6_notice *notice) {                                                       \
        hbs_copy_text(notice->field, sizeof(notice->field), value);                                          \
    }

namespace {

constexpr notice_key keys[] = {
    {"event", read_event},
    {"globAddr", [](const char *value, hbs_dhcpv6_notice *notice) { read_address(value, notice->ipv6); }},
    {"linkAddr", [](const char *value, hbs_dhcpv6_notice *notice) { read_address(value, notice->ll); }},
    {"opt_var_file", TEXT_READER(lease_file)},
    {"fqdn", TEXT_READER(host)},
    {"oui", TEXT_READER(oui)},
    {"serial_number", TEXT_READER(serial_number)},
    {"product_class", TEXT_READER(product_class)},
    {"lease_time",
     [](const char *value, hbs_dhcpv6_notice *notice) { notice->lease_end = read_seconds(value); }},
};

} // namespace

#undef TEXT_READER

void hbs_dhcpv6_notice_read(const char *line, hbs_dhcpv6_notice *notice) {
    const char *rest = line;
    const std::string_view name = take_word(&rest);
    const std::string_view word = take_word(&rest);
    const auto *key = std::find_if(std::begin(keys), std::end(keys),
                                   [name](const notice_key &k) { return k.name == name; });
    if (word.empty() || key == std::end(keys))
        return;
    value_text value{};
    memcpy(value, word.data(), std::min(word.size(), sizeof(value) - 1));
    key->read(value, notice);
}

bool hbs_dhcpv6_notices_read(const char *path, hbs_dhcpv6_notice_handler handler) {
    hbs_dhcpv6_notice notice{};
    const auto reader = [](char *line, void *context) {
        hbs_dhcpv6_notice_read(line, static_cast<hbs_dhcpv6_notice *>(context));
    };
    const hbs_notice_taken taken = hbs_notice_take(path, &hbs_dhcpv6_notice_source, reader, &notice);
    const hbs_event event;
    if (taken.lines && !handler(&notice))
        hbs_notice_log_no_data();
    return !taken.again;
}
