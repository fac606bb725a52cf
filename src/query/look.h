// Looks at the segment: once while nobody else can be inside, else until two looks agree.
#pragma once

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

// Returns HOSTBASE_OK when one of `take` and `give` did. Failures: those of hbs_query_acquire, HOSTBASE_BUSY,
// HOSTBASE_UNSTABLE and HOSTBASE_NO_MEMORY.
int hbs_query_agree(const hbs_query_look *look);
