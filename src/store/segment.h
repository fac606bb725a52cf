// The attached segment, and the named semaphore that guards it against the reader processes.
// Every store and index operation marked "locks" waits on the semaphore once and posts it once, never
// nested; the others run inside a caller that holds it. hbs_list_mutex is never taken here.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// The daemon's own image of the segment, or null without one. All work is done on the image; the post that
// ends a hold makes the segment like it, and with that undoes whatever another process wrote there. Nothing
// is ever read back from the segment.
const hbs_db *hbs_segment();

// The only way to write to the image: `size` bytes from `offset` on, within the segment's size. The post
// copies what was asked for here. What nobody asked for, and so can differ by another process's hand alone,
// is compared too: all of it, but in a storm. One that has lasted HBS_WHOLE_BURST holds, none of them
// HBS_CALM_MS after the one before it, compares a thirty-second of it at each further hold, in turn.
constexpr int HBS_WHOLE_BURST = 128;
constexpr int HBS_CALM_MS = 20;
void *hbs_segment_edit(uint32_t offset, uint32_t size);

// Compares all of it, and makes it like the image when it differs. While readers have the semaphore, nothing
// is done; when they have it at the next call, too, it is waited for as by an event, and taken over from who
// is lost. For a timer, so that neither damage nor a lost holder outlives the last event.
void hbs_segment_repair();

// What the readers see. Only its first hbs_segment_size() bytes are there.
hbs_db *hbs_segment_shared();
uint32_t hbs_segment_size();

// Notes where the segment is attached and how many of its bytes may be used. Called once, at start-up.
void hbs_segment_attach(void *base, uint32_t size);

// Opens the semaphore, creating it with value 0 and open to every user's readers. A failure is logged.
// Called at start-up, while no other thread makes files: the umask is the process's.
void hbs_sem_init();

// Publishes the image and posts the semaphore once more than before, which is what opens it to readers. As
// many holders as there are then may be inside at a time, until the next start.
void hbs_sem_admit();

// Waits on and posts the database semaphore; the post publishes the image first. An unusable semaphore makes
// nobody wait. A holder that does not let go within HBS_SEM_PATIENCE_MS of monotonic time (a reader that was
// killed) is taken over from, which is logged. A post never leaves more free than hbs_sem_admit() did: that
// is how the count comes down again when such a holder posts after all.
constexpr int HBS_SEM_PATIENCE_MS = 3000;
void hbs_sem_wait();
void hbs_sem_post();

// Holds the semaphore for a scope.
struct hbs_shm_hold {
    hbs_shm_hold() { hbs_sem_wait(); }
    ~hbs_shm_hold() { hbs_sem_post(); }
    hbs_shm_hold(const hbs_shm_hold &) = delete;
    hbs_shm_hold &operator=(const hbs_shm_hold &) = delete;
};
