#include "tools/maker.h"

#include <cstdio>
#include <fstream>
#include <map>

namespace {

constexpr uint8_t locally_administered = 0x02;

using makers = std::map<std::string, std::string>; // by "00-22-72"

makers read_list(const char *list) {
    makers known;
    std::ifstream file(list);
    for (std::string line; std::getline(file, line);) {
        const size_t mark = line.find("(hex)");
        const size_t name = mark == std::string::npos ? mark : line.find_first_not_of(" \t", mark + 5);
        if (mark < 8 || name == std::string::npos)
            continue;
        known[line.substr(0, 8)] = line.substr(name, line.find_last_not_of(" \t\r") - name + 1);
    }
    return known;
}

// Each list is read once.
const makers &makers_in(const char *list) {
    static std::map<std::string, makers> lists;
    const auto found = lists.find(list);
    return found != lists.end() ? found->second : lists.emplace(list, read_list(list)).first->second;
}

} // namespace

bool is_random_mac(const uint8_t mac[6]) {
    return (mac[0] & locally_administered) != 0;
}

std::string maker_of(const uint8_t mac[6], const char *list) {
    if (is_random_mac(mac))
        return "";
    char key[9] = "";
    (void)snprintf(key, sizeof key, "%02X-%02X-%02X", mac[0], mac[1], mac[2]);
    const makers &known = makers_in(list);
    const auto found = known.find(key);
    return found == known.end() ? "" : found->second;
}
