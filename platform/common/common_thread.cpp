#include "common_thread.h"

#include <csignal>
#include <pthread.h>

namespace {

int start_detached(void *(*entry)(void *)) {
    pthread_t thread;
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    (void)pthread_attr_setstacksize(&attributes, COMMON_THREAD_STACK);
    const int error = pthread_create(&thread, &attributes, entry, nullptr);
    (void)pthread_attr_destroy(&attributes);
    return error;
}

} // namespace

bool common_thread_start(void *(*entry)(void *)) {
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = start_detached(entry);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error == 0;
}
