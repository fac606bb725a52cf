#include "gateway/neighbour_probe.h"

#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>

#include "base/clock.h"
#include "base/deadline.h"
#include "gateway/neighbour_query.h"

namespace {

constexpr int PATIENCE_MILLISECONDS = 150;
constexpr int64_t SILENCE_MILLISECONDS = 1000;

// More than there are threads that ask, so that an answer is never overwritten before it is looked at.
constexpr uint32_t ANSWERS = 8;

struct answer {
    uint32_t ticket; // 0 = none
    int result;
    uint8_t mac[6];
};

// Guarded by `lock`.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t answered; // on CLOCK_MONOTONIC
pthread_once_t once = PTHREAD_ONCE_INIT;
answer answers[ANSWERS];
uint32_t last_ticket;
int64_t silent_until; // no question is asked before

void make_condition() {
    hbs_monotonic_condition(&answered);
}

uint32_t new_ticket() {
    if (++last_ticket == 0)
        last_ticket = 1;
    return last_ticket;
}

// Callers hold the lock. Null when the time is over.
const answer *wait_for(uint32_t ticket) {
    const timespec deadline = hbs_monotonic_in(PATIENCE_MILLISECONDS);
    const answer *own = &answers[ticket % ANSWERS];
    while (own->ticket != ticket)
        if (pthread_cond_timedwait(&answered, &lock, &deadline) == ETIMEDOUT)
            break;
    return own->ticket == ticket ? own : nullptr;
}

// Callers hold the lock.
int ask_by_probe(const uint8_t ll[16], uint8_t mac_out[6]) {
    if (hbs_monotonic_milliseconds() < silent_until)
        return -1;
    hbs_probe probe{};
    probe.kind = HBS_PROBE_NEIGHBOUR;
    memcpy(probe.ll, ll, sizeof probe.ll);
    probe.ticket = new_ticket();
    if (!hbs_probe_post(&probe))
        return -1;
    const answer *own = wait_for(probe.ticket);
    if (own == nullptr)
        silent_until = hbs_monotonic_milliseconds() + SILENCE_MILLISECONDS;
    if (own == nullptr || own->result != 0)
        return -1;
    memcpy(mac_out, own->mac, sizeof own->mac);
    return 0;
}

} // namespace

int hbs_ask_neigh_lladdr(const uint8_t ll[16], uint8_t mac_out[6]) {
    if (!hbs_probe_is_open())
        return hbs_query_neigh_lladdr(AF_INET6, ll, mac_out);
    (void)pthread_once(&once, make_condition);
    (void)pthread_mutex_lock(&lock);
    const int result = ask_by_probe(ll, mac_out);
    (void)pthread_mutex_unlock(&lock);
    return result;
}

void hbs_probe_neighbour(const hbs_probe *probe, bool in_time) {
    answer found{};
    found.ticket = probe->ticket;
    found.result = in_time ? hbs_query_neigh_lladdr(AF_INET6, probe->ll, found.mac) : -1;
    (void)pthread_once(&once, make_condition);
    (void)pthread_mutex_lock(&lock);
    answers[probe->ticket % ANSWERS] = found;
    if (found.result == 0)
        silent_until = 0; // late perhaps, but it answers
    (void)pthread_cond_broadcast(&answered);
    (void)pthread_mutex_unlock(&lock);
}
