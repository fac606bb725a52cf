#include "linux_soon.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <pthread.h>

#include <hbs_db.h>

#include "base/deadline.h"
#include "base/scope.h"
#include "common_thread.h"

int64_t linux_patience_left(linux_patience *patience, int64_t now_us) {
    patience->spent_us -= (now_us - patience->at_us) / LINUX_COMES_BACK;
    if (patience->spent_us < 0)
        patience->spent_us = 0;
    patience->at_us = now_us;
    return patience->spent_us < LINUX_PATIENCE_US ? LINUX_PATIENCE_US - patience->spent_us : 0;
}

void linux_patience_spend(linux_patience *patience, int64_t waited_us) {
    if (waited_us > LINUX_FREE_US)
        patience->spent_us += waited_us - LINUX_FREE_US;
}

int64_t linux_now_us() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

namespace {

constexpr size_t most_later = size_t{3} * HBS_MAX_CLIENTS; // each device has three addresses at most

struct task {
    linux_job job;
    alignas(8) uint8_t context[LINUX_JOB_SIZE];
};

enum class stage { idle, asked, running, done };

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // held for copies only
pthread_cond_t changed;                           // by the monotonic clock
pthread_once_t once = PTHREAD_ONCE_INIT;
bool serves;

// One question at a time.
stage at = stage::idle;
task question;
bool given_up; // by who asked, while it runs
bool answer;
int answer_error;
linux_patience patience;

task later[most_later];
size_t first_later;
size_t count_later;

bool take(task *next, bool *is_question) {
    *is_question = at == stage::asked;
    if (*is_question) {
        *next = question;
        at = stage::running;
        return true;
    }
    if (count_later == 0)
        return false;
    *next = later[first_later];
    first_later = (first_later + 1) % most_later;
    count_later--;
    return true;
}

void put_answer(const task *done, bool result, int error) {
    question = *done;
    answer = result;
    answer_error = error;
    at = given_up ? stage::idle : stage::done;
    given_up = false;
    (void)pthread_cond_broadcast(&changed);
}

void *serve(void *) {
    (void)pthread_mutex_lock(&lock);
    for (;;) {
        task next;
        bool is_question = false;
        while (!take(&next, &is_question))
            (void)pthread_cond_wait(&changed, &lock);
        (void)pthread_mutex_unlock(&lock);
        const bool result = next.job(next.context);
        const int error = errno;
        (void)pthread_mutex_lock(&lock);
        if (is_question)
            put_answer(&next, result, error);
    }
}

void start() {
    hbs_monotonic_condition(&changed);
    serves = common_thread_start(serve);
}

// Waits until the question is in that stage. Returns false when the moment came before.
bool wait_for(stage wanted, int64_t until_us) {
    const timespec end = {static_cast<time_t>(until_us / 1000000),
                          static_cast<long>(until_us % 1000000 * 1000)};
    while (at != wanted)
        if (pthread_cond_timedwait(&changed, &lock, &end) == ETIMEDOUT && at != wanted)
            return false;
    return true;
}

// The lock is held. The thread may be at the question still, or at an older one.
bool ask_until(int64_t until_us, linux_job job, void *context, size_t size) {
    if (wait_for(stage::idle, until_us)) {
        question.job = job;
        memcpy(question.context, context, size);
        at = stage::asked;
        (void)pthread_cond_broadcast(&changed);
        if (wait_for(stage::done, until_us)) {
            memcpy(context, question.context, size);
            at = stage::idle;
            (void)pthread_cond_broadcast(&changed);
            errno = answer_error;
            return answer;
        }
        given_up = at == stage::running;
        at = given_up ? stage::running : stage::idle;
        (void)pthread_cond_broadcast(&changed); // another may ask now
    }
    errno = ETIMEDOUT;
    return false;
}

} // namespace

bool linux_soon(linux_job job, void *context, size_t size) {
    (void)pthread_once(&once, start);
    if (!serves || size > LINUX_JOB_SIZE) {
        errno = serves ? EINVAL : EAGAIN;
        return false;
    }
    (void)pthread_mutex_lock(&lock);
    hbs_at_exit unlock([] { (void)pthread_mutex_unlock(&lock); });
    const int64_t began = linux_now_us();
    const int64_t left = linux_patience_left(&patience, began);
    const bool result = ask_until(began + left, job, context, size);
    const int error = errno;
    linux_patience_spend(&patience, linux_now_us() - began);
    errno = error;
    return result;
}

bool linux_later(linux_job job, const void *context, size_t size) {
    (void)pthread_once(&once, start);
    if (!serves || size > LINUX_JOB_SIZE)
        return false;
    (void)pthread_mutex_lock(&lock);
    hbs_at_exit unlock([] { (void)pthread_mutex_unlock(&lock); });
    if (count_later == most_later)
        return false;
    task *last = &later[(first_later + count_later++) % most_later];
    last->job = job;
    memcpy(last->context, context, size);
    (void)pthread_cond_broadcast(&changed);
    return true;
}
