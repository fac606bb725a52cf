// The three files of the host platform, where the environment says they are, and whether one of them may have
// changed: a notification queue of the kernel's tells, so that the usual answer "no" costs one short call.
#pragma once

enum class host_place { values, log, journal };

// Path of a file: its environment variable's, or the default. Valid until the variable is set again.
const char *host_place_path(host_place place);

// Whether the file may have been changed, removed or replaced since the last call for it (true for the first
// call). Log and journal: writing does not count as a change. Where the kernel cannot tell, and once a
// second, the answer is true: the caller has to look at the file itself. Any thread.
bool host_place_changed(host_place place);

// The same by what the last call of host_place_changed for any file learned: for a caller who has just made
// one.
bool host_place_was_changed(host_place place);

// Whether the kernel tells of changes of the file, so that one that comes later is sure to be seen.
bool host_place_is_watched(host_place place);

// Between these, which may lie within each other, the calling thread takes what it learned of a file for true
// until the kernel's coarse clock ticks: whoever works for longer, or waits, looks again.
void host_places_hold_still();
void host_places_move_on();

// Whether the calling thread has looked at the file since it holds still, and in this tick.
bool host_place_is_still(host_place place);
