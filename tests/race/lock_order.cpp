#include "lock_order.h"

#include <cstdio>
#include <pthread.h>
#include <unistd.h>

#include "base/state.h"

namespace {

constexpr int MOST = 32; // held by one thread at a time
constexpr const char *names[] = {"the list mutex", "the semaphore", "another mutex"};

struct held_lock {
    lock_kind kind;
    const void *lock;
};
thread_local held_lock held[MOST];
thread_local int count;

bool holds(const void *lock) {
    for (int i = 0; i < count; i++)
        if (held[i].lock == lock)
            return true;
    return false;
}

lock_kind kind_of(const pthread_mutex_t *mutex) {
    return mutex == &hbs_list_mutex ? LIST_MUTEX : ANY_OTHER;
}

} // namespace

void lock_order_wanted(lock_kind kind) {
    for (int i = 0; i < count; i++)
        if (kind != ANY_OTHER && held[i].kind >= kind)
            (void)dprintf(STDERR_FILENO, "lock order: %s is taken inside %s\n", names[kind],
                          names[held[i].kind]);
}

void lock_order_taken(lock_kind kind, const void *lock) {
    if (count < MOST)
        held[count++] = {kind, lock};
}

void lock_order_given(const void *lock) {
    for (int i = count - 1; i >= 0; i--) {
        if (held[i].lock != lock)
            continue;
        for (count--; i < count; i++)
            held[i] = held[i + 1];
        return;
    }
}

// In front of the sanitizer's, which has them under these names too.
extern "C" {

int __interceptor_pthread_mutex_lock(pthread_mutex_t *mutex);
int __interceptor_pthread_mutex_unlock(pthread_mutex_t *mutex);

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    if (!holds(mutex))
        lock_order_wanted(kind_of(mutex));
    const int result = __interceptor_pthread_mutex_lock(mutex);
    if (result == 0)
        lock_order_taken(kind_of(mutex), mutex);
    return result;
}

int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
    lock_order_given(mutex);
    return __interceptor_pthread_mutex_unlock(mutex);
}

} // extern "C"
