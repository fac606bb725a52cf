// The live table of clients.
#pragma once

#include "tools/client_selection.h"
#include "tools/session.h"

struct watch_options {
    double seconds = 1;
    unsigned looks = 0; // 0 = until it is interrupted
    client_selection which;
};

// Throws database_error when there is nothing to watch at the start; a later failure is shown and
// looked at again. The run's status is that of the last look.
void watch(session &run, const watch_options &options);
