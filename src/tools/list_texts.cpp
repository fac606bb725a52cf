#include "tools/list_texts.h"

bool is_any_given(const list_texts &given) {
    return given.description || given.keywords || given.domains || given.filter_word;
}

void put_texts(filter_request &request, const list_texts &given, const database &db) {
    const mac_bytes &mac = request.new_mac == mac_bytes{} ? request.mac : request.new_mac;
    const std::vector<hbs_client> found = matching_clients(db, mac_text(mac.data()));
    const hbs_client now = found.empty() ? hbs_client{} : found.front();
    request.description = given.description.value_or(field_text(now.description));
    request.keywords = given.keywords.value_or(field_text(now.keyword_list));
    request.domains = given.domains.value_or(field_text(now.domain_list));
    request.filter_word = given.filter_word.value_or(static_cast<uint32_t>(now.mac_filter));
}
