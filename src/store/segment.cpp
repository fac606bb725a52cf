// The attached segment and its semaphore.
#include "store/segment.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>

#include "base/log.h"

static hbs_db *segment;
static uint32_t segment_size;
static sem_t *semaphore = SEM_FAILED;

hbs_db *hbs_segment() {
    return segment;
}

uint32_t hbs_segment_size() {
    return segment_size;
}

void hbs_segment_attach(void *base, uint32_t size) {
    segment = static_cast<hbs_db *>(base);
    segment_size = size;
}

void hbs_sem_init() {
    // The mode is cut by the umask, and readers run as other users.
    mode_t mask = umask(0);
    semaphore = sem_open(HBS_SEMAPHORE_NAME, O_CREAT, 0666, 0);
    (void)umask(mask);
    if (semaphore == SEM_FAILED)
        HBS_LOG(HBS_ERROR, "HBS semaphore open error");
}

static int64_t monotonic_ms() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Waits 100 ms at most. Returns whether waiting is over: the semaphore was got, or it is unusable.
static bool wait_slice() {
    constexpr long slice_ns = 100L * 1000 * 1000;
    constexpr long second_ns = 1000L * 1000 * 1000;
    timespec until{};
    (void)clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += slice_ns;
    if (until.tv_nsec >= second_ns) {
        until.tv_nsec -= second_ns;
        until.tv_sec++;
    }
    return sem_timedwait(semaphore, &until) == 0 || (errno != ETIMEDOUT && errno != EINTR);
}

// The semaphore's own deadline is in wall-clock time, which the gateway sets while the daemon runs; short
// slices against the monotonic clock keep a step of the wall clock from looking like a lost holder.
void hbs_sem_wait() {
    if (semaphore == SEM_FAILED)
        return;
    int64_t deadline = monotonic_ms() + HBS_SEM_PATIENCE_MS;
    while (!wait_slice()) {
        if (monotonic_ms() < deadline)
            continue;
        // The post that ends this hold makes up for the one that the lost holder never made.
        HBS_LOG(HBS_ERROR, "HOSTBASE: database semaphore not released within %d ms, taken over",
                HBS_SEM_PATIENCE_MS);
        return;
    }
}

void hbs_sem_post() {
    if (semaphore != SEM_FAILED)
        (void)sem_post(semaphore);
}
