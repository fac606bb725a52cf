// Builds the datagrams of the command socket.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <hbs_msg.h>

#include "tools/words.h"

using datagram = std::vector<uint8_t>;

// What was asked for cannot be put into a datagram, for instance a text that is too long.
struct request_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct static_lease {
    uint16_t network = 0;
    ip_address address;
    mac_bytes mac = {};
    std::string comment;
    std::string host;
};

// Who a trust command is about: a MAC, or an address.
struct trust_target {
    uint8_t selector = HBS_SELECT_MAC;
    mac_bytes mac = {};
    ip_address address;
};

// The six values of a rule; the first three identify it.
struct rule_values {
    uint32_t value1 = 0;
    uint16_t value2 = 0;
    uint16_t value3 = 0;
    uint32_t value4 = 0;
    uint32_t value5 = 0;
    uint32_t value6 = 0;
};

struct filter_request {
    hbs_code code = HBS_CMD_SET_MACFILTER; // 7, 8, 11, 12 or 13
    uint8_t list = HBS_LIST_WHITE;
    mac_bytes mac = {};
    mac_bytes new_mac = {}; // code 13 only
    rule_values rule;
    uint32_t rule_word = 0;   // codes 11 and 12 only: the rule's instance
    uint32_t filter_word = 0; // codes 7 and 13 only
    std::string comment, description, keywords, domains;
};

struct dhcpv4_lease {
    hbs_code code = HBS_EVENT_DHCPV4_LEASE; // 105 or 107
    mac_bytes mac = {};
    ipv4_bytes ipv4 = {};
    bool dynamic = true;
    uint32_t seconds = 0;
    std::string host, ifname, oui, serial_number, product_class;
    std::string lease_file; // code 105 only
    uint32_t network = HBS_UNKNOWN_U32;
    uint32_t adapter = HBS_UNKNOWN_U32;
};

struct dhcpv6_lease {
    ipv6_bytes ll = {};
    ipv6_bytes ipv6 = {};
    uint32_t lease_end = 0; // seconds since the epoch, 0 = static
    std::string host, oui, serial_number, product_class, lease_file;
};

// All throw request_error when a text does not fit its field with its NUL.
datagram request_plain(hbs_code code); // 9, 14 and 112
datagram request_route_mode(bool routed);
datagram request_set_static_lease(const static_lease &lease);
datagram request_clear_static_lease(const ip_address &address);
datagram request_set_internal_lease(const mac_bytes &mac, const ip_address &address);
// action: 1 site, 2 service; the comment goes with code 5 only
datagram request_trust(hbs_code code, uint8_t action, const trust_target &target, const std::string &comment);
datagram request_filter(const filter_request &filter);
datagram request_comment_host(const ip_address &address, const std::string &comment, const std::string &host);
datagram event_server(uint32_t index, bool started);
datagram event_subnet(uint32_t index, const ipv4_bytes &before, const ipv4_bytes &after,
                      uint32_t prefix_length);
datagram event_wifi_assoc(hbs_code code, const mac_bytes &mac, uint32_t ssid); // 103, 104
datagram event_wifi_info(const mac_bytes &mac);
datagram event_dhcpv4_lease(const dhcpv4_lease &lease);
datagram event_dhcpv4_release(const mac_bytes &mac, const ipv4_bytes &ipv4, bool dynamic, uint32_t seconds);
datagram event_dhcpv6_lease(const dhcpv6_lease &lease);
datagram event_dhcpv6_release(const ipv6_bytes &ll, const ipv6_bytes &ipv6);

// "HEX,N,N" or "HEX,N,N,N,N,N": a rule as its file writes it, with commas. Throws request_error.
rule_values parse_rule(const std::string &text);

// "7f,1,2", which identifies a rule, and "7f,1,2,0,0,0".
std::string rule_text(const rule_values &rule);
std::string whole_rule_text(const rule_values &rule);

// Whether two rules are the same to the daemon: the first three values are.
bool is_same_rule(const rule_values &left, const rule_values &right);
