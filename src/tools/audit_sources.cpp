#include "tools/audit_sources.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <glob.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/words.h"

extern char **environ;

namespace {

// The gateway's own outward interfaces: their neighbours are never clients.
constexpr const char *outward[] = {"wan0", "mta0", "erouter0", "lo"};
constexpr const char *passing_states[] = {"FAILED", "INCOMPLETE", "NOARP", "NONE"};

constexpr const char *dynamic_leases = "/var/lib/misc/landhcps00.*.leases";
constexpr const char *static_leases = "/nvram/8/dhcpd/udhcpd.*.static_leases";
constexpr const char *ipv6_leases = "/var/lib/dibbler/server-AddrMgr.xml";

template <size_t Count> bool is_one_of(const char *const (&words)[Count], const std::string &word) {
    return std::any_of(
        words, words + Count, [&](const char *one) { return word == one; });
}

std::string read_all(int fd) {
    std::string text;
    char block[4096];
    ssize_t count = 0;
    while ((count = read(fd, block, sizeof block)) > 0)
        text.append(block, static_cast<size_t>(count));
    return text;
}

std::runtime_error cannot_ask(int error) {
    return std::runtime_error(std::string("cannot ask the kernel for its neighbours: ip: ") +
                              strerror(error));
}

// The standard output of a program that is found on the PATH. Throws when it cannot be run or fails.
std::string output_of(std::vector<std::string> words) {
    int ends[2];
    if (pipe(ends) != 0)
        throw cannot_ask(errno);
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string text = error == 0 ? read_all(ends[0]) : "";
    close(ends[0]);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) != child || status != 0)
        throw cannot_ask(error != 0 ? error : EIO);
    return text;
}

std::string text_at(const nlohmann::json &object, const char *name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

bool is_gone(const nlohmann::json &entry) {
    const auto states = entry.find("state");
    if (states == entry.end() || !states->is_array())
        return true;
    return std::any_of(states->begin(), states->end(), [](const nlohmann::json &state) {
        return state.is_string() && is_one_of(passing_states, state.get<std::string>());
    });
}

bool is_multicast(const ip_address &address) {
    return address.family == HBS_FAMILY_IPV4 ? address.ipv4[0] >= 224 && address.ipv4[0] <= 239
                                             : address.ipv6[0] == 0xFF;
}

std::string file_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> files_like(const char *pattern) {
    glob_t found = {};
    std::vector<std::string> paths;
    if (glob(pattern, 0, nullptr, &found) == 0)
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return paths;
}

void append(std::vector<sighting> &all, const std::vector<sighting> &more) {
    all.insert(all.end(), more.begin(), more.end());
}

} // namespace

std::vector<sighting> parse_neighbours(const std::string &text) {
    const nlohmann::json entries = nlohmann::json::parse(text, nullptr, false);
    std::vector<sighting> found;
    if (!entries.is_array())
        return found;
    for (const nlohmann::json &entry : entries) {
        if (!entry.is_object() || is_gone(entry) || is_one_of(outward, text_at(entry, "dev")))
            continue;
        const auto mac = parse_mac(text_at(entry, "lladdr"));
        const auto address = parse_ip(text_at(entry, "dst"));
        if (mac && address && !is_multicast(*address)) {
            found.push_back(
                {sighting::neighbour, mac_text(mac->data()), ip_text(*address), text_at(entry, "dev")});
        }
    }
    return found;
}

std::vector<sighting> parse_leases(const std::string &text, sighting::kind what, const std::string &file) {
    std::vector<sighting> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string mac_word, address_word;
        words >> mac_word >> address_word;
        const auto mac = parse_mac(mac_word);
        const auto address = parse_ip(address_word);
        if (mac && address && !mac_text(mac->data()).empty() && !ip_text(*address).empty())
            found.push_back({what, mac_text(mac->data()), ip_text(*address), file});
    }
    return found;
}

std::vector<sighting> parse_ipv6_leases(const std::string &text, const std::string &file) {
    constexpr std::string_view element = "<AddrAddr";
    std::vector<sighting> found;
    size_t at = 0;
    while ((at = text.find(element, at)) != std::string::npos) {
        at += element.size();
        const size_t begin = text.find('>', at);
        const size_t end = text.find('<', at);
        if (begin == std::string::npos || end == std::string::npos || end < begin)
            continue;
        const auto address = parse_ip(text.substr(begin + 1, end - begin - 1));
        if (address && address->family == HBS_FAMILY_IPV6)
            found.push_back({sighting::ipv6_lease, "", ip_text(*address), file});
    }
    return found;
}

std::vector<sighting> kernel_neighbours() {
    return parse_neighbours(output_of({"ip", "-j", "neigh"}));
}

std::vector<sighting> dhcp_leases() {
    std::vector<sighting> all;
    for (const std::string &file : files_like(dynamic_leases))
        append(all, parse_leases(file_text(file), sighting::dynamic_lease, file));
    for (const std::string &file : files_like(static_leases))
        append(all, parse_leases(file_text(file), sighting::static_lease, file));
    append(all, parse_ipv6_leases(file_text(ipv6_leases), ipv6_leases));
    return all;
}
