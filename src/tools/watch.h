// The live table of clients.
#pragma once

#include "tools/session.h"

struct watch_options {
    double seconds = 1;
    unsigned looks = 0; // 0 = until it is interrupted
};

// Throws database_error when there is nothing to watch at the start; a later failure is shown and
// looked at again.
void watch(session &run, const watch_options &options);
