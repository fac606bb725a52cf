#include "tools/maker.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>

namespace {

constexpr uint8_t locally_administered = 0x02;

// By the first digits of their MACs, which are six, seven or nine: "002272".
using makers = std::map<std::string, std::string>;

// Of whole blocks of 24 bits, and of parts of them.
constexpr const char *lists_of_blocks[] = {"oui.txt"};
constexpr const char *lists_of_parts[] = {"mam.txt", "oui36.txt", "iab.txt"};

struct block {
    std::string prefix, name; // "002272"
};

// A line with `mark`, "00-22-72   (hex)\t\tNAME", as what is before and what is behind it.
std::optional<block> split_at(const std::string &line, const std::string &mark) {
    const size_t at = line.find(mark);
    const size_t name = at == std::string::npos ? at : line.find_first_not_of(" \t", at + mark.size());
    if (at < 8 || name == std::string::npos)
        return std::nullopt;
    const std::string words = line.substr(0, line.find_last_not_of(" \t", at - 1) + 1);
    return block{words, line.substr(name, line.find_last_not_of(" \t\r") - name + 1)};
}

std::string digits_of(const std::string &dashed) {
    std::string digits = dashed;
    std::erase(digits, '-');
    return digits;
}

// "F2F000-F2FFFF": the digits that all numbers of the range begin with.
std::string common_digits(const std::string &range) {
    const size_t dash = range.find('-');
    if (dash == std::string::npos || range.size() != 2 * dash + 1)
        return "";
    const auto [first, last] = std::mismatch(range.begin(), range.begin() + static_cast<long>(dash),
                                             range.begin() + static_cast<long>(dash) + 1);
    return std::string(range.begin(), first);
}

// Parts have their range on a line of its own: "F2F000-F2FFFF     (base 16)\t\tNAME".
void read_list(const std::string &path, bool has_parts, makers &known) {
    std::ifstream file(path);
    std::string prefix;
    for (std::string line; std::getline(file, line);) {
        if (const auto whole = split_at(line, "(hex)")) {
            prefix = digits_of(whole->prefix);
            if (!has_parts)
                known[prefix] = whole->name;
        }
        const auto part = has_parts ? split_at(line, "(base 16)") : std::nullopt;
        if (part)
            known[prefix + common_digits(part->prefix)] = part->name;
    }
}

makers read_lists(const std::string &directory) {
    makers known;
    for (const char *name : lists_of_parts)
        read_list(directory + "/" + name, true, known);
    for (const char *name : lists_of_blocks)
        read_list(directory + "/" + name, false, known);
    return known;
}

// Each directory is read once.
const makers &makers_in(const char *directory) {
    static std::map<std::string, makers> all;
    const auto found = all.find(directory);
    return found != all.end() ? found->second : all.emplace(directory, read_lists(directory)).first->second;
}

} // namespace

bool is_random_mac(const uint8_t mac[6]) {
    return (mac[0] & locally_administered) != 0;
}

// The registry gives a block in parts to makers that need few addresses: who has the part made the device.
std::string maker_of(const uint8_t mac[6], const char *directory) {
    if (is_random_mac(mac))
        return "";
    char key[11] = "";
    (void)snprintf(key, sizeof key, "%02X%02X%02X%02X%02X", mac[0], mac[1], mac[2], mac[3], mac[4]);
    const makers &known = makers_in(directory);
    for (const size_t digits : {9, 7, 6})
        if (const auto found = known.find(std::string(key, digits)); found != known.end())
            return found->second;
    return "";
}
