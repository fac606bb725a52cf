#include "export/rwlock.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdio>

#include <snmpa.h>

#include "base/text.h"

#define HBS_EXPORT __attribute__((visibility("default")))

namespace {

constexpr time_t PATIENCE_SECONDS = 10;

struct caller {
    int pid;
    const char *func;
    int line;
};

void set_holder(hbs_lock_holder *holder, const caller &by) {
    holder->pid = by.pid;
    hbs_copy_text(holder->func, sizeof holder->func, by.func);
    holder->line = by.line;
}

void clear_holder(hbs_lock_holder *holder) { set_holder(holder, {0, "none", 0}); }

// Messages of the four places that wait; the format is the same for all.
#define TIMEOUT_MESSAGE(place, mutex)                                                                        \
    "%s " place ": timeout on " mutex                                                                        \
    " acquire held by pid %d, func %s, line %d : attempt from pid %d, func %s, line %d\n"

enum class site { reader_lock_reader, reader_lock_writer, reader_unlock_reader, writer_lock_writer };

void print_timeout(site where, const hbs_lock_holder *h, const caller &by) {
    switch (where) {
    case site::reader_lock_reader:
        (void)printf(TIMEOUT_MESSAGE("reader_lock", "reader"), SnmpaName, h->pid, h->func, h->line, by.pid, by.func,
                     by.line);
        break;
    case site::reader_lock_writer:
        (void)printf(TIMEOUT_MESSAGE("reader_lock", "writer"), SnmpaName, h->pid, h->func, h->line, by.pid, by.func,
                     by.line);
        break;
    case site::reader_unlock_reader:
        (void)printf(TIMEOUT_MESSAGE("reader_unlock", "reader"), SnmpaName, h->pid, h->func, h->line, by.pid, by.func,
                     by.line);
        break;
    case site::writer_lock_writer:
        (void)printf(TIMEOUT_MESSAGE("writer_lock", "writer"), SnmpaName, h->pid, h->func, h->line, by.pid, by.func,
                     by.line);
        break;
    }
    (void)fflush(stdout);
}

// Takes a mutex however long it takes. The holder's record is read without its mutex: it only informs.
int timed_lock(pthread_mutex_t *mutex, const hbs_lock_holder *holder, site where, const caller &by) {
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    timespec deadline = {now.tv_sec + PATIENCE_SECONDS, now.tv_usec * 1000};
    int error = pthread_mutex_timedlock(mutex, &deadline);
    while (error == ETIMEDOUT) {
        print_timeout(where, holder, by);
        deadline.tv_sec += PATIENCE_SECONDS;
        error = pthread_mutex_timedlock(mutex, &deadline);
    }
    return error == 0 ? 0 : -1;
}

int release(pthread_mutex_t *mutex, hbs_lock_holder *holder) {
    clear_holder(holder); // before the release, so that the next holder's entry is not wiped
    return pthread_mutex_unlock(mutex) == 0 ? 0 : -1;
}

} // namespace

extern "C" {

HBS_EXPORT pthread_mutex_t listlock;

HBS_EXPORT int reader_lock(hbs_lock_record *lock, int pid, const char *func, int line) {
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

HBS_EXPORT int reader_unlock(hbs_lock_record *lock, int pid, const char *func, int line) {
    const caller by{pid, func, line};
    if (timed_lock(&lock->reader_mutex, &lock->reader, site::reader_unlock_reader, by) != 0)
        return -1;
    set_holder(&lock->reader, by);
    int result = 0;
    if (--lock->readers == 0)
        result = release(&lock->writer_mutex, &lock->writer);
    return release(&lock->reader_mutex, &lock->reader) == 0 ? result : -1;
}

HBS_EXPORT int writer_lock(hbs_lock_record *lock, int pid, const char *func, int line) {
    const caller by{pid, func, line};
    if (timed_lock(&lock->writer_mutex, &lock->writer, site::writer_lock_writer, by) != 0)
        return -1;
    set_holder(&lock->writer, by);
    return 0;
}

HBS_EXPORT int writer_unlock(hbs_lock_record *lock) { return release(&lock->writer_mutex, &lock->writer); }
}
