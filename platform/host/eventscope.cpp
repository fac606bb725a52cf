// Events: the files are looked at once in each.
#include <eventscope.h>

#include "host_places.h"

void EVENT_Begin(void) {
    host_places_hold_still();
}

void EVENT_End(void) {
    host_places_move_on();
}
