// The daemon's clocks in one place, so that tests can move them.
#pragma once

#include <cstdint>
#include <ctime>

// Wall clock, seconds since the epoch.
time_t hbs_time();

// CLOCK_MONOTONIC seconds.
uint32_t hbs_monotonic_seconds();

// The same clock in milliseconds, for deadlines.
int64_t hbs_monotonic_milliseconds();

// Seconds since the gateway started [out], as the platform tells them; false when it does not.
bool hbs_system_uptime(uint32_t *seconds);

// Test seam: adds seconds to both clocks from now on; calls add up. POSIX timers are not moved.
void hbs_clock_advance(int32_t seconds);
