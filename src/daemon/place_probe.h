// Events of a device of which no switch could tell at once where it is.
#pragma once

#include "base/probe_queue.h"

// Waits for the switch's answer and makes up for what was left undone without it: the record gets the
// device's place, and what the kernel has heard of its addresses meanwhile is told once more. When that fails
// the question is put again.
void hbs_probe_place(const hbs_probe *probe, bool in_time);
