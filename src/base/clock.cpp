#include "base/clock.h"

#include <atomic>

// 32 bits: wider atomics would need a run-time library on 32-bit targets.
static std::atomic<int32_t> advance{0};

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

void hbs_clock_advance(int32_t seconds) {
    advance.fetch_add(seconds);
}
