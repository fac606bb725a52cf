// What the daemon does with each code of the command socket: one table, a row a code.
#pragma once

#include <cstdint>
#include <span>

#include <hbs_db.h>

#include "daemon/command_message.h"
#include "events/dhcpv6.h"

// One datagram on its way through the daemon.
struct hbs_command {
    uint8_t *buffer;       // HBS_MSG_MAX bytes: what a short datagram leaves over is its predecessor's
    hbs_datagram datagram; // what the steps read; hbs_dispatch fills it from the buffer
    const char *sender;    // tag for log lines
    int32_t result;        // what a reply carries; kept from datagram to datagram
    bool has_client;       // whether an event handler returned a client ...
    hbs_client client;     // ... and a copy of it, because the TR-069 event is sent without the lock
    hbs_dhcpv6_neighbour neighbour; // of a DHCPv6 lease, asked for before the lock is taken
};

enum class hbs_reply {
    none,        // an event
    plain,       // logged "Send response %d to %s"
    to,          // logged "Send response to %d to %s"
    subnet_mask, // has a line of its own
    unlogged
};

using hbs_command_step = void (*)(hbs_command *command);

// The steps in the order they run in; each may be null.
struct hbs_command_row {
    uint8_t code;
    const char *name;
    bool needs_ready; // handle is skipped while hbs_db_ready is 0
    hbs_reply reply;
    hbs_command_step before;   // before the lock is taken
    hbs_command_step announce; // under the lock, ready or not: what came in, to the log
    hbs_command_step handle;   // under the lock
    hbs_command_step after;    // after the reply, without the lock
};

// All rows, by ascending code.
std::span<const hbs_command_row> hbs_command_rows();

// The row of a code, or null for a code that means nothing.
const hbs_command_row *hbs_command_find(uint8_t code);
