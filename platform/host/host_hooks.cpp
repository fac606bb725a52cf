// The file of values makes calls fail; the journal has their effects.
#include "common_hooks.h"
#include "host_journal.h"
#include "host_values.h"

bool common_call_fails(const char *call, int *result) {
    return host_call_fails(call, result);
}

void common_note_effect(common_line *line) {
    host_journal_write(line);
}
