#include "daemon/setting_steps.h"

#include <cstring>

#include <hbs_msg.h>

#include "base/log.h"
#include "base/text.h"
#include "daemon/command_table.h"
#include "events/comment.h"
#include "events/device_lists.h"
#include "events/maintenance.h"
#include "events/route_mode.h"
#include "events/static_lease.h"
#include "events/tr69_events.h"
#include "events/trust.h"

namespace {

// The address field that a family selects, or null for an unknown family.
const uint8_t *address_of(int family, const uint8_t *ipv4, const uint8_t *ipv6) {
    if (family == HBS_FAMILY_IPV4)
        return ipv4;
    return family == HBS_FAMILY_IPV6 ? ipv6 : nullptr;
}

} // namespace

// --- leases ----------------------------------------

void hbs_steps::announce_set_static_lease(hbs_command *command) {
    const hbs_msg_set_static_lease &message = command->datagram.set_static_lease;
    HBS_LOG(HBS_INFO, "HOSTBASE: SET STATIC LEASE CMD from %s", command->sender);
    if (message.family == HBS_FAMILY_IPV4)
        HBS_LOG(HBS_INFO, "HBS_CMD_SET_STATIC_LEASE: address is 0x%08x\n", hbs_ipv4_to_number(message.ipv4));
}

void hbs_steps::set_static_lease(hbs_command *command) {
    const hbs_msg_set_static_lease &message = command->datagram.set_static_lease;
    hbs_static_lease_request request;
    if (hbs_static_lease_of(&message, &request))
        command->result = hbs_api_set_static_lease(&request);
}

void hbs_steps::send_static_lease_set(hbs_command *command) {
    hbs_send_tr69_static_lease_set(&command->datagram.set_static_lease);
}

// The event reads its datagram with the layout of code 2: kept, see events/tr69_events.h.
void hbs_steps::send_static_lease_cleared(hbs_command *command) {
    hbs_send_tr69_static_lease_cleared(&command->datagram.set_static_lease);
}

void hbs_steps::announce_clr_static_lease(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: CLEAR STATIC LEASE CMD from %s", command->sender);
}

void hbs_steps::clr_static_lease(hbs_command *command) {
    const hbs_msg_clr_static_lease &message = command->datagram.clr_static_lease;
    const uint8_t *address = address_of(message.family, message.ipv4, message.ipv6);
    if (address != nullptr)
        command->result = hbs_api_clr_static_lease(message.family, address);
}

void hbs_steps::announce_set_internal_lease(hbs_command *command) {
    const hbs_msg_set_internal_lease &message = command->datagram.set_internal_lease;
    HBS_LOG(HBS_INFO, "HOSTBASE: SET INTERNAL LEASE CMD from %s", command->sender);
    if (message.family == HBS_FAMILY_IPV4) {
        HBS_LOG(HBS_INFO, "HBS_CMD_SET_INTERNAL_LEASE: address is 0x%08x\n",
                hbs_ipv4_to_number(message.ipv4));
    }
}

void hbs_steps::set_internal_lease(hbs_command *command) {
    const hbs_msg_set_internal_lease &message = command->datagram.set_internal_lease;
    const uint8_t *address = address_of(message.family, message.ipv4, message.ipv6);
    if (address != nullptr)
        command->result = hbs_api_set_internal_lease(message.family, address, message.mac);
}

namespace {

// --- trust ----------------------------------------

// Sets or clears by the key that the selector names; for an unknown one there is nothing to do.
void change_trust(hbs_command *command, const hbs_msg_trusted &message, bool enable, const char *comment) {
    switch (message.selector) {
    case HBS_SELECT_MAC:
        command->result = hbs_api_trust_by_mac(message.action, enable, message.mac, comment);
        break;
    case HBS_SELECT_IPV4:
        command->result = hbs_api_trust_by_ipv4(message.action, enable, message.ipv4, comment);
        break;
    case HBS_SELECT_IPV6:
        command->result = hbs_api_trust_by_ipv6(message.action, enable, message.ipv6, comment);
        break;
    default:
        break;
    }
}

bool is_known(uint8_t selector) {
    return selector == HBS_SELECT_MAC || selector == HBS_SELECT_IPV4 || selector == HBS_SELECT_IPV6;
}

} // namespace

void hbs_steps::announce_set_trusted(hbs_command *command) {
    const hbs_msg_trusted &message = command->datagram.trusted;
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
    default: // in bridge mode, too, the sender is told that it makes no sense
        HBS_LOG(HBS_ERROR, "HOSTBASE: un_listen_thread: HBS_CMD_SET_TRUSTED trust action unknown");
        command->result = -1;
    }
}

void hbs_steps::set_trusted(hbs_command *command) {
    const hbs_msg_trusted &message = command->datagram.trusted;
    change_trust(command, message, true, message.comment);
}

void hbs_steps::announce_clr_trusted(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: CLR TRUSTED CMD from %s", command->sender);
    if (!is_known(command->datagram.trusted.selector)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: un_listen_thread: HBS_CMD_CLR_TRUSTED trust action unknown");
        command->result = -1;
    }
}

void hbs_steps::clr_trusted(hbs_command *command) {
    change_trust(command, command->datagram.trusted, false, "");
}

// --- filters and rules ----------------------------------------

void hbs_steps::announce_set_macfilter(hbs_command *command) {
    const hbs_msg_filter &message = command->datagram.filter;
    HBS_LOG(HBS_INFO, "HOSTBASE: un_listen_thread: HBS_CMD_SET_MACFILTER : comment is %s", message.comment);
}

void hbs_steps::set_macfilter(hbs_command *command) {
    const hbs_msg_filter &message = command->datagram.filter;
    const hbs_filter_request request = hbs_filter_of(&message);
    command->result = hbs_api_set_mac_filter(&request);
}

void hbs_steps::announce_clr_macfilter(hbs_command *) {
    HBS_LOG(HBS_INFO, "HOSTBASE: un_listen_thread: HBS_CMD_CLR_MACFILTER");
}

void hbs_steps::clr_macfilter(hbs_command *command) {
    const hbs_msg_filter &message = command->datagram.filter;
    const hbs_filter_request request = hbs_filter_of(&message);
    command->result = hbs_api_clr_mac_filter(&request);
}

void hbs_steps::mod_macfilter(hbs_command *command) {
    const hbs_msg_filter &message = command->datagram.filter;
    hbs_filter_request request = hbs_filter_of(&message);
    memcpy(request.mac, message.new_mac, sizeof(request.mac));
    (void)hbs_api_set_mac_filter(&request);
    memcpy(request.mac, message.mac, sizeof(request.mac));
    command->result = hbs_api_clr_mac_filter(&request);
}

void hbs_steps::clr_rule_tod(hbs_command *command) {
    const hbs_filter_request request = hbs_filter_of(&command->datagram.filter);
    if (hbs_api_clr_rule(&request))
        command->result = 0;
}

void hbs_steps::set_rule_tod(hbs_command *command) {
    const hbs_filter_request request = hbs_filter_of(&command->datagram.filter);
    if (hbs_api_set_rule(&request))
        command->result = 0;
}

// --- other commands ----------------------------------------

void hbs_steps::log_set_route_mode(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: un_listen_thread: HBS_CMD_SET_ROUTE_MODE : %d",
            command->datagram.route_mode.mode);
}

void hbs_steps::set_route_mode(hbs_command *command) {
    command->result = hbs_set_route_mode(command->datagram.route_mode.mode);
}

void hbs_steps::log_reset_defaults(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS_CMD_RESET_DEFAULTS from %s", command->sender);
}

void hbs_steps::reset_defaults(hbs_command *command) {
    command->result = hbs_handle_reset_defaults();
}

void hbs_steps::dump(hbs_command *command) {
    hbs_handle_dump();
    command->result = 0;
}

void hbs_steps::set_comment_host(hbs_command *command) {
    const hbs_msg_comment_host &message = command->datagram.comment_host;
    const uint8_t *address = address_of(message.family, message.ipv4, message.ipv6);
    if (address != nullptr && hbs_handle_comment_host(message.family, address, message.comment, message.host))
        command->result = 0;
}
