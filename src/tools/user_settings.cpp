#include "tools/user_settings.h"

#include <algorithm>
#include <map>

#include "tools/words.h"

namespace {

constexpr int format_version = 1;
constexpr const char *format_key = "hbsctl_settings";

// The words of a document for numbers of the interface.
struct number_word {
    uint32_t number;
    uint32_t trust_bit;
    const char *word;
};
constexpr number_word trust_kinds[] = {{1, HBS_TRUST_SITE, "site"}, {2, HBS_TRUST_SERV, "service"}};
constexpr number_word list_kinds[] = {{HBS_LIST_WHITE, HBS_TRUST_WHITE, "white"},
                                      {HBS_LIST_BLACK, HBS_TRUST_BLACK, "black"}};

// --- from what is there -----------------------------------------------------------------------------------

void take_client(device_settings &device, const hbs_client &client) {
    for (const number_word &kind : trust_kinds)
        if ((client.trust & kind.trust_bit) != 0)
            device.trusted_for.push_back(kind.number);
    for (const number_word &kind : list_kinds)
        if ((client.trust & kind.trust_bit) != 0)
            device.lists.push_back(static_cast<uint8_t>(kind.number));
    device.comment = field_text(client.comment);
    if ((client.trust & HBS_TRUST_USER) != 0)
        device.host = field_text(client.host);
    device.description = field_text(client.description);
    device.keywords = field_text(client.keyword_list);
    device.domains = field_text(client.domain_list);
    device.filter_word = static_cast<uint32_t>(client.mac_filter);
}

// What the daemon left of a list that the device was taken off can only be set with a list again.
void drop_texts_of_no_list(device_settings &device) {
    if (is_on_list(device))
        return;
    device.description.clear();
    device.keywords.clear();
    device.domains.clear();
    device.filter_word = 0;
}

bool is_anything_set(const device_settings &device) {
    return device.static_lease || device.internal_lease || !device.trusted_for.empty() ||
           !device.comment.empty() || device.host || is_on_list(device) || has_list_texts(device);
}

// The file of static leases tells both kinds alike; only the one of a client was meant for a client.
bool is_clients(const look &now, const sighting &lease) {
    const std::vector<hbs_client> found = matching_clients(now.db, lease.mac);
    return !found.empty() && ipv4_text(found.front().ipv4) == lease.address;
}

// --- as a document ----------------------------------------------------------------------------------------

template <size_t Count> const char *word_of(const number_word (&kinds)[Count], uint32_t number) {
    const auto *found =
        std::find_if(kinds, kinds + Count, [&](const number_word &kind) { return kind.number == number; });
    return found == kinds + Count ? "" : found->word;
}

template <size_t Count, typename Numbers>
json words_of(const number_word (&kinds)[Count], const Numbers &numbers) {
    json words = json::array();
    for (const auto number : numbers)
        words.push_back(word_of(kinds, number));
    return words;
}

void put_text(json &object, const char *name, const std::string &text) {
    if (!text.empty())
        object[name] = text;
}

json rules_of(const device_settings &device) {
    json list = json::array();
    for (const auto &[which, rule] : device.rules)
        list.push_back({{"list", word_of(list_kinds, which)}, {"rule", whole_rule_text(rule)}});
    return list;
}

json device_json(const device_settings &device) {
    json object = {{"mac", mac_text(device.mac.data())}};
    if (device.static_lease)
        object["static_lease"] = ip_text(*device.static_lease);
    if (device.internal_lease)
        object["internal_lease"] = ip_text(*device.internal_lease);
    if (!device.trusted_for.empty())
        object["trust"] = words_of(trust_kinds, device.trusted_for);
    put_text(object, "comment", device.comment);
    if (device.host)
        object["host"] = *device.host;
    if (!device.lists.empty())
        object["lists"] = words_of(list_kinds, device.lists);
    if (!device.rules.empty())
        object["rules"] = rules_of(device);
    put_text(object, "description", device.description);
    put_text(object, "keywords", device.keywords);
    put_text(object, "domains", device.domains);
    if (device.filter_word != 0)
        object["filter_word"] = device.filter_word;
    return object;
}

// --- from a document --------------------------------------------------------------------------------------

template <size_t Count> uint32_t number_of(const number_word (&kinds)[Count], const std::string &word) {
    for (const number_word &kind : kinds)
        if (word == kind.word)
            return kind.number;
    throw request_error("'" + word + "' is neither " + kinds[0].word + " nor " + kinds[1].word);
}

ip_address parse_lease(const std::string &text) {
    const auto address = parse_ip(text);
    if (!address)
        throw request_error("'" + text + "' is no IP address");
    return *address;
}

mac_bytes parse_device(const std::string &text) {
    const auto mac = parse_mac(text);
    if (!mac || *mac == mac_bytes{})
        throw request_error("'" + text + "' is no MAC");
    return *mac;
}

// Nothing is rounded or folded on the way.
uint32_t word_of(const json &value) {
    if (!value.is_number_unsigned() || value.get<uint64_t>() > UINT32_MAX)
        throw request_error(value.dump() + " is no number from 0 to 4294967295");
    return value.get<uint32_t>();
}

using taker = void (*)(device_settings &device, const json &value);

const std::map<std::string, taker> &takers() {
    static const std::map<std::string, taker> all = {
        {"mac", [](device_settings &device, const json &value) { device.mac = parse_device(value); }},
        {"static_lease",
         [](device_settings &device, const json &value) { device.static_lease = parse_lease(value); }},
        {"internal_lease",
         [](device_settings &device, const json &value) { device.internal_lease = parse_lease(value); }},
        {"trust",
         [](device_settings &device, const json &value) {
             for (const json &word : value)
                 device.trusted_for.push_back(number_of(trust_kinds, word));
         }},
        {"comment", [](device_settings &device, const json &value) { device.comment = value; }},
        {"host", [](device_settings &device, const json &value) { device.host = value.get<std::string>(); }},
        {"lists",
         [](device_settings &device, const json &value) {
             for (const json &word : value)
                 device.lists.push_back(static_cast<uint8_t>(number_of(list_kinds, word)));
         }},
        {"rules",
         [](device_settings &device, const json &value) {
             for (const json &one : value)
                 device.rules.emplace_back(number_of(list_kinds, one.at("list")), parse_rule(one.at("rule")));
         }},
        {"description", [](device_settings &device, const json &value) { device.description = value; }},
        {"keywords", [](device_settings &device, const json &value) { device.keywords = value; }},
        {"domains", [](device_settings &device, const json &value) { device.domains = value; }},
        {"filter_word",
         [](device_settings &device, const json &value) { device.filter_word = word_of(value); }}};
    return all;
}

device_settings parse_one(const json &object) {
    device_settings device;
    for (const auto &[name, value] : object.items()) {
        const auto found = takers().find(name);
        if (found == takers().end())
            throw request_error("'" + name + "' is nothing that can be set");
        found->second(device, value);
    }
    if (device.mac == mac_bytes{})
        throw request_error("a device has no \"mac\"");
    return device;
}

} // namespace

bool is_on_list(const device_settings &device) {
    return !device.lists.empty() || !device.rules.empty();
}

bool has_list_texts(const device_settings &device) {
    return !device.description.empty() || !device.keywords.empty() || !device.domains.empty() ||
           device.filter_word != 0;
}

std::vector<device_settings> settings_of(const look &now) {
    std::map<std::string, device_settings> devices;
    for (const hbs_client &client : now.db.clients)
        if (const std::string mac = mac_text(client.mac); !mac.empty())
            take_client(devices[mac], client);
    for (const sighting &lease : now.files.leases) {
        device_settings &device = devices[lease.mac];
        (is_clients(now, lease) ? device.static_lease : device.internal_lease) = parse_ip(lease.address);
    }
    for (const filed_rule &one : now.files.rules)
        devices[one.mac].rules.emplace_back(one.list, one.rule);
    std::vector<device_settings> all;
    for (auto &[mac, device] : devices) {
        device.mac = parse_mac(mac).value_or(mac_bytes{});
        drop_texts_of_no_list(device);
        if (is_anything_set(device))
            all.push_back(device);
    }
    return all;
}

json settings_json(const std::vector<device_settings> &devices) {
    json list = json::array();
    for (const device_settings &device : devices)
        list.push_back(device_json(device));
    return {{format_key, format_version}, {"devices", list}};
}

std::vector<device_settings> parse_settings(const std::string &text) {
    try {
        const json document = json::parse(text);
        if (!document.is_object() || !document.contains(format_key) ||
            document.at(format_key) != format_version)
            throw request_error("these are no settings of version " + std::to_string(format_version) +
                                " that hbsctl exported");
        std::vector<device_settings> devices;
        for (const json &object : document.at("devices"))
            devices.push_back(parse_one(object));
        return devices;
    } catch (const json::exception &error) {
        throw request_error(std::string("these are no exported settings: ") + error.what());
    }
}
