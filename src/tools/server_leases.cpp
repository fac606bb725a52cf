#include "tools/server_leases.h"

#include <map>
#include <sstream>

#include "base/router_paths.h"
#include "tools/router_settings.h"
#include "tools/whole_file.h"
#include "tools/words.h"

namespace {

constexpr const char *of_dnsmasq[] = {HBS_ROUTER_DNSMASQ_LEASES, HBS_ROUTER_DNSMASQ_LEASES_TOO};
constexpr const char *of_kea[] = {HBS_ROUTER_KEA_LEASES4, HBS_ROUTER_KEA_LEASES6};
constexpr const char *kea_title = "address,";

std::vector<std::string> parts_of(const std::string &line) {
    std::vector<std::string> parts;
    std::istringstream rest(line);
    for (std::string part; std::getline(rest, part, ',');)
        parts.push_back(part);
    return parts;
}

std::vector<sighting> sightings_of(const std::string &mac_word, const std::string &address_word,
                                   const std::string &file) {
    const auto mac = parse_mac(mac_word);
    const auto address = parse_ip(address_word);
    if (!address || ip_text(*address).empty())
        return {};
    if (address->family == HBS_FAMILY_IPV6)
        return {{sighting::ipv6_lease, "", ip_text(*address), file}};
    if (!mac || mac_text(mac->data()).empty())
        return {};
    return {{sighting::dynamic_lease, mac_text(mac->data()), ip_text(*address), file}};
}

// "EXPIRY MAC ADDRESS NAME ID", of IPv6 "EXPIRY IAID ADDRESS NAME DUID". What ended is in the file no more.
std::vector<sighting> dnsmasq_leases(std::istream &lines, const std::string &file) {
    std::vector<sighting> found;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string expiry, owner, address;
        words >> expiry >> owner >> address;
        for (const sighting &one : sightings_of(owner, address, file))
            found.push_back(one);
    }
    return found;
}

using kea_row = std::map<std::string, std::string>; // by the titles of the columns

long number_in(const kea_row &lease, const char *title) {
    const auto found = lease.find(title);
    return found == lease.end() ? 0 : strtol(found->second.c_str(), nullptr, 10);
}

// One that was given back has no time left; other states are those of addresses that nobody holds; the other
// kinds are whole prefixes.
bool is_held(const kea_row &lease, time_t now) {
    return number_in(lease, "valid_lifetime") > 0 && number_in(lease, "expire") > now &&
           number_in(lease, "state") == 0 && number_in(lease, "lease_type") == 0;
}

std::vector<sighting> kea_leases(std::istream &lines, const std::string &titles, const std::string &file,
                                 time_t now) {
    const std::vector<std::string> columns = parts_of(titles);
    std::map<std::string, kea_row> last; // by address
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> parts = parts_of(line);
        kea_row lease;
        for (size_t i = 0; i < columns.size() && i < parts.size(); i++)
            lease[columns[i]] = parts[i];
        last[lease["address"]] = lease;
    }
    std::vector<sighting> found;
    for (auto &[address, lease] : last)
        if (is_held(lease, now))
            for (const sighting &one : sightings_of(lease["hwaddr"], address, file))
                found.push_back(one);
    return found;
}

// Returns whether the file could be read. text: what stands in it.
bool add_leases_of(const std::string &file, const std::optional<std::string> &text,
                   std::vector<sighting> &leases) {
    if (!text)
        return false;
    for (const sighting &one : parse_server_leases(*text, file, time(nullptr)))
        leases.push_back(one);
    return true;
}

// What is still to be tidied up stands in files of its own, oldest first, under the same titles.
bool add_kea_files(const std::string &file, std::vector<sighting> &leases) {
    std::string all;
    bool read = false;
    for (const char *ending : {".2", ".1", ""}) {
        const auto text = text_of_others(file + ending);
        const size_t titles = text && !all.empty() ? text->find('\n') : std::string::npos;
        read = read || text;
        all += !text ? "" : titles == std::string::npos ? *text : text->substr(titles + 1);
    }
    for (const sighting &one : parse_server_leases(all, file, time(nullptr)))
        leases.push_back(one);
    return read;
}

} // namespace

std::vector<sighting> parse_server_leases(const std::string &text, const std::string &file, time_t now) {
    std::istringstream lines(text);
    if (!text.starts_with(kea_title))
        return dnsmasq_leases(lines, file);
    std::string titles;
    std::getline(lines, titles);
    return kea_leases(lines, titles, file, now);
}

lease_knowledge server_leases() {
    lease_knowledge known;
    const std::string named = settings_of_router().leases;
    known.ipv4 = known.ipv6 = !named.empty() && add_leases_of(named, text_of_named(named), known.leases);
    for (const char *file : of_dnsmasq)
        if (named.empty() && add_leases_of(file, text_of_others(file), known.leases))
            known.ipv4 = known.ipv6 = true;
    for (const char *file : of_kea) {
        if (!named.empty() || !add_kea_files(file, known.leases))
            continue;
        known.ipv4 = known.ipv4 || file == of_kea[0];
        known.ipv6 = known.ipv6 || file == of_kea[1];
    }
    return known;
}
