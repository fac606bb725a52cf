#include "tools/router_settings.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "base/router_paths.h"
#include "base/settings_line.h"
#include "tools/lan_networks.h"
#include "tools/whole_file.h"
#include "tools/words.h"

namespace {

constexpr size_t longest_line = HBS_SETTINGS_LINE_SIZE - sizeof "\n"; // with its zero

std::string without_blanks(const std::string &text) {
    const size_t begin = text.find_first_not_of(" \t");
    const size_t end = text.find_last_not_of(" \t\r\n") + 1; // 0 without any
    return begin == std::string::npos || begin >= end ? "" : text.substr(begin, end - begin);
}

// A "#" at the start or behind a blank begins a comment.
std::string without_comment(const std::string &line) {
    for (size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1))
        if (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t')
            return line.substr(0, at);
    return line;
}

bool is_in_other_case(const std::string &text, const std::string &word) {
    std::string lower;
    for (const char letter : text)
        lower += static_cast<char>(tolower(static_cast<unsigned char>(letter)));
    return lower == word;
}

void take_path(const std::string &value, std::string &path) {
    if (value == "none" || value.empty())
        path = "";
    else if (value.starts_with('/') && value.size() < HBS_ROUTER_PATH_SIZE)
        path = value;
}

// Decimal, or hexadecimal with "0x".
void take_number(const std::string &value, unsigned &number) {
    const int base = value.starts_with("0x") || value.starts_with("0X") ? 16 : 10;
    char *end = nullptr;
    errno = 0;
    const long long read = strtoll(value.c_str(), &end, base);
    if (!value.empty() && errno == 0 && end == value.c_str() + value.size() && read >= 0 &&
        read <= UINT32_MAX)
        number = static_cast<unsigned>(read);
}

void take_setting(const std::string &key, const std::string &value, router_settings &settings) {
    const bool yes = is_in_other_case(value, "yes");
    if (key == "presence" && (yes || is_in_other_case(value, "no")))
        settings.by_traffic = yes;
    if (key == "wifi.settle")
        take_number(value, settings.settle);
    if (key == "hostapd")
        take_path(value, settings.access_points);
    if (key == "dhcp.leases")
        take_path(value, settings.leases);
}

} // namespace

router_settings parse_router_settings(const std::string &text) {
    router_settings settings;
    settings.is_router = true;
    settings.by_traffic = true;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string said = without_comment(line);
        const size_t equals = said.find('=');
        if (equals != std::string::npos && line.size() <= longest_line)
            take_setting(without_blanks(said.substr(0, equals)), without_blanks(said.substr(equals + 1)),
                         settings);
    }
    return settings;
}

router_settings settings_of_router() {
    return is_router() ? parse_router_settings(file_text(HBS_ROUTER_SETTINGS).value_or(""))
                       : router_settings();
}
