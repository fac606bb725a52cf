// Takes the list mutex and another lock in both orders, one after the other, so that nothing is ever stuck.
// The other one is taken as the daemon takes it, by the daemon's own calls.
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>

#include "base/deadline.h"
#include "base/paths.h"
#include "base/sem_deadline.h"
#include "base/state.h"
#include "export/rwlock.h"
#include "store/segment.h"

namespace {

hbs_lock_record record = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, 0, {}, {}};

// What the daemon comes to when the semaphore is not free at once.
void wait_for_semaphore() {
    sem_t *semaphore = sem_open(HBS_SEMAPHORE_NAME, 0);
    const timespec until = hbs_monotonic_in(10000);
    (void)hbs_sem_wait_until(semaphore, &until);
}

struct subject {
    const char *name;
    void (*take)();
    void (*give)();
};

constexpr subject subjects[] = {
    {"free", hbs_sem_wait, hbs_sem_post},
    {"taken", wait_for_semaphore, hbs_sem_post},
    {"agent", [] { (void)writer_lock(&record, 1, "inversion", 1); }, [] { (void)writer_unlock(&record); }},
};

void *inside(void *argument) {
    const subject *of = static_cast<const subject *>(argument);
    const hbs_list_hold hold;
    of->take();
    of->give();
    return nullptr;
}

void *outside(void *argument) {
    const subject *of = static_cast<const subject *>(argument);
    of->take();
    (void)pthread_mutex_lock(&hbs_list_mutex);
    (void)pthread_mutex_unlock(&hbs_list_mutex);
    of->give();
    return nullptr;
}

void run(void *(*entry)(void *), const subject &of) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, entry, const_cast<subject *>(&of)) == 0)
        (void)pthread_join(thread, nullptr);
}

} // namespace

// Which one, and with a second argument in one order only.
int main(int count, char *words[]) {
    hbs_list_mutex_init();
    hbs_sem_init();
    hbs_sem_admit();
    for (const subject &of : subjects) {
        if (count < 2 || strcmp(of.name, words[1]) != 0)
            continue;
        run(inside, of);
        run(count > 2 ? inside : outside, of);
    }
    return sem_unlink(HBS_SEMAPHORE_NAME);
}
