// One thing that happened, from its arrival to the end of all that it causes.
#pragma once

#include <eventscope.h>

struct hbs_event {
    hbs_event() { EVENT_Begin(); }
    ~hbs_event() { EVENT_End(); }
    hbs_event(const hbs_event &) = delete;
    hbs_event &operator=(const hbs_event &) = delete;
};
