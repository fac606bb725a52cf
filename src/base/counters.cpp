#include "base/counters.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/text.h"

namespace {

hbs_counts own_counts;
hbs_counts *counts = &own_counts;

} // namespace

void hbs_count(hbs_counter what, uint32_t times) {
    hbs_counts *now = __atomic_load_n(&counts, __ATOMIC_ACQUIRE);
    (void)__atomic_fetch_add(&now->count[what], times, __ATOMIC_RELAXED);
}

// The room is taken at once: where it could not be, counting would end the daemon later.
bool hbs_counters_share(int file, const char *version) {
    if (ftruncate(file, 0) != 0 || posix_fallocate(file, 0, sizeof(hbs_counts)) != 0)
        return false;
    void *shared = mmap(nullptr, sizeof(hbs_counts), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (shared == MAP_FAILED)
        return false;
    auto *told = static_cast<hbs_counts *>(shared);
    hbs_copy_text(told->version, sizeof told->version, version);
    __atomic_store_n(&counts, told, __ATOMIC_RELEASE);
    return true;
}
