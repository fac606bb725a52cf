#include "tools/objections.h"

#include <algorithm>
#include <cstring>

#include "tools/client_key.h"
#include "tools/index_table.h"

namespace {

// Networks 8 to 15 fold onto 0 to 7; static leases are for 0 and 8 only.
constexpr unsigned folded = 8;

std::string text_of(const mac_bytes &mac) {
    return mac_text(mac.data());
}

} // namespace

bool has_fixed_addresses(unsigned network) {
    return network % folded == 0 && network <= folded;
}

namespace {

const hbs_client *client_of(const look &now, const std::string &mac) {
    const auto found = std::find_if(now.db.clients.begin(), now.db.clients.end(),
                                    [&](const hbs_client &client) { return mac_text(client.mac) == mac; });
    return found == now.db.clients.end() ? nullptr : &*found;
}

objection to_network_of(const look &now, const mac_bytes &mac) {
    const hbs_client *client = client_of(now, text_of(mac));
    if (client == nullptr || has_fixed_addresses(client->nwidx))
        return std::nullopt;
    return text_of(mac) + " is in network " + std::to_string(client->nwidx) +
           ", and fixed addresses are for the networks 0 and 8 only";
}

objection to_own_address(const lan_network &network, const ipv4_bytes &address) {
    return address == network.address ? objection(ipv4_text(address.data()) + " is the gateway's own address")
                                      : std::nullopt;
}

objection to_edge(const lan_network &network, const ipv4_bytes &address) {
    const std::string text = ipv4_text(address.data());
    if (address == first_address(network))
        return text + " is the network's own address";
    if (address == last_address(network))
        return text + " is the network's broadcast address";
    return std::nullopt;
}

// Why an address outside all networks that have fixed addresses cannot be one.
objection to_outside(const std::vector<lan_network> &networks, const ipv4_bytes &address) {
    std::vector<std::string> meant;
    for (const lan_network &network : networks)
        if (has_fixed_addresses(network.number))
            meant.push_back(network_text(network));
        else if (is_in(network, address))
            return ipv4_text(address.data()) + " belongs to network " + std::to_string(network.number);
    if (meant.empty())
        return std::nullopt;
    return ipv4_text(address.data()) + " is not in " + joined(meant, " or ") +
           (meant.size() == 1 ? ", the network that has fixed addresses"
                              : ", the networks that have fixed addresses");
}

// A network may have several subnets: an address has to be in one of them.
objection to_place(const std::vector<lan_network> &networks, const ipv4_bytes &address) {
    std::vector<objection> own;
    std::vector<objection> edges;
    for (const lan_network &network : networks) {
        own.push_back(to_own_address(network, address));
        if (has_fixed_addresses(network.number) && is_in(network, address))
            edges.push_back(to_edge(network, address));
    }
    if (objection mine = first_of(own))
        return mine;
    return edges.empty() ? to_outside(networks, address) : first_of(edges);
}

objection to_holder(const look &now, const std::string &mac, const std::string &address) {
    for (const hbs_client &client : matching_clients(now.db, address))
        if (mac_text(client.mac) != mac)
            return address + " is held by " + key_of(client);
    for (const sighting &lease : now.files.leases)
        if (lease.address == address && lease.mac != mac)
            return address + " is the fixed address of " + lease.mac;
    return std::nullopt;
}

std::vector<std::string> rules_of(const look &now, uint8_t list, const std::string &mac) {
    std::vector<std::string> rules;
    for (const filed_rule &one : now.files.rules)
        if (one.list == list && one.mac == mac)
            rules.push_back(rule_text(one.rule));
    return rules;
}

bool has_entry(const hbs_rule_entry &entry, const filter_request &request) {
    return entry.type == request.list && memcmp(entry.mac, request.mac.data(), request.mac.size()) == 0;
}

bool is_entry_of(const hbs_rule_entry &entry, const filter_request &request) {
    const rule_values &rule = request.rule;
    return has_entry(entry, request) && entry.p[0] == rule.value1 && entry.p[1] == rule.value2 &&
           entry.p[2] == rule.value3;
}

// Such a device is taken off the list by any rule.
bool is_on_list_without_rules(const look &now, const filter_request &request) {
    const uint32_t bit = request.list == HBS_LIST_WHITE ? HBS_TRUST_WHITE : HBS_TRUST_BLACK;
    const hbs_client *client = client_of(now, text_of(request.mac));
    return client != nullptr && (client->trust & bit) != 0 &&
           rules_of(now, request.list, text_of(request.mac)).empty();
}

bool has_rule(const look &now, const filter_request &request) {
    const auto filed = [&](const filed_rule &one) {
        return one.list == request.list && one.mac == text_of(request.mac) &&
               is_same_rule(one.rule, request.rule);
    };
    const auto indexed = [&](const hbs_rule_entry &one) { return is_entry_of(one, request); };
    return std::any_of(now.files.rules.begin(), now.files.rules.end(), filed) ||
           std::any_of(now.db.rules.begin(), now.db.rules.end(), indexed);
}

std::string rules_sentence(const look &now, const filter_request &request) {
    const std::vector<std::string> rules = rules_of(now, request.list, text_of(request.mac));
    return rules.empty() ? "it has none there" : "it has " + joined(rules, " and ");
}

const hbs_rule_entry *entry_with(const look &now, uint32_t instance) {
    const auto found =
        std::find_if(now.db.rules.begin(), now.db.rules.end(),
                     [&](const hbs_rule_entry &entry) { return rule_instance(entry) == instance; });
    return found == now.db.rules.end() ? nullptr : &*found;
}

// All zero, the host's own, or an IPv4 address in IPv6's clothes.
bool has_no_prefix(const ipv6_bytes &address) {
    constexpr size_t prefix = 8;
    return std::all_of(address.begin(), address.begin() + prefix, [](uint8_t byte) { return byte == 0; });
}

bool is_link_local(const ipv6_bytes &address) {
    return address[0] == 0xFE && (address[1] & 0xC0) == 0x80;
}

std::string typed_text(const ipv6_bytes &address) {
    const std::string text = ipv6_text(address.data());
    return text.empty() ? "::" : text;
}

bool is_multicast_or_worse(const ipv4_bytes &address) {
    return address[0] >= 224;
}

} // namespace

objection first_of(const std::vector<objection> &all) {
    const auto found =
        std::find_if(all.begin(), all.end(), [](const objection &one) { return one.has_value(); });
    return found == all.end() ? std::nullopt : *found;
}

objection to_device(const mac_bytes &mac) {
    constexpr uint8_t group_bit = 1;
    return (mac[0] & group_bit) != 0 ? objection(text_of(mac) + " is the address of a group, not of a device")
                                     : std::nullopt;
}

objection to_host_address(const ipv4_bytes &address) {
    constexpr uint8_t loopback = 127;
    const bool none = address[0] == 0 || address[0] == loopback || is_multicast_or_worse(address);
    char text[16];
    snprintf(text, sizeof text, "%u.%u.%u.%u", address[0], address[1], address[2], address[3]);
    return none ? objection(std::string(text) + " is no address that a host can have") : std::nullopt;
}

objection to_link_local(const ipv6_bytes &address) {
    return is_link_local(address) ? std::nullopt
                                  : objection(typed_text(address) + " is no link-local address (fe80::/10)");
}

objection to_leased_address(const ipv6_bytes &address) {
    constexpr uint8_t multicast = 0xFF;
    const bool none = address[0] == multicast || is_link_local(address) || has_no_prefix(address);
    return none ? objection(typed_text(address) + " is no address that a server gives") : std::nullopt;
}

objection to_number(const char *what, uint32_t number, uint32_t least, uint32_t most) {
    if (number >= least && number <= most)
        return std::nullopt;
    return std::string("there is no ") + what + " " + std::to_string(number) + ": they go from " +
           std::to_string(least) + " to " + std::to_string(most);
}

objection to_fixed_address(const look &now, const mac_bytes &mac, const ip_address &address) {
    if (address.family != HBS_FAMILY_IPV4)
        return "the daemon keeps fixed addresses for IPv4 only";
    return first_of({to_device(mac), to_host_address(address.ipv4), to_place(now.networks, address.ipv4),
                     to_holder(now, text_of(mac), ip_text(address))});
}

objection to_static_lease(const look &now, const static_lease &lease) {
    const objection network =
        has_fixed_addresses(lease.network)
            ? std::nullopt
            : objection("fixed addresses are for the networks 0 and 8 only, not for network " +
                        std::to_string(lease.network));
    return first_of(
        {network, to_network_of(now, lease.mac), to_fixed_address(now, lease.mac, lease.address)});
}

namespace {

// Of a device that has not taken its fixed address yet.
std::string way_to_clear(const look &now, const std::string &fixed) {
    for (const sighting &lease : now.files.leases) {
        if (lease.address != fixed)
            continue;
        const std::vector<hbs_client> found = matching_clients(now.db, lease.mac);
        const std::string held = found.empty() ? "" : ipv4_text(found.front().ipv4);
        if (!held.empty())
            return ": " + lease.mac + " holds " + held +
                   "; set that as its fixed address, in place of this one, and clear it then";
    }
    return "";
}

} // namespace

objection to_clearing_lease(const look &now, const ip_address &address) {
    const std::string text = ip_text(address);
    const bool filed = std::any_of(now.files.leases.begin(), now.files.leases.end(),
                                   [&](const sighting &lease) { return lease.address == text; });
    const std::vector<hbs_client> holders = matching_clients(now.db, text);
    const bool flagged = std::any_of(holders.begin(), holders.end(), [](const hbs_client &client) {
        return (client.flags & HBS_FLAG_STIP4) != 0;
    });
    if (!filed && !flagged)
        return text + " is nobody's fixed address";
    if (holders.empty())
        return "no client has the address " + text + ", and the daemon clears the leases of clients only" +
               way_to_clear(now, text);
    return to_shared(now.db, address);
}

objection to_clearing_trust(const hbs_client &client, uint32_t action) {
    const bool site = action == 1;
    if ((client.trust & (site ? HBS_TRUST_SITE : HBS_TRUST_SERV)) != 0)
        return std::nullopt;
    return key_of(client) + " is not trusted for " + (site ? "sites" : "services");
}

objection to_rule(const rule_values &rule) {
    return is_same_rule(rule, {}) ? objection("0,0,0 is no rule") : std::nullopt;
}

objection to_instance(const look &now, const filter_request &request) {
    if (request.rule_word == 0)
        return std::nullopt;
    const hbs_rule_entry *entry = entry_with(now, request.rule_word);
    const std::string instance = "instance " + std::to_string(request.rule_word);
    if (entry == nullptr)
        return "no rule has the " + instance;
    if (has_entry(*entry, request))
        return std::nullopt;
    return instance + " is a rule of " + mac_text(entry->mac) + " on the " + list_word(entry->type) + " list";
}

objection to_clearing_rule(const look &now, const filter_request &request) {
    if (objection wrong = to_instance(now, request))
        return wrong;
    const hbs_rule_entry *entry = request.rule_word == 0 ? nullptr : entry_with(now, request.rule_word);
    if (entry != nullptr && !is_entry_of(*entry, request))
        return "instance " + std::to_string(request.rule_word) + " is another rule of that device";
    if (has_rule(now, request) || is_on_list_without_rules(now, request))
        return std::nullopt;
    return text_of(request.mac) + " has no rule " + rule_text(request.rule) + " on the " +
           list_word(request.list) + " list; " + rules_sentence(now, request);
}

objection to_unnamed_rule(const look &now, const filter_request &request, const char *done) {
    return std::string("which rule is to be ") + done + "? Name it with --rule: " + text_of(request.mac) +
           ", " + rules_sentence(now, request);
}

objection to_moving_rule(const look &now, const filter_request &request, bool rule_given) {
    if (!rule_given)
        return to_unnamed_rule(now, request, "moved");
    if (request.mac == request.new_mac)
        return "both are the same device, which would lose the rule";
    return first_of({to_device(request.new_mac), to_clearing_rule(now, request)});
}
