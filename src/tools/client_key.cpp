#include "tools/client_key.h"

#include <algorithm>
#include <numeric>

#include "tools/client_table.h"

namespace {

constexpr size_t most_suggestions = 3;

char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// Letters to change, add or drop until one word is the other, capitals aside.
size_t distance(const std::string &left, const std::string &right) {
    std::vector<size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < left.size(); i++) {
        size_t diagonal = row[0]++;
        for (size_t k = 0; k < right.size(); k++) {
            const size_t change = diagonal + (lower(left[i]) != lower(right[k]) ? 1 : 0);
            diagonal = row[k + 1];
            row[k + 1] = std::min({change, row[k] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::vector<std::string> names_of(const database &db) {
    std::vector<std::string> names;
    for (const hbs_client &client : db.clients)
        for (const std::string &name : {client_name(client), mac_text(client.mac), ipv4_text(client.ipv4)})
            if (!name.empty())
                names.push_back(name);
    return names;
}

std::string nobody_text(const database &db, const std::string &key) {
    return "no client has the MAC, address or name '" + key + "'" + suggestion(key, names_of(db));
}

// As the commands take it, and another of its addresses, by which a person may know it.
std::string naming_of(const hbs_client &client) {
    const std::string key = key_of(client);
    for (const std::string &address : {ipv4_text(client.ipv4), ipv6_text(client.ipv6), ipv6_text(client.ll)})
        if (!address.empty() && address != key)
            return std::string(key).append(" (").append(address).append(")");
    return key.empty() ? "a record without MAC and address" : key;
}

std::string several_text(const std::string &key, const std::vector<hbs_client> &clients) {
    std::vector<std::string> names(clients.size());
    std::transform(clients.begin(), clients.end(), names.begin(), naming_of);
    return "'" + key + "' is more than one client: " + joined(names, ", ");
}

mac_bytes mac_of(const session &run, const database &db, const std::string &key) {
    const std::vector<hbs_client> found = matching_clients(db, key);
    if (found.empty())
        throw nothing_to_send(run, nobody_text(db, key), "a MAC");
    const auto mac = parse_mac(mac_text(one_client(db, key).mac));
    if (!mac)
        throw nothing_to_send(run, "the client '" + key + "' has no MAC, by which this is set", "a MAC");
    return *mac;
}

} // namespace

std::vector<std::string> nearest(const std::string &word, const std::vector<std::string> &known) {
    const size_t allowed = 1 + word.size() / 4;
    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string &one : known) {
        const size_t far = distance(word, one);
        if (far <= allowed && far < word.size())
            near.emplace_back(far, one);
    }
    std::sort(near.begin(), near.end());
    near.erase(std::unique(near.begin(), near.end()), near.end());
    std::vector<std::string> words;
    for (size_t i = 0; i < near.size() && i < most_suggestions; i++)
        words.push_back(near[i].second);
    return words;
}

std::string suggestion(const std::string &word, const std::vector<std::string> &known) {
    const std::vector<std::string> words = nearest(word, known);
    return words.empty() ? "" : ": did you mean '" + joined(words, "' or '") + "'?";
}

std::string none_of_text(const std::string &word, const std::vector<std::string> &known) {
    return "'" + word + "' is none of " + joined(known, ", ") + suggestion(word, known);
}

std::vector<hbs_client> known_clients(const database &db, const std::string &key) {
    std::vector<hbs_client> found = matching_clients(db, key);
    if (found.empty())
        throw run_error(exit_negative, nobody_text(db, key));
    return found;
}

hbs_client one_client(const database &db, const std::string &key) {
    const std::vector<hbs_client> found = known_clients(db, key);
    if (found.size() > 1)
        throw run_error(exit_negative, several_text(key, found));
    return found.front();
}

run_error nothing_to_send(const session &run, const std::string &why, const std::string &missing) {
    return run_error(exit_negative,
                     why + (run.force ? "; --force sends nothing here without " + missing : ""));
}

meant_client client_meant(const session &run, const look &now, const std::string &key) {
    if (!matching_clients(now.db, key).empty()) {
        const hbs_client client = one_client(now.db, key);
        return {client, key_of(client), {}};
    }
    const std::string why = nobody_text(now.db, key);
    if (const auto mac = parse_mac(key))
        return {{}, mac_text(mac->data()), why};
    if (const auto address = parse_ip(key))
        return {{}, ip_text(*address), why};
    throw nothing_to_send(run, why, "a MAC or an address");
}

mac_bytes device_of(const session &run, const look &now, const std::string &key) {
    const auto mac = parse_mac(key);
    return mac ? *mac : mac_of(run, now.db, key);
}

mac_bytes device_meant(const session &run, const std::string &key) {
    const auto mac = parse_mac(key);
    return mac ? *mac : mac_of(run, read_database(), key);
}

ipv6_bytes link_local_meant(const session &run, const std::string &key) {
    const auto address = parse_ip(key);
    if (address && address->family == HBS_FAMILY_IPV6)
        return address->ipv6;
    const database db = read_database();
    if (matching_clients(db, key).empty())
        throw nothing_to_send(run, nobody_text(db, key), "a link-local address");
    const auto ll = parse_ip(ipv6_text(one_client(db, key).ll));
    if (!ll)
        throw nothing_to_send(run, "the client '" + key + "' has no link-local address",
                              "a link-local address");
    return ll->ipv6;
}

std::optional<ip_address> address_to_tell(const database &db, const hbs_client &client) {
    std::optional<ip_address> first;
    for (const std::string &text : {ipv4_text(client.ipv4), ipv6_text(client.ipv6), ipv6_text(client.ll)}) {
        const auto address = parse_ip(text);
        if (address && !to_shared(db, *address))
            return address;
        first = first ? first : address;
    }
    return first;
}

objection to_shared(const database &db, const ip_address &address) {
    const std::vector<hbs_client> holders = matching_clients(db, ip_text(address));
    if (holders.size() < 2)
        return std::nullopt;
    return ip_text(address) + " is held by " + key_of(holders[0]) + " and " + key_of(holders[1]) +
           ", and the daemon would take one of them";
}

std::string key_of(const hbs_client &client) {
    const std::string mac = mac_text(client.mac);
    const std::string ipv4 = ipv4_text(client.ipv4);
    const std::string ipv6 = ipv6_text(client.ipv6);
    return !mac.empty() ? mac : !ipv4.empty() ? ipv4 : !ipv6.empty() ? ipv6 : ipv6_text(client.ll);
}

bool has_texts(const hbs_client &client, const std::optional<std::string> &comment,
               const std::optional<std::string> &host) {
    const bool marked = !host || (client.trust & HBS_TRUST_USER) != 0;
    return marked && comment.value_or(field_text(client.comment)) == field_text(client.comment) &&
           host.value_or(field_text(client.host)) == field_text(client.host);
}
