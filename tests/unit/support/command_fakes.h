// Every handler that a row of the command table may call, replaced by one that traces its arguments and
// returns what the test wants. For one source file per test program.
#pragma once

#include <cstring>
#include <map>

#include <hbs_msg.h>

#include "base/text.h"
#include "events/comment.h"
#include "events/device_lists.h"
#include "events/dhcp_server.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "events/maintenance.h"
#include "events/route_mode.h"
#include "events/static_lease.h"
#include "events/tr69_events.h"
#include "events/trust.h"
#include "events/wifi.h"
#include "support/trace.h"

namespace fake {

inline int result = 0;            // of every handler that has a number as result
inline hbs_client client{};       // the one client there is ...
inline bool client_exists = true; // ... if there is one

inline trace::list questions; // to the kernel; not part of the trace

inline void reset() {
    result = 0;
    questions.clear();
    client = {};
    client_exists = true;
    (void)trace::take();
}

inline hbs_client *found() {
    return client_exists ? &client : nullptr;
}
inline std::string mac(const uint8_t *bytes) {
    return bytes == nullptr ? "none" : hbs_mac_to_text(bytes).text;
}
inline std::string ipv4(const uint8_t *bytes) {
    return hbs_ipv4_to_text(bytes).text;
}
inline std::string ipv6(const uint8_t *bytes) {
    return hbs_ipv6_to_text(bytes).text;
}
inline std::string address(int family, const uint8_t *bytes) {
    return family == 2 ? ipv4(bytes) : ipv6(bytes);
}

inline std::string filter(const hbs_filter_request *r) {
    return trace::format("%d %s %x %u %u %u %u %u '%s' '%s' '%s' '%s' %u", r->type, mac(r->mac).c_str(),
                         r->value[0], r->value[1], r->value[2], r->value[3], r->value[4], r->value[5],
                         r->comment, r->description, r->keyword_list, r->domain_list, r->filter_word);
}

inline int called(const std::string &text) {
    trace::add(text);
    return result;
}

inline hbs_client *client_of(const std::string &text) {
    trace::add(text);
    return found();
}

} // namespace fake

inline std::string operator+(const std::string &text, long long number) {
    return text + std::to_string(number);
}

void hbs_handle_dhcp_server(uint32_t group, uint32_t start) {
    trace::add(trace::format("dhcp server %u %u", group, start));
}

hbs_client *hbs_handle_dhcpv4_lease(const hbs_dhcpv4_lease *l) {
    return fake::client_of(trace::format("dhcpv4 lease %s %s %d %u '%s' '%s' '%s' '%s' '%s' '%s' %d %d",
                                         fake::mac(l->mac).c_str(), fake::ipv4(l->ipv4).c_str(), l->dynamic,
                                         l->seconds, l->host, l->ifname, l->oui, l->serial_number,
                                         l->product_class, l->lease_file, l->nwidx, l->adapter_type));
}

hbs_client *hbs_handle_dhcpv4_release(const uint8_t mac[6], const uint8_t ipv4[4], int32_t dynamic,
                                      int32_t seconds) {
    return fake::client_of(trace::format("dhcpv4 release %s %s %d %d", fake::mac(mac).c_str(),
                                         fake::ipv4(ipv4).c_str(), dynamic, seconds));
}

hbs_client *hbs_handle_dhcpv4_info(const uint8_t mac[6], const uint8_t ipv4[4], int32_t nwidx,
                                   int32_t adapter_type, hbs_dhcpv4_identity *identity) {
    memset(identity, 'x', sizeof(*identity));
    return fake::client_of(trace::format("dhcpv4 info %s %s %d %d", fake::mac(mac).c_str(),
                                         fake::ipv4(ipv4).c_str(), nwidx, adapter_type));
}

namespace fake {

constexpr hbs_dhcpv6_neighbour NEIGHBOUR = {true, {2, 0xaa, 0, 0, 0, 0x77}};
inline bool neighbour_came = false; // with the last DHCPv6 lease

} // namespace fake

hbs_dhcpv6_neighbour hbs_ask_dhcpv6_neighbour(const uint8_t *ll, const uint8_t *ipv6) {
    const char *lock = trace::list_is_locked() ? "locked " : "";
    fake::questions.push_back(lock + fake::ipv6(ll) + " " + fake::ipv6(ipv6));
    return fake::NEIGHBOUR;
}

hbs_client *hbs_handle_dhcpv6_lease(hbs_dhcpv6_lease *l, const hbs_dhcpv6_neighbour *neighbour) {
    fake::neighbour_came =
        neighbour->known && memcmp(neighbour->mac, fake::NEIGHBOUR.mac, sizeof neighbour->mac) == 0;
    hbs_client *client = fake::client_of(trace::format("dhcpv6 lease %s %s %lld '%s' '%s' '%s' '%s' '%s'",
                                                       fake::ipv6(l->ll).c_str(), fake::ipv6(l->ipv6).c_str(),
                                                       static_cast<long long>(l->lease_end), l->host, l->oui,
                                                       l->serial_number, l->product_class, l->lease_file));
    l->host[strcspn(l->host, ".")] = '\0'; // as the handler does
    return client;
}

hbs_client *hbs_handle_dhcpv6_release(const uint8_t *mac, const uint8_t ll[16], const uint8_t ipv6[16]) {
    return fake::client_of("dhcpv6 release " + fake::mac(mac) + " " + fake::ipv6(ll) + " " +
                           fake::ipv6(ipv6));
}

hbs_client *hbs_handle_wifi_association(const uint8_t mac[6], uint32_t ssid) {
    return fake::client_of("wifi association " + fake::mac(mac) + " " + ssid);
}

hbs_client *hbs_handle_wifi_disassociation(const uint8_t mac[6]) {
    return fake::client_of("wifi disassociation " + fake::mac(mac));
}

void hbs_update_wifi_assoc_info(const uint8_t mac[6]) {
    trace::add("wifi info " + fake::mac(mac));
}
void hbs_handle_xwifi_changed() {
    trace::add("xwifi changed");
}

int hbs_api_trust_by_mac(int kind, bool enable, const uint8_t mac[6], const char *comment) {
    return fake::called(trace::format("trust %d %d %s '%s'", kind, enable, fake::mac(mac).c_str(), comment));
}
int hbs_api_trust_by_ipv4(int kind, bool enable, const uint8_t ipv4[4], const char *comment) {
    return fake::called(
        trace::format("trust %d %d %s '%s'", kind, enable, fake::ipv4(ipv4).c_str(), comment));
}
int hbs_api_trust_by_ipv6(int kind, bool enable, const uint8_t ipv6[16], const char *comment) {
    return fake::called(
        trace::format("trust %d %d %s '%s'", kind, enable, fake::ipv6(ipv6).c_str(), comment));
}

int hbs_api_set_static_lease(const hbs_static_lease_request *r) {
    return fake::called(trace::format("set static lease %d %s %s '%s' '%s'", r->nwidx,
                                      fake::address(r->family, r->address).c_str(), fake::mac(r->mac).c_str(),
                                      r->comment, r->host));
}
int hbs_api_clr_static_lease(int family, const uint8_t *address) {
    return fake::called("clr static lease " + fake::address(family, address));
}
int hbs_api_set_internal_lease(int family, const uint8_t *address, const uint8_t mac[6]) {
    return fake::called("set internal lease " + fake::address(family, address) + " " + fake::mac(mac));
}
bool hbs_handle_comment_host(int family, const uint8_t *address, const char *comment, const char *host) {
    trace::add("comment host " + fake::address(family, address) + " '" + comment + "' '" + host + "'");
    return fake::client_exists;
}
int hbs_api_set_mac_filter(const hbs_filter_request *request) {
    const int result = fake::called("set filter " + fake::filter(request));
    return result == 0 ? 0 : result + 1000; // so that the reply of code 13 shows whose result it is
}
int hbs_api_clr_mac_filter(const hbs_filter_request *request) {
    return fake::called("clr filter " + fake::filter(request));
}
int hbs_set_route_mode(uint8_t mode) {
    return fake::called(std::string("route mode ") + mode);
}

bool hbs_api_clr_rule(const hbs_filter_request *request) {
    trace::add("clr rule " + fake::filter(request));
    return fake::client_exists;
}
bool hbs_api_set_rule(const hbs_filter_request *request) {
    trace::add(trace::format("set rule %s at %u", fake::filter(request).c_str(), request->rule_word));
    return fake::client_exists;
}

int hbs_handle_reset_defaults() {
    return fake::called("reset");
}
void hbs_handle_dump() {
    trace::add("dump");
}
int hbs_handle_subnet_change(uint32_t rndidx, uint32_t old_address, uint32_t new_address,
                             uint32_t prefix_length) {
    return fake::called(
        trace::format("subnet %u %08x %08x %u", rndidx, old_address, new_address, prefix_length));
}

int hbs_send_tr69_event(int code, const hbs_client *record) {
    const std::string what = record == nullptr ? "none" : "client " + fake::mac(record->mac);
    trace::add(std::string("tr69 ") + code + " " + what);
    return record == nullptr ? -1 : 0;
}
void hbs_send_tr69_static_lease_set(const hbs_msg_set_static_lease *datagram) {
    trace::add(std::string("tr69 1 datagram ") + datagram->code);
}
void hbs_send_tr69_static_lease_cleared(const hbs_msg_set_static_lease *datagram) {
    trace::add(std::string("tr69 2 datagram ") + datagram->code);
}
