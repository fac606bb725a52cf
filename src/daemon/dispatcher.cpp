#include "daemon/dispatcher.h"

#include "base/log.h"
#include "base/state.h"

namespace {

void run(hbs_command_step step, hbs_command *command) {
    if (step != nullptr)
        step(command);
}

// Codes 2 and 4 say "response %d", every other answered command "response to %d".
void log_reply(hbs_reply reply, const hbs_command *command) {
    switch (reply) {
    case hbs_reply::none:
    case hbs_reply::unlogged:
        return;
    case hbs_reply::plain:
        HBS_LOG(HBS_INFO, "HOSTBASE: Send response %d to %s", command->result, command->sender);
        return;
    case hbs_reply::to:
        HBS_LOG(HBS_INFO, "HOSTBASE: Send response to %d to %s", command->result, command->sender);
        return;
    case hbs_reply::subnet_mask:
        HBS_LOG(HBS_INFO, "HOSTBASE: Send HBS_EVENT_SUBNET_MASK response to %d to %s", command->result,
                command->sender);
        return;
    }
}

} // namespace

bool hbs_dispatch(hbs_command *command) {
    const hbs_command_row *row = hbs_command_find(command->buffer[0]);
    command->has_client = false;
    if (row == nullptr)
        return false;
    command->datagram = hbs_datagram_read(command->buffer);
    run(row->before, command);
    hbs_list_hold hold;
    run(row->announce, command);
    if (hbs_db_ready != 0 || !row->needs_ready)
        run(row->handle, command);
    log_reply(row->reply, command);
    return row->reply != hbs_reply::none;
}

void hbs_dispatch_after(hbs_command *command) {
    const hbs_command_row *row = hbs_command_find(command->buffer[0]);
    if (row != nullptr)
        run(row->after, command);
}
