#include "tools/settings_files.h"

#include <algorithm>
#include <sstream>
#include <unistd.h>

#include "base/paths.h"
#include "tools/audit_sources.h"
#include "tools/whole_file.h"

namespace {

constexpr size_t record_size = 37; // of a trusted device, as the daemon writes it

std::string content(const char *path) {
    return access(path, F_OK) == 0 ? read_whole_file(path) : "";
}

bool parse_filed(const std::string &field, rule_values *rule) {
    int number[5] = {};
    const int count = sscanf(field.c_str(), "%x %d %d %d %d %d", &rule->value1, &number[0], &number[1],
                             &number[2], &number[3], &number[4]);
    rule->value2 = static_cast<uint16_t>(number[0]);
    rule->value3 = static_cast<uint16_t>(number[1]);
    rule->value4 = static_cast<uint32_t>(number[2]);
    rule->value5 = static_cast<uint32_t>(number[3]);
    rule->value6 = static_cast<uint32_t>(number[4]);
    return count == 3 || count == 6;
}

// Every line after the first, which holds the file's version, is one client.
size_t clients_in(const std::string &text) {
    const auto lines = std::count(text.begin(), text.end(), '\n');
    return lines > 0 ? static_cast<size_t>(lines - 1) : 0;
}

} // namespace

std::vector<filed_rule> parse_rule_file(const std::string &text, uint8_t list) {
    std::vector<filed_rule> rules;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string mac_field;
        std::getline(fields, mac_field, ';');
        const auto mac = parse_mac(mac_field);
        filed_rule one = {list, mac ? mac_text(mac->data()) : "", {}};
        for (std::string field; !one.mac.empty() && std::getline(fields, field, ';');)
            if (parse_filed(field, &one.rule))
                rules.push_back(one);
    }
    return rules;
}

settings_files read_settings_files() {
    settings_files files;
    files.leases = static_leases();
    files.rules = parse_rule_file(content(HBS_WHITE_RULES), HBS_LIST_WHITE);
    const std::vector<filed_rule> black = parse_rule_file(content(HBS_BLACK_RULES), HBS_LIST_BLACK);
    files.rules.insert(files.rules.end(), black.begin(), black.end());
    files.remembered = clients_in(content(HBS_CLIENT_FILE));
    files.trusted = (content(HBS_TRUSTED_INSTANCES).size() + record_size - 1) / record_size;
    return files;
}
