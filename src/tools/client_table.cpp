#include "tools/client_table.h"

#include <algorithm>

#include "tools/maker.h"
#include "tools/time_text.h"
#include "tools/words.h"

namespace {

bool is_online(const hbs_client &client) {
    return (client.flags & HBS_FLAG_ONLINE) != 0;
}

std::string flags_without_online(const hbs_client &client) {
    return joined(flag_words(client.flags & ~HBS_FLAG_ONLINE), " ");
}

std::string trust_and_hotspot(const hbs_client &client) {
    std::vector<std::string> words = trust_words(client.trust);
    if (client.hotspot != 0)
        words.emplace_back("HOTSPOT");
    return joined(words, " ");
}

void add(text_table &table, const char *name, const std::string &value) {
    if (!value.empty())
        table.rows.push_back({{name, style::faint}, {value}});
}

void add_number(text_table &table, const char *name, uint32_t value) {
    add(table, name, value == 0 ? "" : std::to_string(value));
}

std::string interface_text(const hbs_client &client) {
    const std::string name = field_text(client.ifname);
    return name.empty() ? "" : name + " (index " + std::to_string(client.ifindex) + ")";
}

std::string link_figures(const hbs_client &client) {
    std::vector<std::string> figures;
    for (uint32_t figure : client.wifi_link_info)
        figures.push_back(std::to_string(figure));
    figures[0] = std::to_string(static_cast<int32_t>(client.wifi_link_info[0])); // the signal, in dBm
    const bool none = std::all_of(std::begin(client.wifi_link_info), std::end(client.wifi_link_info),
                                  [](uint32_t figure) { return figure == 0; });
    return none ? "" : joined(figures, " ");
}

void add_lists(text_table &table, const hbs_client &client) {
    add(table, "trust", trust_and_hotspot(client));
    add(table, "comment", field_text(client.comment));
    add(table, "description", field_text(client.description));
    add(table, "keywords", field_text(client.keyword_list));
    add(table, "domains", field_text(client.domain_list));
    add(table, "filter word", client.mac_filter == 0 ? "" : std::to_string(client.mac_filter));
}

std::string mac_and_maker(const hbs_client &client) {
    const std::string mac = mac_text(client.mac);
    const std::string maker = is_random_mac(client.mac) ? "random" : maker_of(client.mac);
    return mac.empty() || maker.empty() ? mac : mac + " (" + maker + ")";
}

// Since when it is known, or went on or off line last.
std::string state_and_age(const hbs_client &client) {
    const moment now = this_moment();
    const auto age = age_of(client.online_time, now);
    const std::string state = is_online(client) ? "online" : "offline";
    return !age ? state
                : state + ", for " + duration_text(*age) + ", since " + moment_text(client.online_time, now);
}

// To the minute: seconds are for who looks at one client.
std::string short_since(const hbs_client &client) {
    return moment_text(client.online_time, this_moment()).substr(0, sizeof "2026-11-21 01:02" - 1);
}

void add_presence(text_table &table, const hbs_client &client) {
    add(table, "state", state_and_age(client));
    add(table, "flags", joined(flag_words(client.flags), " "));
    const time_t now = time(nullptr);
    add(table, "lease end", date_and_age(client.lease_end, now));
    add(table, "IPv6 lease end", date_and_age(client.lease_v6_end, now));
    add(table, "first lease", date_and_age(client.status_time, now));
    add_number(table, "joins", client.join_req_count);
    add_number(table, "flaps", client.flap_count);
    add_number(table, "reachability joins", client.dhcp_req_count);
    add_number(table, "reachability flaps", client.dhcp_flap_count);
}

} // namespace

std::string client_name(const hbs_client &client) {
    const std::string host = field_text(client.host);
    const std::string device_name = field_text(client.device_name);
    return !host.empty() || device_name == field_text(client.ifname) ? host : device_name;
}

std::string client_adapter(const hbs_client &client) {
    std::string word = adapter_word(client.adapter_type);
    if (client.adapter_type == HBS_ADAPTER_WIFI)
        return word + " " + std::to_string(client.wifi_index + 1);
    if (client.adapter_type == HBS_ADAPTER_ETHERNET && client.switch_port != 0)
        return word + " " + std::to_string(client.switch_port);
    return word;
}

std::vector<table_column> client_columns() {
    return {{"MAC"},          {"STATE"},         {"NET", 0, 3},       {"IPV4"},
            {"NAME", 8},      {"ADAPTER", 0, 4}, {"IPV6", 12, 8},     {"LL", 12, 11},
            {"FLAGS", 6, 7},  {"TRUST", 0, 5},   {"LEASE END", 0, 6}, {"SINCE", 0, 10},
            {"COMMENT", 8, 9}};
}

std::vector<table_cell> client_row(const hbs_client &client) {
    const bool online = is_online(client);
    const std::string mac = mac_text(client.mac);
    return {
        {mac.empty() ? "-" : mac},      {online ? "online" : "offline", online ? style::good : style::faint},
        {std::to_string(client.nwidx)}, {ipv4_text(client.ipv4)},
        {client_name(client)},          {client_adapter(client)},
        {ipv6_text(client.ipv6)},       {ipv6_text(client.ll)},
        {flags_without_online(client)}, {trust_and_hotspot(client), style::warning},
        {date_text(client.lease_end)},  {short_since(client)},
        {field_text(client.comment)}};
}

text_table client_table(const std::vector<hbs_client> &clients) {
    text_table table = {client_columns(), {}};
    for (const hbs_client &client : clients)
        table.rows.push_back(client_row(client));
    return table;
}

std::string client_totals(const std::vector<hbs_client> &clients) {
    const auto online = std::count_if(clients.begin(), clients.end(), is_online);
    return std::to_string(clients.size()) + (clients.size() == 1 ? " client, " : " clients, ") +
           std::to_string(online) + " on line";
}

text_table client_details(const hbs_client &client) {
    text_table table = {{{"FIELD"}, {"VALUE"}}, {}};
    add(table, "MAC", mac_and_maker(client));
    add(table, "IPv4", ipv4_text(client.ipv4));
    add(table, "IPv6", ipv6_text(client.ipv6));
    add(table, "link-local", ipv6_text(client.ll));
    add(table, "host", field_text(client.host));
    add(table, "device name", field_text(client.device_name));
    add(table, "adapter", client_adapter(client));
    add(table, "network", std::to_string(client.nwidx));
    add(table, "interface", interface_text(client));
    add(table, "Wi-Fi link", link_figures(client));
    add_presence(table, client);
    add(table, "OUI", identity_text(client.oui));
    add(table, "serial number", identity_text(client.serial_number));
    add(table, "product class", identity_text(client.product_class));
    add_lists(table, client);
    add_number(table, "client id", client.client_id);
    return table;
}
