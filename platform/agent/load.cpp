// Part of the host platform: loads the small agent library into the process when the file of values names
// one, before the program's main function, as if the program had been linked to it.
#include <cstring>
#include <dlfcn.h>

#include "host_journal.h"
#include "host_values.h"

namespace {

// Every symbol that the library needs is looked up now: a missing one fails the load, not a later call.
void load(const char *library) {
    const char *error = dlopen(library, RTLD_NOW | RTLD_LOCAL) == nullptr ? dlerror() : nullptr;
    common_line line;
    if (error == nullptr) {
        common_line_add(&line, "agent loaded");
    } else {
        common_line_add(&line, "agent not loaded: ");
        common_line_add_escaped(&line, error, strlen(error), common_quotes::plain);
    }
    host_journal_write(&line);
}

__attribute__((constructor)) void load_agent() {
    char library[512];
    bool wanted = false;
    {
        host_values_hold hold;
        wanted = common_copy_whole(library, sizeof library, host_value("agent.library"));
    }
    if (wanted)
        load(library);
}

} // namespace
