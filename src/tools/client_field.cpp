#include "tools/client_field.h"

#include "tools/client_table.h"
#include "tools/maker.h"
#include "tools/time_text.h"
#include "tools/words.h"

namespace {

using record = const hbs_client &;

std::string number_text(uint32_t value) {
    return value == 0 ? "" : std::to_string(value);
}

template <uint32_t Bit> std::string trusted(record one) {
    return (one.trust & Bit) != 0 ? "yes" : "";
}

template <uint32_t Bit> std::string flagged(record one) {
    return (one.flags & Bit) != 0 ? "yes" : "";
}

const std::vector<client_field> all_fields = {
    {"mac", "MAC", false, false, [](record one) { return mac_text(one.mac); }},
    {"maker", "maker", false, false,
     [](record one) { return is_random_mac(one.mac) ? std::string("random") : maker_of(one.mac); }},
    {"state", "state", false, true,
     [](record one) { return std::string((one.flags & HBS_FLAG_ONLINE) != 0 ? "online" : "offline"); }},
    {"since", "time of the last change of its state", false, false,
     [](record one) { return moment_text(one.online_time, this_moment()); }},
    {"for", "time in its state", false, false,
     [](record one) {
         const auto age = age_of(one.online_time, this_moment());
         return age ? duration_text(*age) : std::string();
     }},
    {"reachable", "reachability", false, true, flagged<HBS_FLAG_REACH>},
    {"associated", "association", false, true, flagged<HBS_FLAG_ASSOC>},
    {"network", "network", false, true, [](record one) { return std::to_string(one.nwidx); }},
    {"ipv4", "IPv4", false, true, [](record one) { return ipv4_text(one.ipv4); }},
    {"ipv6", "IPv6", false, true, [](record one) { return ipv6_text(one.ipv6); }},
    {"ll", "link-local", false, true, [](record one) { return ipv6_text(one.ll); }},
    {"name", "name", false, false, client_name},
    {"host", "host name", true, true, [](record one) { return field_text(one.host); }},
    {"device", "device name", false, true, [](record one) { return field_text(one.device_name); }},
    {"adapter", "adapter", false, true, client_adapter},
    {"interface", "interface", false, true, [](record one) { return field_text(one.ifname); }},
    {"flags", "flags", false, false, [](record one) { return joined(flag_words(one.flags), " "); }},
    {"trust", "trust", false, true, [](record one) { return joined(trust_words(one.trust), " "); }},
    {"site", "trust for sites", true, false, trusted<HBS_TRUST_SITE>},
    {"service", "trust for services", true, false, trusted<HBS_TRUST_SERV>},
    {"white", "white-list mark", true, false, trusted<HBS_TRUST_WHITE>},
    {"black", "black-list mark", true, false, trusted<HBS_TRUST_BLACK>},
    {"user", "mark of a user's text", true, false, trusted<HBS_TRUST_USER>},
    {"comment", "comment", true, true, [](record one) { return field_text(one.comment); }},
    {"description", "description", true, true, [](record one) { return field_text(one.description); }},
    {"keywords", "keywords", true, true, [](record one) { return field_text(one.keyword_list); }},
    {"domains", "domains", true, true, [](record one) { return field_text(one.domain_list); }},
    {"filter-word", "filter word", true, true,
     [](record one) { return number_text(static_cast<uint32_t>(one.mac_filter)); }},
    {"oui", "OUI", false, true, [](record one) { return identity_text(one.oui); }},
    {"serial", "serial number", false, true, [](record one) { return identity_text(one.serial_number); }},
    {"class", "product class", false, true, [](record one) { return identity_text(one.product_class); }},
    {"lease-end", "lease end", false, true, [](record one) { return date_text(one.lease_end); }},
    {"lease6-end", "IPv6 lease end", false, true, [](record one) { return date_text(one.lease_v6_end); }},
    {"first-lease", "first lease", false, true, [](record one) { return date_text(one.status_time); }},
    {"joins", "joins", false, false, [](record one) { return number_text(one.join_req_count); }},
    {"flaps", "flaps", false, false, [](record one) { return number_text(one.flap_count); }},
    {"id", "client id", false, false, [](record one) { return number_text(one.client_id); }},
};

} // namespace

const std::vector<client_field> &client_fields() {
    return all_fields;
}
