// Process-wide state that every floor may look at: the lock of the client list and the ready flag.
#pragma once

#include <cstdint>
#include <pthread.h>

// Recursive. Serialises every change of working copies: command handlers, neighbour and timer handlers,
// the file watch, switch link-down.
extern pthread_mutex_t hbs_list_mutex;
void hbs_list_mutex_init();

struct hbs_list_hold {
    hbs_list_hold() { (void)pthread_mutex_lock(&hbs_list_mutex); }
    ~hbs_list_hold() { (void)pthread_mutex_unlock(&hbs_list_mutex); }
    hbs_list_hold(const hbs_list_hold &) = delete;
    hbs_list_hold &operator=(const hbs_list_hold &) = delete;
};

// 1 from start-up; 0 while the gateway is in bridge mode. Written under hbs_list_mutex, read under it.
extern uint8_t hbs_db_ready;
