// What platform/common asks of this platform.
#include <cerrno>

#include "common_hooks.h"
#include "common_router.h"
#include "linux_log.h"
#include "linux_watch.h"

// Nothing fails by order here.
bool common_call_fails(const char *, int *) {
    return false;
}

void common_note_effect(common_line *line) {
    linux_log(9, "%.*s", static_cast<int>(line->length), line->text);
}

// The watcher has put the table there and goes on doing so: it is read back.
int common_router_read(common_router_table *table) {
    return linux_watch_start() && common_router_current(table) ? 0 : EIO;
}
