#include "query/attachment.h"

#include <cerrno>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <hbs_db.h>
#include <hostbase_query.h>

namespace {

// One is in use; the others are there for threads that still read a segment that was removed.
hbs_query_attachment attachments[4];
hbs_query_attachment *current;
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
pthread_once_t fork_once = PTHREAD_ONCE_INIT;

void close_attachment(hbs_query_attachment *attachment) {
    (void)shmdt(attachment->base);
    (void)sem_close(attachment->semaphore);
    attachment->base = nullptr;
    attachment->retired = false;
}

void retire(hbs_query_attachment *attachment) {
    attachment->retired = true;
    if (attachment == current)
        current = nullptr;
    if (attachment->users == 0)
        close_attachment(attachment);
}

void before_fork() {
    (void)pthread_mutex_lock(&lock);
}

void after_fork_in_parent() {
    (void)pthread_mutex_unlock(&lock);
}

// The child has only the thread that forked, which is in no call: nobody uses anything.
void after_fork_in_child() {
    for (hbs_query_attachment &attachment : attachments) {
        attachment.users = 0;
        if (attachment.retired)
            close_attachment(&attachment);
    }
    (void)pthread_mutex_unlock(&lock);
}

void register_fork_handlers() {
    (void)pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

int result_of_errno() {
    switch (errno) {
    case EACCES:
    case EPERM:
        return HOSTBASE_NO_PERMISSION;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return HOSTBASE_NO_MEMORY;
    }
    return HOSTBASE_NO_SEGMENT;
}

// Asking for the full size makes the kernel refuse a segment that is too small to be read safely.
int find_segment(int *shm_id) {
    key_t key = ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID);
    if (key == -1)
        return result_of_errno();
    *shm_id = shmget(key, HBS_SHM_SIZE, 0);
    return *shm_id == -1 ? result_of_errno() : int{HOSTBASE_OK};
}

// A daemon that starts attaches the segment and admits one more holder: how many they are must then be found
// out again.
void see_users(hbs_query_attachment *attachment, const shmid_ds *state) {
    if (state->shm_lpid == attachment->last_user && state->shm_atime == attachment->last_attached)
        return;
    attachment->capacity.store(0, std::memory_order_relaxed);
    attachment->last_user = state->shm_lpid;
    attachment->last_attached = state->shm_atime;
}

int open_attachment(hbs_query_attachment *attachment, int shm_id) {
    sem_t *semaphore = sem_open(HBS_SEMAPHORE_NAME, 0);
    if (semaphore == SEM_FAILED)
        return result_of_errno();
    void *base = shmat(shm_id, nullptr, SHM_RDONLY);
    if (reinterpret_cast<intptr_t>(base) == -1) {
        int result = result_of_errno();
        (void)sem_close(semaphore);
        return result;
    }
    attachment->base = static_cast<const uint8_t *>(base);
    attachment->semaphore = semaphore;
    attachment->shm_id = shm_id;
    attachment->users = 0;
    attachment->retired = false;
    attachment->capacity.store(0, std::memory_order_relaxed);
    shmid_ds state = {};
    (void)shmctl(shm_id, IPC_STAT, &state);
    see_users(attachment, &state);
    return HOSTBASE_OK;
}

hbs_query_attachment *free_element() {
    for (hbs_query_attachment &attachment : attachments)
        if (attachment.base == nullptr)
            return &attachment;
    return nullptr;
}

int make_current(int shm_id) {
    if (current != nullptr && current->shm_id == shm_id)
        return HOSTBASE_OK;
    if (current != nullptr)
        retire(current);
    hbs_query_attachment *fresh = free_element();
    if (fresh == nullptr)
        return HOSTBASE_NO_MEMORY;
    int result = open_attachment(fresh, shm_id);
    if (result == HOSTBASE_OK)
        current = fresh;
    return result;
}

int64_t coarse_ms() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Looks the segment up by its key.
int look_up() {
    int shm_id = -1;
    int result = find_segment(&shm_id);
    if (result == HOSTBASE_OK)
        result = make_current(shm_id);
    else if (current != nullptr)
        retire(current);
    if (result == HOSTBASE_OK)
        current->looked_up = coarse_ms();
    return result;
}

// Whether the current attachment may be used without looking its segment up: it was not removed, and that was
// not long ago.
bool still_stands() {
    shmid_ds state = {};
    if (current == nullptr || shmctl(current->shm_id, IPC_STAT, &state) != 0 ||
        (state.shm_perm.mode & SHM_DEST) != 0)
        return false;
    see_users(current, &state);
    return coarse_ms() - current->looked_up < HBS_QUERY_KEY_MS;
}

} // namespace

int hbs_query_acquire(hbs_query_attachment **attachment) {
    (void)pthread_once(&fork_once, register_fork_handlers);
    (void)pthread_mutex_lock(&lock);
    int result = still_stands() ? int{HOSTBASE_OK} : look_up();
    if (result == HOSTBASE_OK) {
        current->users++;
        *attachment = current;
    }
    (void)pthread_mutex_unlock(&lock);
    return result;
}

void hbs_query_release(hbs_query_attachment *attachment, bool retire_it) {
    (void)pthread_mutex_lock(&lock);
    attachment->users--;
    if (retire_it || (attachment->retired && attachment->users == 0))
        retire(attachment);
    (void)pthread_mutex_unlock(&lock);
}
