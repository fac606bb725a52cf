#include "lock_order.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sanitizer/tsan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/state.h"

namespace {

constexpr int MOST = 32; // held by one thread at a time
constexpr const char *names[] = {"the list mutex", "the semaphore", "a lock of the agent library",
                                 "another mutex"};

struct held_lock {
    lock_kind kind;
    const void *lock;
};
thread_local held_lock held[MOST];
thread_local int count;

constexpr int UNSEEN = LOCK_KINDS; // among the numbers
constexpr size_t NUMBERS = LOCK_KINDS + 1;

// Relaxed, so that counting orders nothing that the sanitizer would otherwise see as a race.
std::atomic<uint64_t> *numbers;

__attribute__((constructor)) void map_numbers() {
    const char *path = getenv("HBS_LOCK_HOLDS");
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0)
        return;
    constexpr size_t size = NUMBERS * sizeof *numbers;
    void *place = MAP_FAILED;
    if (ftruncate(file, size) == 0)
        place = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (place != MAP_FAILED)
        numbers = static_cast<std::atomic<uint64_t> *>(place);
    (void)close(file);
}

void add_one(int number) {
    if (numbers != nullptr)
        numbers[number].fetch_add(1, std::memory_order_relaxed);
}

lock_kind kind_of(const pthread_mutex_t *mutex, lock_kind otherwise) {
    return mutex == &hbs_list_mutex ? LIST_MUTEX : otherwise;
}

// The two mutexes of a record are taken in both orders: the first reader takes the one of the writers inside
// the one of the readers, and keeps it while the next readers take theirs. Nothing is stuck by that, because
// who waits for the writers' mutex inside the readers' waits for a writer, and a writer takes no other. So
// the sanitizer looks at the order of these locks and of all others, but not at their own.
bool holds_agent_lock() {
    for (int i = 0; i < count; i++)
        if (held[i].kind == AGENT_LOCK)
            return true;
    return false;
}

void wanted(const pthread_mutex_t *mutex, lock_kind otherwise) {
    if (!lock_order_holds(mutex))
        lock_order_wanted(kind_of(mutex, otherwise));
}

} // namespace

bool lock_order_holds(const void *lock) {
    for (int i = 0; i < count; i++)
        if (held[i].lock == lock)
            return true;
    return false;
}

void lock_order_wanted(lock_kind kind) {
    for (int i = 0; i < count; i++)
        if (kind < AGENT_LOCK && held[i].kind >= kind)
            (void)dprintf(STDERR_FILENO, "lock order: %s is taken inside %s\n", names[kind],
                          names[held[i].kind]);
}

void lock_order_taken(lock_kind kind, const void *lock) {
    add_one(kind);
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
    add_one(UNSEEN);
}

// In front of the sanitizer's, which has them under these names too.
extern "C" {

int __interceptor_pthread_mutex_lock(pthread_mutex_t *mutex);
int __interceptor_pthread_mutex_unlock(pthread_mutex_t *mutex);

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    wanted(mutex, ANY_OTHER);
    const int result = __interceptor_pthread_mutex_lock(mutex);
    if (result == 0)
        lock_order_taken(kind_of(mutex, ANY_OTHER), mutex);
    return result;
}

// Who takes a mutex with a time limit tries again until it has it. To the sanitizer's own call a time limit
// means that nothing can be stuck, so it would not look at the order.
int pthread_mutex_timedlock(pthread_mutex_t *mutex, const timespec *until) noexcept {
    using call = int (*)(pthread_mutex_t *, const timespec *);
    const call next = reinterpret_cast<call>(dlsym(RTLD_NEXT, "pthread_mutex_timedlock"));
    const unsigned flags = holds_agent_lock() ? __tsan_mutex_try_lock : 0;
    wanted(mutex, AGENT_LOCK);
    __tsan_mutex_pre_lock(mutex, flags);
    const int result = next(mutex, until);
    __tsan_mutex_post_lock(mutex, result == 0 ? flags : flags | __tsan_mutex_try_lock_failed, 0);
    if (result == 0)
        lock_order_taken(kind_of(mutex, AGENT_LOCK), mutex);
    return result;
}

int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
    lock_order_given(mutex);
    return __interceptor_pthread_mutex_unlock(mutex);
}

} // extern "C"
