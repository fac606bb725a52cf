// The steps of the events that other programs tell of; the command table says when each runs.
#pragma once

struct hbs_command;

namespace hbs_steps {

void log_server(hbs_command *command);
void server(hbs_command *command);
void announce_subnet_mask(hbs_command *command);
void change_subnet(hbs_command *command);
void announce_wifi_assoc(hbs_command *command);
void announce_wifi_disassoc(hbs_command *command);
void wifi_assoc(hbs_command *command);
void wifi_disassoc(hbs_command *command);
void announce_wifi_assoc_info(hbs_command *command);
void wifi_assoc_info(hbs_command *command);
void announce_xwifi_changed(hbs_command *command);
void xwifi_changed(hbs_command *command);
void announce_dhcpv4_lease(hbs_command *command);
void dhcpv4_lease(hbs_command *command);
void send_dhcpv4_lease(hbs_command *command);
void dhcpv4_info(hbs_command *command);
void send_dhcpv4_info(hbs_command *command);
void dhcpv4_release(hbs_command *command);
void announce_and_ask_dhcpv6_lease(hbs_command *command);
void dhcpv6_lease(hbs_command *command);
void send_dhcpv6_lease(hbs_command *command);
void announce_dhcpv6_release(hbs_command *command);
void dhcpv6_release(hbs_command *command);
void send_dhcpv6_release(hbs_command *command);

} // namespace hbs_steps
