// Waiting for a semaphore until a moment of the monotonic clock. In a header: the query library is linked
// from its own floor only.
#pragma once

#include <cerrno>
#include <ctime>
#include <semaphore.h>

#include "base/deadline.h"

static inline bool hbs_monotonic_reached(const timespec *moment) {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec != moment->tv_sec ? now.tv_sec > moment->tv_sec : now.tv_nsec >= moment->tv_nsec;
}

// For C libraries that can wait for a semaphore by the wall clock only: tries again and again, every 2 ms in
// the end. Results as hbs_sem_wait_until.
static inline bool hbs_sem_poll_until(sem_t *semaphore, const timespec *deadline) {
    timespec pause = {0, 50000};
    while (sem_trywait(semaphore) != 0) {
        if (errno != EAGAIN && errno != EINTR)
            return false;
        if (hbs_monotonic_reached(deadline)) {
            errno = ETIMEDOUT;
            return false;
        }
        (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
        pause.tv_nsec = pause.tv_nsec < 1000000 ? pause.tv_nsec * 2 : 2000000;
    }
    return true;
}

// deadline: CLOCK_MONOTONIC. Goes on after a signal. False with errno ETIMEDOUT at the deadline, with another
// one when the semaphore cannot be used.
static inline bool hbs_sem_wait_until(sem_t *semaphore, const timespec *deadline) {
#ifdef HBS_SEM_CLOCKWAIT
    while (sem_clockwait(semaphore, CLOCK_MONOTONIC, deadline) != 0)
        if (errno != EINTR)
            return false;
    return true;
#else
    return hbs_sem_poll_until(semaphore, deadline);
#endif
}
