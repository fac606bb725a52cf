#include "tools/look.h"

#include <algorithm>

#include "tools/client_field.h"
#include "tools/index_table.h"
#include "tools/route_mode.h"
#include "tools/words.h"

namespace {

constexpr const char *present = "yes";

const std::string &value_of(const std::vector<fact> &facts, const std::string &what) {
    static const std::string none;
    const auto found =
        std::find_if(facts.begin(), facts.end(), [&](const fact &one) { return one.what == what; });
    return found == facts.end() ? none : found->value;
}

void add_change(std::vector<change> &changes, const std::string &what, const std::string &before,
                const std::string &after) {
    const bool known =
        std::any_of(changes.begin(), changes.end(), [&](const change &one) { return one.what == what; });
    if (before != after && !known)
        changes.push_back({what, before, after});
}

std::string quoted(const std::string &text) {
    return "'" + text + "'";
}

std::string rule_name(const rule_values &rule, uint8_t list, const std::string &mac) {
    return "rule " + rule_text(rule) + " of " + mac + " on the " + list_word(list) + " list";
}

rule_values rule_of(const hbs_rule_entry &entry) {
    const uint32_t *p = entry.p;
    return {p[0], static_cast<uint16_t>(p[1]), static_cast<uint16_t>(p[2]), p[4], p[5], p[6]};
}

} // namespace

look look_around(const std::string &socket_path, double seconds) {
    look now;
    now.routed = is_routed(socket_path, seconds);
    now.db = read_database();
    now.files = read_settings_files();
    now.networks = lan_networks();
    return now;
}

std::vector<change> changes_between(const std::vector<fact> &before, const std::vector<fact> &after) {
    std::vector<change> changes;
    for (const fact &one : before)
        add_change(changes, one.what, one.value, value_of(after, one.what));
    for (const fact &one : after)
        add_change(changes, one.what, value_of(before, one.what), one.value);
    return changes;
}

std::string change_text(const change &one) {
    if (one.before.empty())
        return one.what + (one.after == present ? ": set" : ": set to " + quoted(one.after));
    if (one.after.empty())
        return one.what +
               (one.before == present ? ": removed" : ": removed (was " + quoted(one.before) + ")");
    return one.what + ": changed from " + quoted(one.before) + " to " + quoted(one.after);
}

std::vector<fact> client_facts(const look &now, const std::string &key) {
    std::vector<fact> facts;
    const std::vector<hbs_client> found = matching_clients(now.db, key);
    if (found.empty())
        return facts;
    facts.push_back({"client " + key, present});
    for (const client_field &field : client_fields())
        if (field.setting)
            facts.push_back({field.title + (" of " + key), field.text(found.front())});
    return facts;
}

std::vector<fact> lease_facts(const look &now, const std::string &mac, const std::string &address) {
    std::vector<fact> facts;
    for (const sighting &one : now.files.leases)
        if (one.mac == mac || one.address == address)
            facts.push_back({"static lease " + one.address + " for " + one.mac, present});
    return facts;
}

std::vector<fact> rule_facts(const look &now, const std::string &mac) {
    std::vector<fact> facts;
    for (const filed_rule &one : now.files.rules)
        if (one.mac == mac)
            facts.push_back({rule_name(one.rule, one.list, mac), whole_rule_text(one.rule)});
    for (const hbs_rule_entry &one : now.db.rules)
        if (mac_text(one.mac) == mac)
            facts.push_back({"instance of " + rule_name(rule_of(one), one.type, mac),
                             std::to_string(rule_instance(one))});
    return facts;
}

std::vector<fact> operator+(std::vector<fact> left, const std::vector<fact> &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
