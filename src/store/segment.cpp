// The attached segment, the daemon's image of it, and its semaphore.
#include "store/segment.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>

#include "base/counters.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sem_deadline.h"

namespace {

hbs_db image;
uint8_t *shared;
uint32_t segment_size;
sem_t *semaphore = SEM_FAILED;
int admitted = 1; // holders at a time, as the last start left the semaphore

} // namespace

hbs_db *hbs_segment() {
    return shared == nullptr ? nullptr : &image;
}

hbs_db *hbs_segment_shared() {
    return reinterpret_cast<hbs_db *>(shared);
}

uint32_t hbs_segment_size() {
    return segment_size;
}

void hbs_segment_attach(void *base, uint32_t size) {
    shared = static_cast<uint8_t *>(base);
    segment_size = size;
}

namespace {

// All that differs, whoever made it differ; the reserved word in front is not the daemon's.
void publish_image() {
    constexpr uint32_t piece = 256; // bytes
    const uint8_t *own = reinterpret_cast<const uint8_t *>(&image);
    for (uint32_t at = offsetof(hbs_db, clients); at < segment_size; at += piece) {
        const size_t size = std::min(piece, segment_size - at);
        if (memcmp(shared + at, own + at, size) != 0)
            memcpy(shared + at, own + at, size);
    }
}

} // namespace

void hbs_sem_init() {
    // The mode is cut by the umask, and readers run as other users.
    mode_t mask = umask(0);
    semaphore = sem_open(HBS_SEMAPHORE_NAME, O_CREAT, HBS_SEMAPHORE_MODE, 0);
    (void)umask(mask);
    if (semaphore == SEM_FAILED)
        HBS_LOG(HBS_ERROR, "HBS semaphore open error");
}

void hbs_sem_admit() {
    publish_image();
    int free = 0;
    if (semaphore == SEM_FAILED || sem_getvalue(semaphore, &free) != 0)
        return;
    admitted = free + 1;
    (void)sem_post(semaphore);
}

void hbs_sem_wait() {
    if (semaphore == SEM_FAILED)
        return;
    if (sem_trywait(semaphore) == 0)
        return;
    hbs_count(HBS_COUNT_WAITS);
    const timespec deadline = hbs_monotonic_in(HBS_SEM_PATIENCE_MS);
    if (hbs_sem_wait_until(semaphore, &deadline) || errno != ETIMEDOUT)
        return;
    // The post that ends this hold makes up for the one that the lost holder never made.
    hbs_count(HBS_COUNT_TAKEOVERS);
    HBS_LOG(HBS_ERROR, "HOSTBASE: database semaphore not released within %d ms, taken over",
            HBS_SEM_PATIENCE_MS);
}

namespace {

// A holder that was slow but alive posts after it was taken over from, and one too many is free from then on.
// Only what is free is taken away, so whoever is inside keeps its place.
void take_excess_away() {
    constexpr int most = 1000; // each time, whatever other processes post
    int free = 0;
    (void)sem_getvalue(semaphore, &free);
    const int excess = std::min(free - (admitted - 1), most);
    for (int i = 0; i < excess && sem_trywait(semaphore) == 0; i++) {}
}

} // namespace

void hbs_sem_post() {
    publish_image();
    if (semaphore == SEM_FAILED)
        return;
    take_excess_away();
    (void)sem_post(semaphore);
}
