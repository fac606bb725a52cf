// The steps of the commands by which users and the gateway set something; the command table says when each
// runs.
#pragma once

struct hbs_command;

namespace hbs_steps {

void announce_set_static_lease(hbs_command *command);
void set_static_lease(hbs_command *command);
void send_static_lease_set(hbs_command *command);
void send_static_lease_cleared(hbs_command *command);
void announce_clr_static_lease(hbs_command *command);
void clr_static_lease(hbs_command *command);
void announce_set_internal_lease(hbs_command *command);
void set_internal_lease(hbs_command *command);
void announce_set_trusted(hbs_command *command);
void set_trusted(hbs_command *command);
void announce_clr_trusted(hbs_command *command);
void clr_trusted(hbs_command *command);
void announce_set_macfilter(hbs_command *command);
void set_macfilter(hbs_command *command);
void announce_clr_macfilter(hbs_command *command);
void clr_macfilter(hbs_command *command);
void mod_macfilter(hbs_command *command);
void clr_rule_tod(hbs_command *command);
void set_rule_tod(hbs_command *command);
void log_set_route_mode(hbs_command *command);
void set_route_mode(hbs_command *command);
void log_reset_defaults(hbs_command *command);
void reset_defaults(hbs_command *command);
void dump(hbs_command *command);
void set_comment_host(hbs_command *command);

} // namespace hbs_steps
