/* Stands before the daemon's timers, so that a history says when each of them ends: an armed one does nothing until it
 * is told to, and what main does beside its work every ten seconds is never done. Each arming and each end is a line of
 * HBS_MODEL_TIMERS; orders come as datagrams to HBS_MODEL_ORDERS, and are answered when the expiry has run.
 * The seconds since the machine's start are those of HBS_MODEL_SECONDS, and then of each order "s" with a number: within
 * a step of a history they are the same, so that who is the oldest does not hang on how quick the machine is. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#define MOST 65536
#define FROZEN_SECONDS 20

static struct {
    void (*expire)(union sigval);
    union sigval value;
    int armed;
} timers[MOST];
static int timer_count;
static int notes = -1;
static long told_seconds;
static struct timespec told_at;
static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_once_t once = PTHREAD_ONCE_INIT;

static void note(const char *what, int number, long seconds) {
    char line[64];
    int length = snprintf(line, sizeof line, "%s %d %ld\n", what, number, seconds);
    if (write(notes, line, (size_t)length) != length)
        abort();
}

/* Returns whether there was such a timer, and it was armed. */
static int expire(int number) {
    pthread_mutex_lock(&mutex);
    int armed = number > 0 && number <= timer_count && timers[number - 1].armed;
    if (armed)
        timers[number - 1].armed = 0;
    pthread_mutex_unlock(&mutex);
    if (armed)
        timers[number - 1].expire(timers[number - 1].value);
    return armed;
}

static int read_clock(clockid_t clock, struct timespec *now) {
    return (int)syscall(SYS_clock_gettime, clock, now);
}

static void set_seconds(long seconds) {
    struct timespec now;
    read_clock(CLOCK_MONOTONIC, &now);
    pthread_mutex_lock(&mutex);
    told_seconds = seconds;
    told_at = now;
    pthread_mutex_unlock(&mutex);
}

/* The parts of a second go on up to its end; who has waited for much longer than a step takes is not kept waiting. */
int clock_gettime(clockid_t clock, struct timespec *now) {
    int result = read_clock(clock, now);
    if (clock != CLOCK_MONOTONIC || result != 0)
        return result;
    pthread_mutex_lock(&mutex);
    if (told_seconds == 0) {
        told_seconds = atol(getenv("HBS_MODEL_SECONDS"));
        told_at = *now;
    }
    int64_t passed = (now->tv_sec - told_at.tv_sec) * 1000000000LL + now->tv_nsec - told_at.tv_nsec;
    now->tv_sec = told_seconds;
    now->tv_nsec = passed < 999999999 ? passed : 999999999;
    if (passed > FROZEN_SECONDS * 1000000000LL)
        now->tv_sec += passed / 1000000000 - FROZEN_SECONDS;
    pthread_mutex_unlock(&mutex);
    return 0;
}

static void *take_orders(void *unused) {
    (void)unused;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un own = {.sun_family = AF_UNIX}, from;
    snprintf(own.sun_path, sizeof own.sun_path, "%s", getenv("HBS_MODEL_ORDERS"));
    unlink(own.sun_path);
    if (bind(fd, (struct sockaddr *)&own, sizeof own) != 0)
        abort();
    for (;;) {
        char text[32] = "";
        socklen_t size = sizeof from;
        if (recvfrom(fd, text, sizeof text - 1, 0, (struct sockaddr *)&from, &size) <= 0)
            continue;
        int done = 1;
        if (text[0] == 's')
            set_seconds(atol(text + 1));
        else
            done = expire(atoi(text));
        (void)sendto(fd, done ? "1" : "0", 1, 0, (struct sockaddr *)&from, size);
    }
    return NULL;
}

static void begin(void) {
    pthread_t thread;
    notes = open(getenv("HBS_MODEL_TIMERS"), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (notes < 0 || pthread_create(&thread, NULL, take_orders, NULL) != 0)
        abort();
}

int timer_create(clockid_t clock, struct sigevent *event, timer_t *timer) {
    (void)clock;
    pthread_once(&once, begin);
    pthread_mutex_lock(&mutex);
    if (timer_count == MOST)
        abort();
    timers[timer_count].expire = event->sigev_notify_function;
    timers[timer_count].value = event->sigev_value;
    timer_count++;
    *timer = (timer_t)(intptr_t)timer_count;
    pthread_mutex_unlock(&mutex);
    return 0;
}

/* One that comes again and again is the watchdog's: nobody waits for it. */
int timer_settime(timer_t timer, int flags, const struct itimerspec *to, struct itimerspec *old) {
    (void)flags;
    (void)old;
    int number = (int)(intptr_t)timer;
    if (to->it_interval.tv_sec != 0)
        return 0;
    pthread_mutex_lock(&mutex);
    timers[number - 1].armed = 1;
    note("arm", number, (long)to->it_value.tv_sec);
    pthread_mutex_unlock(&mutex);
    return 0;
}

int timer_delete(timer_t timer) {
    int number = (int)(intptr_t)timer;
    pthread_mutex_lock(&mutex);
    timers[number - 1].armed = 0;
    note("end", number, 0);
    pthread_mutex_unlock(&mutex);
    return 0;
}

int poll(struct pollfd *fds, nfds_t count, int milliseconds) {
    while (count == 0)
        pause();
    struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return (int)syscall(SYS_ppoll, fds, count, milliseconds < 0 ? NULL : &time, NULL, 0);
}
