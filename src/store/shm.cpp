// Start-up of the shared segment: creation or take-over, carving, and the post that opens it to readers.
#include "store/shm.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "base/log.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/rule_index.h"
#include "store/slots.h"

namespace {

bool create_key_file() {
    int file = hbs_plain_open(HBS_SHM_KEY_FILE, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (file < 0)
        return false;
    (void)close(file);
    return true;
}

int create_or_get_segment(key_t key) {
    int id = shmget(key, HBS_SHM_SIZE, IPC_CREAT | IPC_EXCL | HBS_SEGMENT_MODE);
    if (id >= 0)
        return id;
    if (errno != EEXIST) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to create hostbase shared memory - %s", strerror(errno));
        return -1;
    }
    id = shmget(key, 0, HBS_SEGMENT_MODE);
    if (id < 0)
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to get hostbase shared memory - %s", strerror(errno));
    return id;
}

// How much of the segment may be used: what was left under this key may be shorter than the database.
// 0 when it has not even room for the list heads, or its size cannot be learnt.
uint32_t usable_size(int id) {
    shmid_ds status{};
    if (shmctl(id, IPC_STAT, &status) != 0)
        return 0;
    if (status.shm_segsz >= HBS_SHM_SIZE)
        return HBS_SHM_SIZE;
    errno = EINVAL;
    return status.shm_segsz < offsetof(hbs_db, client_pool) ? 0 : static_cast<uint32_t>(status.shm_segsz);
}

// Only null is told as a failure. The error value (void *)-1 goes to the log like an address, but nothing
// can be carved there: the database then stays unattached.
void attach_segment(int id, uint32_t size) {
    void *base = shmat(id, nullptr, 0);
    if (base == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to attach shared memory segment to current process - %s",
                strerror(errno));
        return;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: shared memory attached at: %p\n", base);
    if (reinterpret_cast<intptr_t>(base) != -1)
        hbs_segment_attach(base, size);
}

void open_segment() {
    if (!create_key_file()) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Cannot create gwhostbase shared memory key file - %s", strerror(errno));
        return;
    }
    key_t key = ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID);
    if (key == -1) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to create hostbase shm key");
        return;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: shared memory size: %u\n", HBS_SHM_SIZE);
    int id = create_or_get_segment(key);
    if (id < 0)
        return;
    uint32_t size = usable_size(id);
    if (size == 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to get hostbase shared memory - %s", strerror(errno));
        return;
    }
    attach_segment(id, size);
}

} // namespace

// Nothing waits for the semaphore here: a new one is at 0, and only the post at the end opens it. Each
// later start of the daemon posts an existing one once more.
void hbs_shm_init() {
    hbs_sem_init();
    if (hbs_segment() == nullptr)
        open_segment();
    if (const hbs_db *db = hbs_segment_shared(); db != nullptr) {
        hbs_pools_carve();
        hbs_slots_clear();
        HBS_LOG(HBS_INFO, "HOSTBASE: shared memory [%p, %p)", static_cast<const void *>(db),
                static_cast<const void *>(reinterpret_cast<const uint8_t *>(db) + hbs_segment_size()));
        hbs_index_clear();
        hbs_rule_index_clear();
    }
    hbs_sem_admit();
}
