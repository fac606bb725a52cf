#include "common_thread.h"

#include <csignal>
#include <pthread.h>

bool common_thread_start(void *(*entry)(void *)) {
    sigset_t all;
    sigset_t before;
    pthread_t thread;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = pthread_create(&thread, nullptr, entry, nullptr) == 0;
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started)
        (void)pthread_detach(thread);
    return started;
}
