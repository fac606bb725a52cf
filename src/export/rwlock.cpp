// Who holds the lock is recorded with every acquisition, so that a wait that lasts too long can tell.
#include "export/rwlock.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/time.h>

#include <snmpa.h>

namespace {

std::atomic<uint32_t> patience_ms = 10000;

struct caller {
    int pid;
    const char *func;
    int line;
};

// The record of who holds a mutex is read without that mutex by those who wait: each number and each letter
// is one access.
template <typename Value> void put(Value *place, Value value) {
    __atomic_store_n(place, value, __ATOMIC_RELAXED);
}

template <typename Value> Value get(const Value *place) {
    return __atomic_load_n(place, __ATOMIC_RELAXED);
}

void set_holder(hbs_lock_holder *holder, const caller &by) {
    put(&holder->pid, by.pid);
    const size_t length = strnlen(by.func, sizeof holder->func - 1);
    for (size_t i = 0; i < sizeof holder->func; i++)
        put(&holder->func[i], i < length ? by.func[i] : '\0');
    put(&holder->line, by.line);
}

// As it is at the moment: it only informs, and its text always ends in its field.
hbs_lock_holder copy_of(const hbs_lock_holder *holder) {
    hbs_lock_holder copy;
    copy.pid = get(&holder->pid);
    for (size_t i = 0; i < sizeof copy.func; i++)
        copy.func[i] = get(&holder->func[i]);
    copy.line = get(&holder->line);
    return copy;
}

void clear_holder(hbs_lock_holder *holder) {
    set_holder(holder, {0, "none", 0});
}

enum class site { reader_lock_reader, reader_lock_writer, reader_unlock_reader, writer_lock_writer };

#define PRINT_TIMEOUT(format)                                                                                \
    (void)printf(format, SnmpaName, holder.pid, holder.func, holder.line, by.pid, by.func, by.line)

void print_timeout(site where, const hbs_lock_holder &holder, const caller &by) {
    switch (where) {
    case site::reader_lock_reader:
        PRINT_TIMEOUT("%s reader_lock: timeout on reader acquire held by pid %d, func %s, line %d : attempt "
                      "from pid %d, func %s, line %d\n");
        break;
    case site::reader_lock_writer:
        PRINT_TIMEOUT("%s reader_lock: timeout on writer acquire held by pid %d, func %s, line %d : attempt "
                      "from pid %d, func %s, line %d\n");
        break;
    case site::reader_unlock_reader:
        PRINT_TIMEOUT(
            "%s reader_unlock: timeout on reader acquire held by pid %d, func %s, line %d : attempt "
            "from pid %d, func %s, line %d\n");
        break;
    case site::writer_lock_writer:
        PRINT_TIMEOUT("%s writer_lock: timeout on writer acquire held by pid %d, func %s, line %d : attempt "
                      "from pid %d, func %s, line %d\n");
        break;
    }
    (void)fflush(stdout);
}

void move_on(timespec *deadline) {
    constexpr long second_ns = 1000000000;
    const uint32_t milliseconds = patience_ms.load();
    deadline->tv_sec += static_cast<time_t>(milliseconds / 1000);
    deadline->tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (deadline->tv_nsec >= second_ns) {
        deadline->tv_nsec -= second_ns;
        ++deadline->tv_sec;
    }
}

timespec time_of_day() {
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    return {now.tv_sec, now.tv_usec * 1000};
}

// From now, where a clock that was set forward has left the deadline behind: else it would end at once,
// thousands of times.
void move_past_now(timespec *deadline) {
    move_on(deadline);
    const timespec now = time_of_day();
    if (deadline->tv_sec >= now.tv_sec)
        return;
    *deadline = now;
    move_on(deadline);
}

// Takes a mutex however long it takes.
int timed_lock(pthread_mutex_t *mutex, const hbs_lock_holder *holder, site where, const caller &by) {
    timespec deadline = time_of_day();
    move_on(&deadline);
    int error = pthread_mutex_timedlock(mutex, &deadline);
    while (error == ETIMEDOUT) {
        print_timeout(where, copy_of(holder), by);
        move_past_now(&deadline);
        error = pthread_mutex_timedlock(mutex, &deadline);
    }
    return error == 0 ? 0 : -1;
}

int release(pthread_mutex_t *mutex, hbs_lock_holder *holder) {
    clear_holder(holder); // before the release, so that the next holder's entry is not wiped
    return pthread_mutex_unlock(mutex) == 0 ? 0 : -1;
}

} // namespace

uint32_t hbs_lock_set_patience(uint32_t milliseconds) {
    return patience_ms.exchange(milliseconds);
}

extern "C" {

pthread_mutex_t listlock;

int reader_lock(hbs_lock_record *lock, int pid, const char *func, int line) {
    const caller by{pid, func, line};
    if (timed_lock(&lock->reader_mutex, &lock->reader, site::reader_lock_reader, by) != 0)
        return -1;
    set_holder(&lock->reader, by);
    int result = 0;
    if (++lock->readers == 1) {
        result = timed_lock(&lock->writer_mutex, &lock->writer, site::reader_lock_writer, by);
        if (result == 0)
            set_holder(&lock->writer, by);
        else
            --lock->readers;
    }
    return release(&lock->reader_mutex, &lock->reader) == 0 ? result : -1;
}

int reader_unlock(hbs_lock_record *lock, int pid, const char *func, int line) {
    const caller by{pid, func, line};
    if (timed_lock(&lock->reader_mutex, &lock->reader, site::reader_unlock_reader, by) != 0)
        return -1;
    set_holder(&lock->reader, by);
    int result = 0;
    if (--lock->readers == 0)
        result = release(&lock->writer_mutex, &lock->writer);
    return release(&lock->reader_mutex, &lock->reader) == 0 ? result : -1;
}

int writer_lock(hbs_lock_record *lock, int pid, const char *func, int line) {
    const caller by{pid, func, line};
    if (timed_lock(&lock->writer_mutex, &lock->writer, site::writer_lock_writer, by) != 0)
        return -1;
    set_holder(&lock->writer, by);
    return 0;
}

int writer_unlock(hbs_lock_record *lock) {
    return release(&lock->writer_mutex, &lock->writer);
}

} // extern "C"
