#include "tools/list_texts.h"

#include <algorithm>

#include "tools/index_table.h"

namespace {

std::optional<hbs_client> client_with(const look &now, const mac_bytes &mac) {
    const std::vector<hbs_client> found = matching_clients(now.db, mac_text(mac.data()));
    return found.empty() ? std::nullopt : std::optional(found.front());
}

uint32_t mark_of(uint8_t list) {
    return list == HBS_LIST_WHITE ? HBS_TRUST_WHITE : HBS_TRUST_BLACK;
}

bool is_on(const look &now, const mac_bytes &mac, uint8_t list) {
    return is_marked(now, mac, list) || first_rule(now, mac, list);
}

} // namespace

bool is_any_given(const list_texts &given) {
    return given.description || given.keywords || given.domains || given.filter_word;
}

bool is_marked(const look &now, const mac_bytes &mac, uint8_t list) {
    const auto client = client_with(now, mac);
    return client && (client->trust & mark_of(list)) != 0;
}

std::optional<rule_values> first_rule(const look &now, const mac_bytes &mac, uint8_t list) {
    for (const filed_rule &one : now.files.rules)
        if (one.list == list && one.mac == mac_text(mac.data()))
            return one.rule;
    return std::nullopt;
}

objection to_adding_rule(const look &now, const mac_bytes &mac, uint8_t list) {
    if (!is_marked(now, mac, list) || first_rule(now, mac, list))
        return std::nullopt;
    return mac_text(mac.data()) + " is on the " + list_word(list) +
           " list without a rule: name the one that it is to have";
}

void put_texts(filter_request &request, const list_texts &given, const look &now) {
    const mac_bytes &mac = request.new_mac == mac_bytes{} ? request.mac : request.new_mac;
    const bool on_any = is_on(now, mac, HBS_LIST_WHITE) || is_on(now, mac, HBS_LIST_BLACK);
    const hbs_client there = on_any ? client_with(now, mac).value_or(hbs_client{}) : hbs_client{};
    request.description = given.description.value_or(field_text(there.description));
    request.keywords = given.keywords.value_or(field_text(there.keyword_list));
    request.domains = given.domains.value_or(field_text(there.domain_list));
    request.filter_word = given.filter_word.value_or(static_cast<uint32_t>(there.mac_filter));
}
