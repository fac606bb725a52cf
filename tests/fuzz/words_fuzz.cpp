// What a person types to hbsctl: a MAC, an address, a time, a rule, where to listen. What was understood is
// understood again as it is written; and any text is shown without what would steer a terminal.
#include <nlohmann/json.hpp>

#include "fuzz_text.h"
#include "tools/listen_address.h"
#include "tools/printable.h"
#include "tools/requests.h"
#include "tools/words.h"

namespace {

void read_bytes(const std::string &text) {
    if (const auto mac = parse_mac(text))
        fuzz_expect(*mac == mac_bytes{} || parse_mac(mac_text(mac->data())) == mac);
    if (const auto address = parse_ip(text)) {
        const std::string again = ip_text(*address);
        fuzz_expect(again.empty() || parse_ip(again) == address);
    }
    if (const auto address = parse_listen_address(text))
        fuzz_expect(parse_ip(address->host) && address->port >= 0 && address->port <= UINT16_MAX);
    (void)is_trusted_host(text);
}

void read_numbers(const std::string &text) {
    if (const auto seconds = parse_duration(text))
        fuzz_expect(*seconds >= 0 && *seconds < 1e9 * 86400);
    (void)parse_adapter(text);
    try {
        const std::string rule = whole_rule_text(parse_rule(text));
        fuzz_expect(whole_rule_text(parse_rule(rule)) == rule);
    } catch (const request_error &) {
        return; // it was none
    }
}

bool is_shown_as_text(const std::string &text) {
    for (const char letter : text)
        if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7f')
            return false;
    return true;
}

void show(const std::string &text) {
    const std::string shown = printable(text);
    fuzz_expect(is_shown_as_text(shown) && is_shown_as_text(csv_cell(text)));
    const int width = display_width(shown);
    for (const int most : {0, 1, 7, width - 1, width})
        if (most >= 0)
            fuzz_expect(display_width(cut_to_width(shown, most)) <= most);
    std::string rest = text.substr(0, 64);
    while (!rest.empty()) {
        const size_t before = rest.size();
        rest = without_last_character(rest);
        fuzz_expect(rest.size() < before);
    }
    const nlohmann::json document = text;
    const std::string written = document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    const std::string safe = json_printable(written);
    fuzz_expect(is_shown_as_text(safe) && nlohmann::json::parse(safe) == nlohmann::json::parse(written));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = fuzz_text(data, size);
    read_bytes(text);
    read_numbers(text);
    show(text);
    return 0;
}
