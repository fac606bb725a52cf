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

// The watcher keeps the table as it is.
int common_router_refresh() {
    return linux_watch_start() && common_router_is_usable() ? 0 : EIO;
}
