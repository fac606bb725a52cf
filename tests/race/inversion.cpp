// Takes the list mutex and a semaphore in both orders, one after the other, so that nothing is ever stuck.
#include <ctime>
#include <pthread.h>
#include <semaphore.h>

#include "base/deadline.h"
#include "base/state.h"

namespace {

sem_t semaphore;

void wait_for_semaphore() {
    const timespec until = hbs_monotonic_in(10000);
    (void)sem_clockwait(&semaphore, CLOCK_MONOTONIC, &until);
}

void *semaphore_inside(void *) {
    (void)pthread_mutex_lock(&hbs_list_mutex);
    wait_for_semaphore();
    (void)sem_post(&semaphore);
    (void)pthread_mutex_unlock(&hbs_list_mutex);
    return nullptr;
}

void *mutex_inside(void *) {
    wait_for_semaphore();
    (void)pthread_mutex_lock(&hbs_list_mutex);
    (void)pthread_mutex_unlock(&hbs_list_mutex);
    (void)sem_post(&semaphore);
    return nullptr;
}

void run(void *(*entry)(void *)) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, entry, nullptr) == 0)
        (void)pthread_join(thread, nullptr);
}

} // namespace

// With an argument in one order only.
int main(int count, char *[]) {
    hbs_list_mutex_init();
    (void)sem_init(&semaphore, 0, 1);
    run(semaphore_inside);
    run(count > 1 ? semaphore_inside : mutex_inside);
    return 0;
}
