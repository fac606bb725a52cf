// POSIX timers of the SIGEV_THREAD kind, made of plain threads. The C library starts the threads of its own
// timers behind the thread sanitizer's back, and instrumented code that runs on one crashes. These calls
// stand in front of the library's: a timer is one-shot or periodic, each expiry runs on a thread of its own,
// and an expiry that is under way is not stopped by a later deletion; all as in the library.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <pthread.h>

#include "base/deadline.h"

namespace {

constexpr int MOST_TIMERS = 4096;
constexpr int64_t SECOND_NS = 1000000000;

struct plain_timer {
    bool exists;
    void (*function)(union sigval value);
    union sigval value;
    int64_t due; // CLOCK_MONOTONIC nanoseconds; 0 = not armed
    int64_t interval;
};

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t changed;
pthread_once_t once = PTHREAD_ONCE_INIT;
plain_timer timers[MOST_TIMERS];

int64_t nanoseconds(const timespec &time) {
    return int64_t{time.tv_sec} * SECOND_NS + time.tv_nsec;
}

timespec timespec_of(int64_t time) {
    return {static_cast<time_t>(time / SECOND_NS), static_cast<long>(time % SECOND_NS)};
}

int64_t now() {
    timespec time{};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return nanoseconds(time);
}

// One expiry on its way to its thread.
struct expiry {
    void (*function)(union sigval value);
    union sigval value;
};

void *run_expiry(void *argument) {
    const expiry of = *static_cast<expiry *>(argument);
    free(argument);
    of.function(of.value);
    return nullptr;
}

void start_expiry(const plain_timer &timer) {
    pthread_t thread;
    expiry *of = static_cast<expiry *>(malloc(sizeof *of));
    if (of == nullptr)
        return;
    *of = {timer.function, timer.value};
    if (pthread_create(&thread, nullptr, run_expiry, of) == 0)
        (void)pthread_detach(thread);
    else
        free(of);
}

// Starts what is due. Returns when the next one is, 0 when none is armed.
int64_t expire() {
    const int64_t time = now();
    int64_t next = 0;
    for (plain_timer &timer : timers) {
        if (!timer.exists || timer.due == 0)
            continue;
        if (timer.due <= time) {
            start_expiry(timer);
            timer.due = timer.interval == 0 ? 0 : timer.due + timer.interval;
        }
        if (timer.due != 0 && (next == 0 || timer.due < next))
            next = timer.due;
    }
    return next;
}

void *watch(void *) {
    (void)pthread_mutex_lock(&mutex);
    for (;;) {
        const int64_t next = expire();
        const timespec until = timespec_of(next);
        if (next == 0)
            (void)pthread_cond_wait(&changed, &mutex);
        else
            (void)pthread_cond_timedwait(&changed, &mutex, &until);
    }
    return nullptr;
}

void start_watching() {
    pthread_t thread;
    hbs_monotonic_condition(&changed);
    if (pthread_create(&thread, nullptr, watch, nullptr) == 0)
        (void)pthread_detach(thread);
}

plain_timer *timer_of(timer_t handle) {
    return static_cast<plain_timer *>(handle);
}

} // namespace

extern "C" {

int timer_create(clockid_t clock, sigevent *event, timer_t *handle) noexcept {
    if (clock != CLOCK_MONOTONIC || event == nullptr || event->sigev_notify != SIGEV_THREAD) {
        errno = ENOTSUP;
        return -1;
    }
    (void)pthread_once(&once, start_watching);
    int result = -1;
    (void)pthread_mutex_lock(&mutex);
    for (plain_timer &timer : timers) {
        if (timer.exists)
            continue;
        timer = {true, event->sigev_notify_function, event->sigev_value, 0, 0};
        *handle = &timer;
        result = 0;
        break;
    }
    (void)pthread_mutex_unlock(&mutex);
    if (result != 0)
        errno = EAGAIN;
    return result;
}

int timer_settime(timer_t handle, int flags, const itimerspec *value, itimerspec *) noexcept {
    if (flags != 0) {
        errno = ENOTSUP;
        return -1;
    }
    (void)pthread_mutex_lock(&mutex);
    const int64_t first = nanoseconds(value->it_value);
    timer_of(handle)->due = first == 0 ? 0 : now() + first;
    timer_of(handle)->interval = nanoseconds(value->it_interval);
    (void)pthread_cond_signal(&changed);
    (void)pthread_mutex_unlock(&mutex);
    return 0;
}

int timer_gettime(timer_t handle, itimerspec *value) noexcept {
    (void)pthread_mutex_lock(&mutex);
    const int64_t due = timer_of(handle)->due;
    const int64_t left = due == 0 ? 0 : due - now();
    value->it_value = timespec_of(due != 0 && left <= 0 ? 1 : left);
    value->it_interval = timespec_of(timer_of(handle)->interval);
    (void)pthread_mutex_unlock(&mutex);
    return 0;
}

int timer_delete(timer_t handle) noexcept {
    (void)pthread_mutex_lock(&mutex);
    timer_of(handle)->exists = false;
    (void)pthread_mutex_unlock(&mutex);
    return 0;
}

} // extern "C"
