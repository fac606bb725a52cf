// Looks at the segment until two of them agree.
#pragma once

#include <cstddef>
#include <cstdint>

struct hbs_query_look {
    // Copies what the call needs from the segment. Runs with the semaphore held: it must be brief and
    // trust nothing that it reads. Returns false when what it followed was torn.
    bool (*copy)(const uint8_t *base, const void *what, void *into);
    // Checks an agreed copy, with the semaphore given back. Null when there is nothing to check.
    bool (*sound)(const void *copy, const void *what);
    const void *what; // handed to both
    void *copies[2];  // room for two looks, `size` bytes each, zeroed
    size_t size;
};

// On HOSTBASE_OK *agreed is one of the two copies. Failures: those of hbs_query_acquire, HOSTBASE_BUSY
// and HOSTBASE_UNSTABLE.
int hbs_query_agree(const hbs_query_look *look, const void **agreed);
