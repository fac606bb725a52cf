// Ends what a client's timer should have ended: a timer may not have been to be had when it was started (no
// memory, too many signals pending for the user), or its thread when it expired.
#pragma once

// A deadline is made up for within this time. The caller must be a thread that is always there.
constexpr int HBS_TIMER_SWEEP_SECONDS = 10;

// Lets every timer kind of every client expire whose deadline is over. What a timer ended itself is not ended
// again, whichever comes first. Takes hbs_list_mutex, for one expiry at a time.
void hbs_timer_sweep();
