// Looks at the segment: once while nobody else can be inside, else until two looks agree.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

struct hbs_query_look {
    // Takes what the call needs in one hold, and sees that it still stands there. Both this and `copy` run
    // with the semaphore held: they must be brief and trust nothing that they read. Return false when what
    // they followed was torn or damaged.
    bool (*take)(const uint8_t *base, void *call);
    // Copies the same into private memory, of which there is room for two looks, `size` bytes each, zeroed.
    bool (*copy)(const uint8_t *base, const void *call, void *into);
    // Takes it out of two copies that agree, with the semaphore given back. Returns false, and has written
    // nothing, when the copy is damaged.
    bool (*give)(const void *copy, void *call);
    void *call; // handed to all three
    size_t size;
};

// Between a copy and its comparison: for a compiler that knows of no other writer they are the same by
// themselves.
inline void hbs_query_look_anew() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// Returns HOSTBASE_OK when one of `take` and `give` did. Failures: those of hbs_query_acquire, HOSTBASE_BUSY,
// HOSTBASE_UNSTABLE and HOSTBASE_NO_MEMORY.
int hbs_query_agree(const hbs_query_look *look);
