// The attached segment, the daemon's image of it, and its semaphore.
#include "store/segment.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <semaphore.h>
#include <sys/stat.h>

#include "base/counters.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sem_deadline.h"

namespace {

constexpr uint32_t PIECE = 256; // bytes, as one is copied
constexpr uint32_t PIECES = (sizeof(hbs_db) + PIECE - 1) / PIECE;
constexpr uint32_t SHARES = 32; // of all pieces: one is compared at each hold of a storm
constexpr uint32_t SHARE = (PIECES + SHARES - 1) / SHARES;
constexpr uint32_t MARKS = 64; // pieces in a word of marks

hbs_db image;
uint64_t edited[(PIECES + MARKS - 1) / MARKS]; // a bit for each piece
uint32_t next_share;                           // from 0, of SHARES
int whole_left;                                // comparisons of all of it that may be made now
int64_t last_post_ms;                          // coarse monotonic
uint8_t *shared;
uint32_t segment_size;
sem_t *semaphore = SEM_FAILED;
int admitted = 1; // holders at a time, as the last start left the semaphore

} // namespace

const hbs_db *hbs_segment() {
    return shared == nullptr ? nullptr : &image;
}

void *hbs_segment_edit(uint32_t offset, uint32_t size) {
    for (uint32_t piece = offset / PIECE; piece * PIECE < offset + size; piece++)
        edited[piece / MARKS] |= uint64_t{1} << (piece % MARKS);
    return reinterpret_cast<uint8_t *>(&image) + offset;
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

struct byte_range {
    uint32_t from, to;
};

// Bytes of a run of pieces, as far as they are the daemon's: the reserved word in front is not.
byte_range range_of(uint32_t first, uint32_t count) {
    return {std::max(first * PIECE, uint32_t{offsetof(hbs_db, clients)}),
            std::min((first + count) * PIECE, segment_size)};
}

// By memmove, which compilers that save room do not write out as a loop over bytes.
void publish_range(byte_range range) {
    if (shared != nullptr && range.from < range.to)
        memmove(shared + range.from, reinterpret_cast<const uint8_t *>(&image) + range.from,
                range.to - range.from);
}

// Takes the first run of marks out of a word that has some.
void take_run(uint64_t *word, uint32_t *first, uint32_t *count) {
    *first = static_cast<uint32_t>(std::countr_zero(*word));
    *count = static_cast<uint32_t>(std::countr_one(*word >> *first));
    *word &= *word + (uint64_t{1} << *first);
}

void publish_edited() {
    for (uint32_t word = 0; word < std::size(edited); word++)
        while (edited[word] != 0) {
            uint32_t first = 0, count = 0;
            take_run(&edited[word], &first, &count);
            publish_range(range_of(word * MARKS + first, count));
        }
}

// Each calm moment gives back as many comparisons of all of the segment as it lasted.
bool is_whole_due() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const int64_t now_ms = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
    const int64_t calm = (now_ms - last_post_ms) / HBS_CALM_MS;
    last_post_ms = now_ms;
    whole_left = static_cast<int>(std::min(whole_left + calm, int64_t{HBS_WHOLE_BURST}));
    return whole_left > 0 && whole_left-- > 0;
}

// Pages that nobody wrote to stay clean.
void publish_if_different(byte_range range) {
    const uint8_t *own = reinterpret_cast<const uint8_t *>(&image);
    if (shared != nullptr && range.from < range.to &&
        memcmp(shared + range.from, own + range.from, range.to - range.from) != 0)
        publish_range(range);
}

// A function of its own in every build: how often all is compared goes by time, so what it costs is counted
// apart.
[[gnu::noinline]] void publish_shares(uint32_t count) {
    for (; count > 0; count--) {
        publish_if_different(range_of(next_share * SHARE, SHARE));
        next_share = (next_share + 1) % SHARES;
    }
}

void publish_image() {
    publish_edited();
    publish_shares(is_whole_due() ? SHARES : 1);
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

namespace {

bool is_damaged() {
    const byte_range all = range_of(0, PIECES);
    const uint8_t *own = reinterpret_cast<const uint8_t *>(&image);
    return shared != nullptr && all.from < all.to &&
           memcmp(shared + all.from, own + all.from, all.to - all.from) != 0;
}

bool is_semaphore_taken() {
    int free = 0;
    return semaphore != SEM_FAILED && sem_getvalue(semaphore, &free) == 0 && free == 0;
}

// A reader that was killed inside would keep the semaphore until the next event.
void end_lost_hold() {
    static bool was_taken;
    const bool taken = is_semaphore_taken();
    if (taken && was_taken)
        const hbs_shm_hold takes_over;
    was_taken = taken && !was_taken;
}

} // namespace

void hbs_segment_repair() {
    end_lost_hold();
    if (!is_damaged() || (semaphore != SEM_FAILED && sem_trywait(semaphore) != 0))
        return;
    publish_shares(SHARES);
    hbs_sem_post();
}

void hbs_sem_admit() {
    publish_shares(SHARES);
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
