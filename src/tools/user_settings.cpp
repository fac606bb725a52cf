#include "tools/user_settings.h"

#include <algorithm>
#include <map>

#include "tools/objections.h"
#include "tools/words.h"

namespace {

constexpr int format_version = 1;
constexpr const char *format_key = "hbsctl_settings";
constexpr const char *hex_key = "hex";
constexpr uint16_t folded_network = 8; // onto network 0

// The words of a document for numbers of the interface.
struct number_word {
    uint32_t number;
    uint32_t trust_bit;
    const char *word;
};
constexpr number_word trust_kinds[] = {{1, HBS_TRUST_SITE, "site"}, {2, HBS_TRUST_SERV, "service"}};
constexpr number_word list_kinds[] = {{HBS_LIST_WHITE, HBS_TRUST_WHITE, "white"},
                                      {HBS_LIST_BLACK, HBS_TRUST_BLACK, "black"}};

// The texts of a document, each where it is kept.
using maybe_text = std::optional<std::string>;
struct text_place {
    const char *name;
    maybe_text &(*of)(device_settings &device);
};
constexpr text_place text_places[] = {
    {"comment", [](device_settings &device) -> maybe_text & { return device.comment; }},
    {"host", [](device_settings &device) -> maybe_text & { return device.host; }},
    {"description", [](device_settings &device) -> maybe_text & { return device.texts.description; }},
    {"keywords", [](device_settings &device) -> maybe_text & { return device.texts.keywords; }},
    {"domains", [](device_settings &device) -> maybe_text & { return device.texts.domains; }}};

// --- from what is there -----------------------------------------------------------------------------------

void take_text(std::optional<std::string> &target, const std::string &text) {
    if (!text.empty())
        target = text;
}

void take_list_texts(list_texts &texts, const hbs_client &client) {
    take_text(texts.description, field_text(client.description));
    take_text(texts.keywords, field_text(client.keyword_list));
    take_text(texts.domains, field_text(client.domain_list));
    if (client.mac_filter != 0)
        texts.filter_word = static_cast<uint32_t>(client.mac_filter);
}

void take_client(device_settings &device, const hbs_client &client) {
    for (const number_word &kind : trust_kinds)
        if ((client.trust & kind.trust_bit) != 0)
            device.trusted_for.push_back(kind.number);
    for (const number_word &kind : list_kinds)
        if ((client.trust & kind.trust_bit) != 0)
            device.lists.push_back(static_cast<uint8_t>(kind.number));
    take_text(device.comment, field_text(client.comment));
    if ((client.trust & HBS_TRUST_USER) != 0)
        device.host = field_text(client.host);
    // Static leases make clients in the networks 0 and 8 only.
    device.lease_network = client.nwidx == folded_network ? folded_network : 0;
    take_list_texts(device.texts, client);
}

// What the daemon left of a list that the device was taken off can only be set with a list again.
void drop_texts_of_no_list(device_settings &device) {
    if (!is_on_list(device))
        device.texts = {};
}

bool is_anything_set(const device_settings &device) {
    return device.static_lease || device.internal_lease || !device.trusted_for.empty() || device.comment ||
           device.host || is_on_list(device) || !device.rules.empty() || is_any_given(device.texts);
}

// The file of static leases tells both kinds alike; only the one of a client was meant for a client. That
// need not have the address yet, but be in a network that has fixed addresses, or it could not be set again.
bool is_clients(const look &now, const sighting &lease) {
    const std::vector<hbs_client> found = matching_clients(now.db, lease.mac);
    return !found.empty() && has_fixed_addresses(found.front().nwidx);
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

bool is_utf8(const std::string &text) {
    try {
        (void)json(text).dump();
        return true;
    } catch (const json::exception &) {
        return false;
    }
}

std::string hex_of(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        (void)snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

void put_texts_of(json &object, device_settings device) {
    for (const text_place &place : text_places)
        if (const maybe_text &text = place.of(device))
            object[place.name] = is_utf8(*text) ? json(*text) : json{{hex_key, hex_of(*text)}};
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
    if (device.static_lease && device.lease_network != 0)
        object["network"] = device.lease_network;
    if (device.internal_lease)
        object["internal_lease"] = ip_text(*device.internal_lease);
    if (!device.trusted_for.empty())
        object["trust"] = words_of(trust_kinds, device.trusted_for);
    put_texts_of(object, device);
    if (!device.lists.empty())
        object["lists"] = words_of(list_kinds, device.lists);
    if (!device.rules.empty())
        object["rules"] = rules_of(device);
    if (device.texts.filter_word)
        object["filter_word"] = *device.texts.filter_word;
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
uint32_t number_up_to(uint32_t most, const json &value) {
    if (!value.is_number_unsigned() || value.get<uint64_t>() > most)
        throw request_error(value.dump() + " is no number from 0 to " + std::to_string(most));
    return value.get<uint32_t>();
}

std::string bytes_of_hex(const std::string &hex) {
    std::string bytes;
    if (hex.size() % 2 != 0 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw request_error("'" + hex + "' is no text in hexadecimal digits");
    for (size_t at = 0; at < hex.size(); at += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    return bytes;
}

std::string parse_text(const json &value) {
    return value.is_object() ? bytes_of_hex(value.at(hex_key)) : value.get<std::string>();
}

using taker = void (*)(device_settings &device, const json &value);

const std::map<std::string, taker> &takers() {
    static const std::map<std::string, taker> all = {
        {"mac", [](device_settings &device, const json &value) { device.mac = parse_device(value); }},
        {"static_lease",
         [](device_settings &device, const json &value) { device.static_lease = parse_lease(value); }},
        {"network",
         [](device_settings &device, const json &value) {
             device.lease_network = static_cast<uint16_t>(number_up_to(UINT16_MAX, value));
         }},
        {"internal_lease",
         [](device_settings &device, const json &value) { device.internal_lease = parse_lease(value); }},
        {"trust",
         [](device_settings &device, const json &value) {
             for (const json &word : value)
                 device.trusted_for.push_back(number_of(trust_kinds, word));
         }},
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
        {"filter_word", [](device_settings &device, const json &value) {
             device.texts.filter_word = number_up_to(UINT32_MAX, value);
         }}};
    return all;
}

// Returns whether there is a text of that name.
bool take_as_text(device_settings &device, const std::string &name, const json &value) {
    for (const text_place &place : text_places) {
        if (name != place.name)
            continue;
        place.of(device) = parse_text(value);
        return true;
    }
    return false;
}

device_settings parse_one(const json &object) {
    device_settings device;
    for (const auto &[name, value] : object.items()) {
        const auto found = takers().find(name);
        if (found != takers().end())
            found->second(device, value);
        else if (!take_as_text(device, name, value))
            throw request_error("'" + name + "' is nothing that can be set");
    }
    if (device.mac == mac_bytes{})
        throw request_error("a device has no \"mac\"");
    return device;
}

} // namespace

bool is_on_list(const device_settings &device) {
    return !device.lists.empty();
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
        const std::string said = error.what(); // behind a name of its kind in brackets
        const size_t name_end = said.find(']');
        throw request_error("these are no exported settings:" +
                            (name_end == std::string::npos ? " " + said : said.substr(name_end + 1)));
    }
}
