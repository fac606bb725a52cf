#include "base/clock.h"

#include <atomic>

#include <sysuptime.h>

namespace {

// 32 bits: wider atomics would need a run-time library on 32-bit targets.
std::atomic<int32_t> advance{0};

} // namespace

time_t hbs_time() {
    return time(nullptr) + static_cast<time_t>(advance.load());
}

uint32_t hbs_monotonic_seconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint32_t>(now.tv_sec + advance.load());
}

int64_t hbs_monotonic_milliseconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t{now.tv_sec} + advance.load()) * 1000 + now.tv_nsec / 1'000'000;
}

bool hbs_system_uptime(uint32_t *seconds) {
    return MAIN_getSysUpTime(seconds) == 0;
}

void hbs_clock_advance(int32_t seconds) {
    advance.fetch_add(seconds);
}
