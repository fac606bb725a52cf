#include "daemon/command_table.h"

#include <algorithm>
#include <array>

#include <hbs_msg.h>

#include "daemon/event_steps.h"
#include "daemon/setting_steps.h"

using enum hbs_reply;
using namespace hbs_steps;

#define ROW(code) code, #code

namespace {

// Columns: code and name, needs ready, reply, before, announce, handle, after.
// clang-format off
constexpr auto rows = std::to_array<hbs_command_row>({
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

} // namespace

// clang-format on

#undef ROW

namespace {

constexpr bool ascends(const hbs_command_row &a, const hbs_command_row &b) {
    return a.code < b.code;
}

// Strictly ascending: the search relies on it, and no code has two rows.
static_assert(std::adjacent_find(rows.begin(), rows.end(),
                                 [](const hbs_command_row &a, const hbs_command_row &b) {
                                     return !ascends(a, b);
                                 }) == rows.end());

} // namespace

std::span<const hbs_command_row> hbs_command_rows() {
    return rows;
}

const hbs_command_row *hbs_command_find(uint8_t code) {
    const hbs_command_row wanted{code, nullptr, false, none, nullptr, nullptr, nullptr, nullptr};
    const auto *row = std::lower_bound(rows.begin(), rows.end(), wanted, ascends);
    return row != rows.end() && row->code == code ? row : nullptr;
}
