// The process's attachment to the segment and to the semaphore that guards it.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <semaphore.h>
#include <sys/types.h>

// How long a key counts as the segment's own without a look at the key file, in ms.
constexpr int HBS_QUERY_KEY_MS = 100;

struct hbs_query_attachment {
    const uint8_t *base; // HBS_SHM_SIZE bytes, mapped read-only; null while the element is free
    sem_t *semaphore;
    int shm_id;
    unsigned users; // calls that use it now
    bool retired;   // taken out of use; closed when its last user lets go
    // How many holders the semaphore admits, as far as it was seen; 0 = not yet known.
    std::atomic<int> capacity;
    // Who attached the segment last and when (seconds), and when its key was last looked up (coarse monotonic
    // clock, ms).
    pid_t last_user;
    time_t last_attached;
    int64_t looked_up;
};

// Gives the attachment to the segment that bears the key now, attaching when it is new. A segment that was
// removed is not used again; one that stands on beside the new one of another key file is left within
// HBS_QUERY_KEY_MS. Returns HOSTBASE_OK, HOSTBASE_NO_SEGMENT, HOSTBASE_NO_PERMISSION or HOSTBASE_NO_MEMORY.
int hbs_query_acquire(hbs_query_attachment **attachment);

// Lets go. `retire` takes the attachment out of use, so that the next call opens everything afresh.
void hbs_query_release(hbs_query_attachment *attachment, bool retire);
