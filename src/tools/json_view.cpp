#include "tools/json_view.h"

#include "tools/index_table.h"
#include "tools/maker.h"
#include "tools/printable.h"
#include "tools/time_text.h"
#include "tools/words.h"

namespace {

json or_null(const std::string &text) {
    return text.empty() ? json(nullptr) : json(text);
}

json date_json(const uint8_t date[HBS_DATE_SIZE]) {
    return or_null(zoned_date(date));
}

void add_identity(json &object, const hbs_client &client) {
    object["mac"] = or_null(mac_text(client.mac));
    object["random_mac"] = is_random_mac(client.mac);
    object["maker"] = or_null(maker_of(client.mac));
    object["ipv4"] = or_null(ipv4_text(client.ipv4));
    object["ipv6"] = or_null(ipv6_text(client.ipv6));
    object["ll"] = or_null(ipv6_text(client.ll));
    object["host"] = field_text(client.host);
    object["device_name"] = field_text(client.device_name);
    object["comment"] = field_text(client.comment);
}

void add_presence(json &object, const hbs_client &client) {
    object["adapter"] = adapter_word(client.adapter_type);
    object["network"] = client.nwidx;
    object["online"] = (client.flags & HBS_FLAG_ONLINE) != 0;
    object["reachable"] = (client.flags & HBS_FLAG_REACH) != 0;
    object["associated"] = (client.flags & HBS_FLAG_ASSOC) != 0;
    object["flags"] = flag_words(client.flags);
    object["trust"] = trust_words(client.trust);
    object["lease_end"] = date_json(client.lease_end);
    object["client_id"] = client.client_id;
    object["lease_v6_end"] = date_json(client.lease_v6_end);
    object["status_time"] = date_json(client.status_time);
}

void add_attachment(json &object, const hbs_client &client) {
    const bool wifi = client.adapter_type == HBS_ADAPTER_WIFI;
    const bool ethernet = client.adapter_type == HBS_ADAPTER_ETHERNET;
    object["ssid"] = wifi ? json(client.wifi_index + 1) : json(nullptr);
    object["switch_port"] = ethernet ? json(client.switch_port) : json(nullptr);
    object["ifname"] = field_text(client.ifname);
    object["ifindex"] = client.ifindex;
    object["hotspot"] = client.hotspot != 0;
    object["wifi_link_info"] = client.wifi_link_info;
}

void add_settings(json &object, const hbs_client &client) {
    object["oui"] = identity_text(client.oui);
    object["serial_number"] = identity_text(client.serial_number);
    object["product_class"] = identity_text(client.product_class);
    object["description"] = field_text(client.description);
    object["keyword_list"] = field_text(client.keyword_list);
    object["domain_list"] = field_text(client.domain_list);
    object["mac_filter"] = client.mac_filter;
}

// A time of one of the clocks, as a time with its zone and as how long ago that was, in seconds.
void add_time(json &object, const std::string &name, uint32_t seconds, const moment &now) {
    const auto age = age_of(seconds, now);
    object[name] = or_null(zoned_moment(seconds, now));
    object[name + "_seconds"] = age ? json(*age) : json(nullptr);
}

void add_history(json &object, const hbs_client &client) {
    object["lease_file"] = field_text(client.lease_file);
    object["lease_file6"] = field_text(client.lease_file6);
    object["lease_start_uptime"] = client.lease_start_uptime;
    object["online_time"] = client.online_time;
    object["join_req_count"] = client.join_req_count;
    object["dhcp_req_count"] = client.dhcp_req_count;
    object["flap_count"] = client.flap_count;
    object["dhcp_flap_count"] = client.dhcp_flap_count;
    object["dbpos"] = client.dbpos;
}

json words_json(const uint32_t *words, uint32_t count) {
    return std::vector<uint32_t>(words, words + count);
}

json client_of(const database &db, uint32_t dbpos) {
    const hbs_client *client = client_at(db, dbpos);
    return client == nullptr ? json(nullptr) : or_null(mac_text(client->mac));
}

json address_entries(const database &db, const std::vector<hbs_ip_entry> &entries, bool has_length) {
    json list = json::array();
    for (const hbs_ip_entry &entry : entries) {
        list.push_back({{"key", words_json(entry.key, entry.count)},
                        {"address", or_null(key_address(entry, has_length))},
                        {"client", client_of(db, entry.dbpos)},
                        {"dbpos", entry.dbpos}});
    }
    return list;
}

} // namespace

both_moments moments_now() {
    return {this_moment(), this_moment(CLOCK_BOOTTIME)};
}

json client_json(const hbs_client &client, const both_moments &now) {
    json object = json::object();
    add_identity(object, client);
    add_presence(object, client);
    add_attachment(object, client);
    add_settings(object, client);
    add_history(object, client);
    add_time(object, "since", client.online_time, now.presence);
    add_time(object, "lease_start", client.lease_start_uptime, now.uptime);
    return object;
}

json clients_json(const std::vector<hbs_client> &clients, const both_moments &now) {
    json list = json::array();
    for (const hbs_client &client : clients)
        list.push_back(client_json(client, now));
    return {{"clients", list}};
}

json indices_json(const database &db) {
    json interfaces = json::array();
    for (const hbs_if_entry &entry : db.interfaces) {
        interfaces.push_back({{"key", words_json(entry.key, entry.count)},
                              {"client", client_of(db, entry.dbpos)},
                              {"dbpos", entry.dbpos}});
    }
    json primary = json::array();
    for (const hbs_pri_entry &entry : db.primary) {
        primary.push_back({{"key", words_json(entry.key, entry.count)},
                           {"client", client_of(db, entry.dbpos)},
                           {"dbpos", entry.dbpos}});
    }
    return {{"ip", address_entries(db, db.ip, true)},
            {"interface", interfaces},
            {"dhcp", address_entries(db, db.dhcp, false)},
            {"primary", primary}};
}

json rules_json(const database &db) {
    json rules = json::array();
    for (const hbs_rule_entry &rule : db.rules) {
        rules.push_back({{"instance", rule_instance(rule)},
                         {"list", list_word(rule.type)},
                         {"mac", or_null(mac_text(rule.mac))},
                         {"parameters", rule.p}});
    }
    return {{"rules", rules}};
}

std::string json_text(const json &document, int indent) {
    return json_printable(document.dump(indent, ' ', false, json::error_handler_t::replace));
}
