// Process controller: there is none on the host; fatal signals still reach the program's handler, and the
// journal shows what the controller would have been told.
#include <cstring>

#include <pcd.h>

#include "common_signals.h"
#include "host_journal.h"
#include "host_values.h"

int PCD_api_register_exception_handlers(const char *name, void (*handler)(int signal_number)) {
    int result = 0;
    if (host_call_fails("PCD_api_register_exception_handlers", &result))
        return result;
    if (name == nullptr || handler == nullptr)
        return -1;
    if (!common_catch_fatal_signals(handler))
        return -1;
    common_line line;
    common_line_add(&line, "pcd register ");
    common_line_add_escaped(&line, name, strlen(name), common_quotes::plain);
    host_journal_write(&line);
    return 0;
}

int PCD_api_send_process_ready(void) {
    int result = 0;
    if (host_call_fails("PCD_api_send_process_ready", &result))
        return result;
    common_line line;
    common_line_add(&line, "pcd ready");
    host_journal_write(&line);
    return 0;
}
