#include "base/state.h"

pthread_mutex_t hbs_list_mutex;
uint8_t hbs_db_ready;

void hbs_list_mutex_init() {
    pthread_mutexattr_t attributes;
    (void)pthread_mutexattr_init(&attributes);
    (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    (void)pthread_mutex_init(&hbs_list_mutex, &attributes);
    (void)pthread_mutexattr_destroy(&attributes);
}
