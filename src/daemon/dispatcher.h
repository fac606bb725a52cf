// Takes one datagram of the command socket through its row of the command table.
#pragma once

#include "daemon/command_table.h"

// Everything up to the reply: logs, locks, gates and handles. Returns whether command->result is to be
// sent to the sender. Where no handler runs, the result stays that of the previous command.
bool hbs_dispatch(hbs_command *command);

// What follows the reply; to be called for every datagram, once its reply was sent.
void hbs_dispatch_after(hbs_command *command);
