#include "daemon/command_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include <hbs_msg.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "daemon/command_message.h"
#include "events/dhcp_server.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "events/management.h"
#include "events/tr69_events.h"
#include "events/wifi.h"
#include "files/client_file.h"
#include "files/rule_files.h"
#include "gateway/lease_files.h"
#include "store/clients.h"
#include "store/dump.h"
#include "store/publish.h"
#include "store/rule_index.h"

// --- helpers ----------------------------------------

// The address field that a family selects, or null for an unknown family.
static const uint8_t *address_of(int family, const uint8_t *ipv4, const uint8_t *ipv6) {
    if (family == HBS_FAMILY_IPV4)
        return ipv4;
    return family == HBS_FAMILY_IPV6 ? ipv6 : nullptr;
}

static void keep_client(hbs_command *command, const hbs_client *client) {
    command->has_client = client != nullptr;
    if (client != nullptr)
        command->client = *client;
}

static const hbs_client *kept_client(const hbs_command *command) {
    return command->has_client ? &command->client : nullptr;
}

// --- commands: leases ----------------------------------------

static void announce_set_static_lease(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_set_static_lease>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: SET STATIC LEASE CMD from %s", command->sender);
    if (message.family == HBS_FAMILY_IPV4)
        HBS_LOG(HBS_INFO, "HBS_CMD_SET_STATIC_LEASE: address is 0x%08x\n", hbs_ipv4_to_number(message.ipv4));
}

static void set_static_lease(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_set_static_lease>(command->buffer);
    hbs_static_lease_request request;
    if (hbs_static_lease_of(&message, &request))
        command->result = hbs_api_set_static_lease(&request);
}

static void send_static_lease_set(hbs_command *command) {
    (void)hbs_send_tr69_event(HBS_TR69_STATIC_LEASE_SET, command->buffer);
}

static void send_static_lease_cleared(hbs_command *command) {
    (void)hbs_send_tr69_event(HBS_TR69_STATIC_LEASE_CLEARED, command->buffer);
}

static void announce_clr_static_lease(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: CLEAR STATIC LEASE CMD from %s", command->sender);
}

static void clr_static_lease(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_clr_static_lease>(command->buffer);
    const uint8_t *address = address_of(message.family, message.ipv4, message.ipv6);
    if (address != nullptr)
        command->result = hbs_api_clr_static_lease(message.family, address);
}

static void announce_set_internal_lease(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_set_internal_lease>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: SET INTERNAL LEASE CMD from %s", command->sender);
    if (message.family == HBS_FAMILY_IPV4) {
        HBS_LOG(HBS_INFO, "HBS_CMD_SET_INTERNAL_LEASE: address is 0x%08x\n",
                hbs_ipv4_to_number(message.ipv4));
    }
}

static void set_internal_lease(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_set_internal_lease>(command->buffer);
    const uint8_t *address = address_of(message.family, message.ipv4, message.ipv6);
    if (address != nullptr)
        command->result = hbs_api_set_internal_lease(message.family, address, message.mac);
}

// --- commands: trust ----------------------------------------

// Sets or clears by the key that the selector names. Returns false for an unknown selector.
static bool change_trust(hbs_command *command, const hbs_msg_trusted &message, bool enable,
                         const char *comment) {
    switch (message.selector) {
    case HBS_SELECT_MAC:
        command->result = hbs_api_trust_by_mac(message.action, enable, message.mac, comment);
        return true;
    case HBS_SELECT_IPV4:
        command->result = hbs_api_trust_by_ipv4(message.action, enable, message.ipv4, comment);
        return true;
    case HBS_SELECT_IPV6:
        command->result = hbs_api_trust_by_ipv6(message.action, enable, message.ipv6, comment);
        return true;
    default:
        return false;
    }
}

static void announce_set_trusted(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_trusted>(command->buffer);
    switch (message.selector) {
    case HBS_SELECT_MAC:
        HBS_LOG(HBS_INFO, "HOSTBASE: SET TRUSTED BY MAC %s from %s", hbs_mac_to_text(message.mac).text,
                command->sender);
        break;
    case HBS_SELECT_IPV4:
        HBS_LOG(HBS_INFO, "HOSTBASE: SET TRUSTED BY IPV4 %s from %s", hbs_ipv4_to_text(message.ipv4).text,
                command->sender);
        break;
    case HBS_SELECT_IPV6:
        HBS_LOG(HBS_INFO, "HOSTBASE: SET TRUSTED BY IPV6 %s from %s", hbs_ipv6_to_text(message.ipv6).text,
                command->sender);
        break;
    default:
        break;
    }
}

static void set_trusted(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_trusted>(command->buffer);
    if (!change_trust(command, message, true, hbs_text_of(message.comment))) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: un_listen_thread: HBS_CMD_SET_TRUSTED trust action unknown");
        command->result = -1;
    }
}

static void announce_clr_trusted(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: CLR TRUSTED CMD from %s", command->sender);
}

static void clr_trusted(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_trusted>(command->buffer);
    if (!change_trust(command, message, false, "")) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: un_listen_thread: HBS_CMD_CLR_TRUSTED trust action unknown");
        command->result = -1;
    }
}

// --- commands: filters and rules ----------------------------------------

static void announce_set_macfilter(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_filter>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: un_listen_thread: HBS_CMD_SET_MACFILTER : comment is %s",
            hbs_text_of(message.comment));
}

static void set_macfilter(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_filter>(command->buffer);
    const hbs_filter_request request = hbs_filter_of(&message);
    command->result = hbs_api_set_mac_filter(&request);
}

static void announce_clr_macfilter(hbs_command *) {
    HBS_LOG(HBS_INFO, "HOSTBASE: un_listen_thread: HBS_CMD_CLR_MACFILTER");
}

static void clr_macfilter(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_filter>(command->buffer);
    const hbs_filter_request request = hbs_filter_of(&message);
    command->result = hbs_api_clr_mac_filter(&request);
}

static void mod_macfilter(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_filter>(command->buffer);
    hbs_filter_request request = hbs_filter_of(&message);
    memcpy(request.mac, message.new_mac, sizeof(request.mac));
    (void)hbs_api_set_mac_filter(&request);
    memcpy(request.mac, message.mac, sizeof(request.mac));
    command->result = hbs_api_clr_mac_filter(&request);
}

static const char *rule_file_of(uint8_t type) {
    return type == HBS_LIST_BLACK ? HBS_BLACK_RULES : HBS_WHITE_RULES;
}

static void clr_rule_tod(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_filter>(command->buffer);
    if (hbs_find_by_mac(message.mac) == nullptr)
        return;
    command->result = 0;
    const hbs_rule rule = hbs_rule_of(&message);
    bool rules_left = false;
    (void)hbs_nv_clear_client_rules(rule_file_of(message.type), message.mac, &rule, &rules_left);
    hbs_file_remove_rule_idx(message.type, message.mac, message.value1, message.value2, message.value3);
}

static void set_rule_tod(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_filter>(command->buffer);
    const hbs_client *client = hbs_find_by_mac(message.mac);
    if (client == nullptr)
        return;
    command->result = 0;
    const hbs_rule rule = hbs_rule_of(&message);
    (void)hbs_nv_update_client_white_rules(rule_file_of(message.type), message.mac, &rule);
    const uint32_t parameters[7] = {message.value1, message.value2, message.value3, client->dbpos,
                                    message.value4, message.value5, message.value6};
    hbs_file_update_rule_tr69_tod(message.type, message.mac, parameters, message.rule_word);
}

// --- other commands ----------------------------------------

static void log_set_route_mode(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: un_listen_thread: HBS_CMD_SET_ROUTE_MODE : %d",
            hbs_message_of<hbs_msg_route_mode>(command->buffer).mode);
}

static void set_route_mode(hbs_command *command) {
    command->result = hbs_set_route_mode(hbs_message_of<hbs_msg_route_mode>(command->buffer).mode);
}

static void log_reset_defaults(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS_CMD_RESET_DEFAULTS from %s", command->sender);
}

static void reset_defaults(hbs_command *command) {
    command->result = hbs_nv_reset();
}

static void dump(hbs_command *command) {
    hbs_db_dump();
    command->result = 0;
}

static void set_comment_host(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_comment_host>(command->buffer);
    hbs_client *client = nullptr;
    if (message.family == HBS_FAMILY_IPV4)
        client = hbs_find_by_ipv4(message.ipv4);
    else if (message.family == HBS_FAMILY_IPV6)
        client = hbs_find_by_ipv6(message.ipv6);
    if (client != nullptr) {
        command->result =
            hbs_api_set_comment_host(client, hbs_text_of(message.comment), hbs_text_of(message.host));
    }
}

// --- events: networks ----------------------------------------

static void log_server(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_server>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS_EVENT_SERVER from %s index %d, started %d", command->sender,
            static_cast<int>(message.index), static_cast<int>(message.started));
}

static void server(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_server>(command->buffer);
    hbs_handle_dhcp_server(message.index, message.started);
}

static void announce_subnet_mask(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS_EVENT_SUBNET_MASK from %s", command->sender);
}

static void change_subnet(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_subnet>(command->buffer);
    command->result =
        hbs_lease_subnet4_changed(message.index, message.old_ipv4, message.new_ipv4, message.prefix_length);
}

// --- events: Wi-Fi ----------------------------------------

static void announce_wifi_assoc(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_wifi_assoc>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: WIFI ASSOC EVT from %s : mac %s, index %d", command->sender,
            hbs_text_of(message.mac_text), static_cast<int>(message.ssid));
}

static void announce_wifi_disassoc(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_wifi_assoc>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: WIFI DISASSOC EVT from %s : mac %s", command->sender,
            hbs_text_of(message.mac_text));
}

// A text that is no MAC address names no station.
static void wifi_assoc(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_wifi_assoc>(command->buffer);
    uint8_t mac[HBS_MAC_SIZE];
    if (hbs_text_to_mac(hbs_text_of(message.mac_text), mac) == HBS_MAC_SIZE)
        (void)hbs_handle_wifi_association(mac, message.ssid);
}

static void wifi_disassoc(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_wifi_assoc>(command->buffer);
    uint8_t mac[HBS_MAC_SIZE];
    if (hbs_text_to_mac(hbs_text_of(message.mac_text), mac) == HBS_MAC_SIZE)
        (void)hbs_handle_wifi_disassociation(mac);
}

static void announce_wifi_assoc_info(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: WIFI ASSOC INFO INFO UPDATE EVT from %s", command->sender);
}

static void wifi_assoc_info(hbs_command *command) {
    hbs_update_wifi_assoc_info(hbs_message_of<hbs_msg_wifi_info>(command->buffer).mac);
}

static void announce_xwifi_changed(hbs_command *) {
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS XWIFI CHANGED event received");
}

static void xwifi_changed(hbs_command *) {
    hbs_shm_mark_hotspot();
}

// --- events: leases ----------------------------------------

static void announce_dhcpv4_lease(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_dhcpv4>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV4 LEASE EVT from %s : mac %s, ip %s", command->sender,
            hbs_mac_to_text(message.mac).text, hbs_ipv4_to_text(message.ipv4).text);
}

static void dhcpv4_lease(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_dhcpv4>(command->buffer);
    const hbs_dhcpv4_lease lease = hbs_dhcpv4_lease_of(&message);
    keep_client(command, hbs_handle_dhcpv4_lease(&lease));
}

static void send_dhcpv4_lease(hbs_command *command) {
    if (command->has_client)
        (void)hbs_send_tr69_event(HBS_TR69_DHCPV4_LEASE, &command->client);
}

// The client's identity goes into the datagram itself, where a short one behind it finds it.
static void dhcpv4_info(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_dhcpv4>(command->buffer);
    hbs_dhcpv4_identity identity{};
    const hbs_client *client =
        hbs_handle_dhcpv4_info(message.mac, message.ipv4, static_cast<int32_t>(message.nwidx),
                               static_cast<int32_t>(message.adapter_type), &identity);
    keep_client(command, client);
    static_assert(offsetof(hbs_msg_dhcpv4, oui) + sizeof(identity) == offsetof(hbs_msg_dhcpv4, lease_file));
    if (client != nullptr)
        memcpy(command->buffer + offsetof(hbs_msg_dhcpv4, oui), &identity, sizeof(identity));
}

static void send_dhcpv4_info(hbs_command *command) {
    (void)hbs_send_tr69_event(HBS_TR69_DHCPV4_INFO, kept_client(command));
}

static void dhcpv4_release(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_dhcpv4_release>(command->buffer);
    (void)hbs_handle_dhcpv4_release(message.mac, message.ipv4, static_cast<int32_t>(message.dynamic),
                                    static_cast<int32_t>(message.seconds));
}

// Announced under the lock; the kernel is asked without it.
static void announce_and_ask_dhcpv6_lease(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_dhcpv6>(command->buffer);
    {
        const hbs_list_hold hold;
        HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV6 LEASE EVT from %s : address %s (%s)", command->sender,
                hbs_ipv6_to_text(message.ipv6).text, hbs_ipv6_to_text(message.ll).text);
    }
    command->neighbour = hbs_ask_dhcpv6_neighbour(message.ll, message.ipv6);
}

static void dhcpv6_lease(hbs_command *command) {
    auto message = hbs_message_of<hbs_msg_dhcpv6>(command->buffer);
    hbs_dhcpv6_lease lease = hbs_dhcpv6_lease_of(&message);
    lease.neighbour = command->neighbour;
    keep_client(command, hbs_handle_dhcpv6_lease(&lease));
}

static void send_dhcpv6_lease(hbs_command *command) {
    if (command->has_client)
        (void)hbs_send_tr69_event(HBS_TR69_DHCPV6_LEASE, &command->client);
}

static void announce_dhcpv6_release(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_dhcpv6_release>(command->buffer);
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV6 RELEASE EVT from %s : address %s (%s)", command->sender,
            hbs_ipv6_to_text(message.ipv6).text, hbs_ipv6_to_text(message.ll).text);
}

static void dhcpv6_release(hbs_command *command) {
    const auto message = hbs_message_of<hbs_msg_dhcpv6_release>(command->buffer);
    keep_client(command, hbs_handle_dhcpv6_release(nullptr, message.ll));
}

static void send_dhcpv6_release(hbs_command *command) {
    (void)hbs_send_tr69_event(HBS_TR69_DHCPV6_RELEASE, kept_client(command));
}

// --- the table ----------------------------------------

using enum hbs_reply;

#define ROW(code) code, #code

// Columns: code and name, needs ready, reply, before, announce, handle, after.
// clang-format off
static constexpr auto rows = std::to_array<hbs_command_row>({
    {ROW(HBS_CMD_SET_ROUTE_MODE), false, to, log_set_route_mode, nullptr, set_route_mode, nullptr},
    {ROW(HBS_CMD_SET_STATIC_LEASE), true, plain, nullptr, announce_set_static_lease, set_static_lease, send_static_lease_set},
    {ROW(HBS_CMD_CLR_STATIC_LEASE), true, to, send_static_lease_cleared, announce_clr_static_lease, clr_static_lease, nullptr},
    {ROW(HBS_CMD_SET_INTERNAL_LEASE), true, plain, nullptr, announce_set_internal_lease, set_internal_lease, nullptr},
    {ROW(HBS_CMD_SET_TRUSTED), true, to, nullptr, announce_set_trusted, set_trusted, nullptr},
    {ROW(HBS_CMD_CLR_TRUSTED), true, to, nullptr, announce_clr_trusted, clr_trusted, nullptr},
    {ROW(HBS_CMD_SET_MACFILTER), true, to, nullptr, announce_set_macfilter, set_macfilter, nullptr},
    {ROW(HBS_CMD_CLR_MACFILTER), true, to, nullptr, announce_clr_macfilter, clr_macfilter, nullptr},
    {ROW(HBS_CMD_RESET_DEFAULTS), false, to, log_reset_defaults, nullptr, reset_defaults, nullptr},
    {ROW(HBS_CMD_CLR_RULE_TOD), false, to, nullptr, nullptr, clr_rule_tod, nullptr},
    {ROW(HBS_CMD_SET_RULE_TOD), false, to, nullptr, nullptr, set_rule_tod, nullptr},
    {ROW(HBS_CMD_MOD_MACFILTER), true, to, nullptr, nullptr, mod_macfilter, nullptr},
    {ROW(HBS_CMD_DUMP), false, unlogged, nullptr, nullptr, dump, nullptr},
    {ROW(HBS_EVENT_SERVER), false, none, log_server, nullptr, server, nullptr},
    {ROW(HBS_EVENT_SUBNET_MASK), true, subnet_mask, nullptr, announce_subnet_mask, change_subnet, nullptr},
    {ROW(HBS_EVENT_WIFI_ASSOC), true, none, nullptr, announce_wifi_assoc, wifi_assoc, nullptr},
    {ROW(HBS_EVENT_WIFI_DISASSOC), true, none, nullptr, announce_wifi_disassoc, wifi_disassoc, nullptr},
    {ROW(HBS_EVENT_DHCPV4_LEASE), true, none, nullptr, announce_dhcpv4_lease, dhcpv4_lease, send_dhcpv4_lease},
    {ROW(HBS_EVENT_DHCPV6_LEASE), true, none, announce_and_ask_dhcpv6_lease, nullptr, dhcpv6_lease, send_dhcpv6_lease},
    {ROW(HBS_EVENT_DHCPV4_INFO), true, none, nullptr, nullptr, dhcpv4_info, send_dhcpv4_info},
    {ROW(HBS_EVENT_DHCPV6_RELEASE), true, none, nullptr, announce_dhcpv6_release, dhcpv6_release, send_dhcpv6_release},
    {ROW(HBS_EVENT_DHCPV4_RELEASE), true, none, nullptr, nullptr, dhcpv4_release, nullptr},
    {ROW(HBS_EVENT_WIFI_ASSOC_INFO), true, none, nullptr, announce_wifi_assoc_info, wifi_assoc_info, nullptr},
    {ROW(HBS_CMD_SET_COMMENT_HOST), true, to, nullptr, nullptr, set_comment_host, nullptr},
    {ROW(HBS_EVENT_XWIFI_CHANGED), true, none, nullptr, announce_xwifi_changed, xwifi_changed, nullptr},
});
// clang-format on

#undef ROW

static constexpr bool ascends(const hbs_command_row &a, const hbs_command_row &b) {
    return a.code < b.code;
}

// Strictly ascending: the search relies on it, and no code has two rows.
static_assert(std::adjacent_find(rows.begin(), rows.end(),
                                 [](const hbs_command_row &a, const hbs_command_row &b) {
                                     return !ascends(a, b);
                                 }) == rows.end());

std::span<const hbs_command_row> hbs_command_rows() {
    return rows;
}

const hbs_command_row *hbs_command_find(uint8_t code) {
    const hbs_command_row wanted{code, nullptr, false, none, nullptr, nullptr, nullptr, nullptr};
    const auto *row = std::lower_bound(rows.begin(), rows.end(), wanted, ascends);
    return row != rows.end() && row->code == code ? row : nullptr;
}
