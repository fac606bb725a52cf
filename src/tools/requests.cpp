#include "tools/requests.h"

#include <charconv>
#include <cstring>

namespace {

template <typename Message> datagram bytes_of(const Message &message) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&message);
    return datagram(bytes, bytes + sizeof message);
}

template <size_t Size> void put_text(char (&field)[Size], const std::string &text, const char *what) {
    if (text.size() >= Size) {
        throw request_error(std::string(what) + " is too long: at most " + std::to_string(Size - 1) +
                            " bytes");
    }
    memcpy(field, text.data(), text.size());
}

template <size_t Size> void put_bytes(uint8_t (&field)[Size], const std::array<uint8_t, Size> &bytes) {
    memcpy(field, bytes.data(), Size);
}

uint32_t host_order(const ipv4_bytes &ipv4) {
    return uint32_t{ipv4[0]} << 24 | uint32_t{ipv4[1]} << 16 | uint32_t{ipv4[2]} << 8 | ipv4[3];
}

template <typename Message> void put_address(Message &message, const ip_address &address) {
    message.family = address.family;
    put_bytes(message.ipv4, address.ipv4);
    put_bytes(message.ipv6, address.ipv6);
}

template <typename Message, typename Lease> void put_identity(Message &message, const Lease &lease) {
    put_text(message.host, lease.host, "the host name");
    put_text(message.oui, lease.oui, "the OUI");
    put_text(message.serial_number, lease.serial_number, "the serial number");
    put_text(message.product_class, lease.product_class, "the product class");
    put_text(message.lease_file, lease.lease_file, "the lease file name");
}

template <typename Number>
const char *parse_number(const char *at, const char *end, int base, Number *value) {
    const auto [stop, error] = std::from_chars(at, end, *value, base);
    return error == std::errc() ? stop : nullptr;
}

// A number that a comma with something behind it follows, or the end, where `at` becomes null.
template <typename Number> bool take(const char *&at, const char *end, int base, Number *value) {
    const char *stop = at == nullptr ? nullptr : parse_number(at, end, base, value);
    if (stop == nullptr || (stop != end && *stop != ',') || stop + 1 == end)
        return false;
    at = stop == end ? nullptr : stop + 1;
    return true;
}

} // namespace

datagram request_plain(hbs_code code) {
    return {static_cast<uint8_t>(code)};
}

datagram request_route_mode(bool routed) {
    return bytes_of(hbs_msg_route_mode{HBS_CMD_SET_ROUTE_MODE, routed});
}

datagram request_set_static_lease(const static_lease &lease) {
    hbs_msg_set_static_lease message = {};
    message.code = HBS_CMD_SET_STATIC_LEASE;
    message.nwidx = lease.network;
    put_address(message, lease.address);
    put_bytes(message.mac, lease.mac);
    put_text(message.comment, lease.comment, "the comment");
    put_text(message.host, lease.host, "the host name");
    return bytes_of(message);
}

datagram request_clear_static_lease(const ip_address &address) {
    hbs_msg_clr_static_lease message = {};
    message.code = HBS_CMD_CLR_STATIC_LEASE;
    put_address(message, address);
    return bytes_of(message);
}

datagram request_set_internal_lease(const mac_bytes &mac, const ip_address &address) {
    hbs_msg_set_internal_lease message = {};
    message.code = HBS_CMD_SET_INTERNAL_LEASE;
    put_address(message, address);
    put_bytes(message.mac, mac);
    return bytes_of(message);
}

datagram request_trust(hbs_code code, uint8_t action, const trust_target &target,
                       const std::string &comment) {
    hbs_msg_trusted message = {};
    message.code = static_cast<uint8_t>(code);
    message.action = action;
    message.selector = target.selector;
    put_bytes(message.mac, target.mac);
    put_bytes(message.ipv4, target.address.ipv4);
    put_bytes(message.ipv6, target.address.ipv6);
    put_text(message.comment, comment, "the comment");
    return bytes_of(message);
}

datagram request_filter(const filter_request &filter) {
    hbs_msg_filter message = {};
    message.code = static_cast<uint8_t>(filter.code);
    message.type = filter.list;
    put_bytes(message.mac, filter.mac);
    put_bytes(message.new_mac, filter.new_mac);
    message.value1 = filter.rule.value1;
    message.value2 = filter.rule.value2;
    message.value3 = filter.rule.value3;
    message.value4 = filter.rule.value4;
    message.value5 = filter.rule.value5;
    message.value6 = filter.rule.value6;
    message.rule_word = filter.rule_word;
    message.filter_word = filter.filter_word;
    put_text(message.comment, filter.comment, "the comment");
    put_text(message.description, filter.description, "the description");
    put_text(message.keyword_list, filter.keywords, "the keyword list");
    put_text(message.domain_list, filter.domains, "the domain list");
    return bytes_of(message);
}

datagram request_comment_host(const ip_address &address, const std::string &comment,
                              const std::string &host) {
    hbs_msg_comment_host message = {};
    message.code = HBS_CMD_SET_COMMENT_HOST;
    put_address(message, address);
    put_text(message.comment, comment, "the comment");
    put_text(message.host, host, "the host name");
    return bytes_of(message);
}

datagram event_server(uint32_t index, bool started) {
    hbs_msg_server message = {};
    message.code = HBS_EVENT_SERVER;
    message.index = index;
    message.started = started;
    return bytes_of(message);
}

datagram event_subnet(uint32_t index, const ipv4_bytes &before, const ipv4_bytes &after,
                      uint32_t prefix_length) {
    hbs_msg_subnet message = {};
    message.code = HBS_EVENT_SUBNET_MASK;
    message.index = index;
    message.old_ipv4 = host_order(before);
    message.new_ipv4 = host_order(after);
    message.prefix_length = prefix_length;
    return bytes_of(message);
}

datagram event_wifi_assoc(hbs_code code, const mac_bytes &mac, uint32_t ssid) {
    hbs_msg_wifi_assoc message = {};
    message.code = static_cast<uint8_t>(code);
    snprintf(message.mac_text, sizeof message.mac_text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
             mac[2], mac[3], mac[4], mac[5]);
    message.ssid = ssid;
    return bytes_of(message);
}

datagram event_wifi_info(const mac_bytes &mac) {
    hbs_msg_wifi_info message = {};
    message.code = HBS_EVENT_WIFI_ASSOC_INFO;
    put_bytes(message.mac, mac);
    return bytes_of(message);
}

datagram event_dhcpv4_lease(const dhcpv4_lease &lease) {
    hbs_msg_dhcpv4 message = {};
    message.code = static_cast<uint8_t>(lease.code);
    put_bytes(message.mac, lease.mac);
    put_bytes(message.ipv4, lease.ipv4);
    message.dynamic = lease.dynamic;
    message.seconds = lease.seconds;
    put_identity(message, lease);
    put_text(message.ifname, lease.ifname, "the interface name");
    message.nwidx = lease.network;
    message.adapter_type = lease.adapter;
    return bytes_of(message);
}

datagram event_dhcpv4_release(const mac_bytes &mac, const ipv4_bytes &ipv4, bool dynamic, uint32_t seconds) {
    hbs_msg_dhcpv4_release message = {};
    message.code = HBS_EVENT_DHCPV4_RELEASE;
    put_bytes(message.mac, mac);
    put_bytes(message.ipv4, ipv4);
    message.dynamic = dynamic;
    message.seconds = seconds;
    return bytes_of(message);
}

datagram event_dhcpv6_lease(const dhcpv6_lease &lease) {
    hbs_msg_dhcpv6 message = {};
    message.code = HBS_EVENT_DHCPV6_LEASE;
    put_bytes(message.ll, lease.ll);
    put_bytes(message.ipv6, lease.ipv6);
    message.lease_end = lease.lease_end;
    put_identity(message, lease);
    return bytes_of(message);
}

datagram event_dhcpv6_release(const ipv6_bytes &ll, const ipv6_bytes &ipv6) {
    hbs_msg_dhcpv6_release message = {};
    message.code = HBS_EVENT_DHCPV6_RELEASE;
    put_bytes(message.ll, ll);
    put_bytes(message.ipv6, ipv6);
    return bytes_of(message);
}

rule_values parse_rule(const std::string &text) {
    rule_values rule;
    const char *at = text.data();
    const char *end = at + text.size();
    const bool three =
        take(at, end, 16, &rule.value1) && take(at, end, 10, &rule.value2) && take(at, end, 10, &rule.value3);
    const bool whole =
        three && (at == nullptr || (take(at, end, 10, &rule.value4) && take(at, end, 10, &rule.value5) &&
                                    take(at, end, 10, &rule.value6) && at == nullptr));
    if (!whole)
        throw request_error("'" + text + "' is not a rule: HEX,N,N or HEX,N,N,N,N,N");
    return rule;
}

std::string rule_text(const rule_values &rule) {
    char text[32];
    snprintf(text, sizeof text, "%x,%u,%u", rule.value1, rule.value2, rule.value3);
    return text;
}

std::string whole_rule_text(const rule_values &rule) {
    return rule_text(rule) + "," + std::to_string(rule.value4) + "," + std::to_string(rule.value5) + "," +
           std::to_string(rule.value6);
}

bool is_same_rule(const rule_values &left, const rule_values &right) {
    return left.value1 == right.value1 && left.value2 == right.value2 && left.value3 == right.value3;
}
