// The database semaphore is used as a lock, but to the thread sanitizer a semaphore is none. These calls
// stand in front of the C library's and tell it of each hold, so that it sees an inversion of the semaphore
// and a mutex; and have the order of the locks looked at.
#include <csignal>
#include <ctime>
#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>
#include <semaphore.h>

#include "lock_order.h"

namespace {

constexpr unsigned FLAGS = __tsan_mutex_not_static;

// Takes the semaphore by `next` and tells of it. A try counts as a wait, because who does not get it by a try
// waits for it next; but for the repair, which comes under the list mutex as well.
template <typename Next> int take(sem_t *semaphore, Next next) {
    lock_order_wanted(SEMAPHORE);
    __tsan_mutex_pre_lock(semaphore, FLAGS);
    const int result = next();
    __tsan_mutex_post_lock(semaphore, result == 0 ? FLAGS : FLAGS | __tsan_mutex_try_lock_failed, 0);
    if (result == 0)
        lock_order_taken(SEMAPHORE, semaphore);
    return result;
}

} // namespace

extern "C" {

int sem_clockwait(sem_t *semaphore, clockid_t clock, const timespec *until) {
    using call = int (*)(sem_t *, clockid_t, const timespec *);
    static const call next = reinterpret_cast<call>(dlsym(RTLD_NEXT, "sem_clockwait"));
    return take(semaphore, [=] { return next(semaphore, clock, until); });
}

// Inside of a hold it is no second one: it takes away what other processes posted too much.
int sem_trywait(sem_t *semaphore) noexcept {
    using call = int (*)(sem_t *);
    static const call next = reinterpret_cast<call>(dlsym(RTLD_NEXT, "sem_trywait"));
    if (lock_order_holds(semaphore))
        return next(semaphore);
    return take(semaphore, [=] { return next(semaphore); });
}

// The first post of a process opens the semaphore without having waited for it, and so does one that makes up
// for a lost holder: only a hold of the thread's own ends one.
int sem_post(sem_t *semaphore) noexcept {
    using call = int (*)(sem_t *);
    static const call next = reinterpret_cast<call>(dlsym(RTLD_NEXT, "sem_post"));
    const bool ends_hold = lock_order_holds(semaphore);
    lock_order_given(semaphore);
    if (!ends_hold)
        return next(semaphore);
    (void)__tsan_mutex_pre_unlock(semaphore, 0);
    const int result = next(semaphore);
    __tsan_mutex_post_unlock(semaphore, 0);
    return result;
}

} // extern "C"
