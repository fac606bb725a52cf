// Sends a command and tells what it changed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/look.h"
#include "tools/objections.h"
#include "tools/requests.h"
#include "tools/session.h"

struct command_plan {
    std::string name; // what was asked for
    hbs_code code;
    datagram message;
    objection why_not;                                    // why it cannot be meant
    std::function<std::vector<fact>(const look &)> facts; // all that it may change
};

// The look before a command, which every command of a user begins with.
look look_first(const session &run);

// Unless there is an objection, sends the command, looks again, prints what changed, and sets the status:
// exit_negative when nothing did. In bridge mode the daemon ignores all these commands, which counts as an
// objection.
void carry_out(session &run, const look &before, const command_plan &plan);

// Sends a command that needs no look, and prints what its answer means.
void carry_out_blindly(session &run, const std::string &name, hbs_code code, const datagram &message);

// Sends an event, unless there is an objection, and prints that it was sent: events are not answered.
void tell_event(session &run, const std::string &name, hbs_code code, const datagram &message,
                const objection &why_not = {});

// Prints changes, or that there are none, and sets the status.
void print_outcome(session &run, const std::string &name, const std::vector<change> &changes,
                   const std::string &remark = "");

// Throws run_error that tells of the objection, unless there is none or --force was given.
void heed(const session &run, const std::string &name, const objection &why_not);
