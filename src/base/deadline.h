// Deadlines of the monotonic clock, which no step of the wall clock stretches or shortens. In a header: the
// query library and a platform are linked without this floor.
#pragma once

#include <ctime>
#include <pthread.h>

// The moment of CLOCK_MONOTONIC in so many milliseconds (0 and more), its tv_nsec below a second.
static inline timespec hbs_monotonic_in(int milliseconds) {
    constexpr long second_ns = 1000L * 1000 * 1000;
    timespec moment{};
    (void)clock_gettime(CLOCK_MONOTONIC, &moment);
    moment.tv_sec += milliseconds / 1000;
    moment.tv_nsec += milliseconds % 1000 * 1000000L;
    if (moment.tv_nsec >= second_ns) {
        moment.tv_nsec -= second_ns;
        moment.tv_sec++;
    }
    return moment;
}

// Makes `condition` [out], for which nobody waits yet; pthread_cond_timedwait takes moments of
// CLOCK_MONOTONIC for it.
static inline void hbs_monotonic_condition(pthread_cond_t *condition) {
    pthread_condattr_t attributes;
    (void)pthread_condattr_init(&attributes);
    (void)pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    (void)pthread_cond_init(condition, &attributes);
    (void)pthread_condattr_destroy(&attributes);
}
