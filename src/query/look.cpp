#include "query/look.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <pthread.h>

#include <hostbase_query.h>

#include "base/scope.h"
#include "base/sem_deadline.h"
#include "query/attachment.h"

namespace {

constexpr int MAX_LOOKS = 32;     // with a pause after every second one: about 65 ms
constexpr int LEARNING_LOOKS = 8; // after these, the semaphore's capacity counts as known
constexpr int PATIENCE = 8;       // pauses that a copy must outlast while others may be inside

// What one look left behind.
struct seen {
    bool whole; // the copy is complete
    bool calm;  // nobody else was inside the semaphore when it ended
    int spare;  // further holders that it would have admitted
};

// Everything but the faults of this thread's own making, which cannot wait.
void hold_signals_back(sigset_t *before) {
    sigset_t all;
    (void)sigfillset(&all);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        (void)sigdelset(&all, fault);
    (void)pthread_sigmask(SIG_SETMASK, &all, before);
}

// Runs `inside` with the semaphore held. Returns false when it did not come before the deadline.
bool hold(sem_t *semaphore, const timespec *deadline, auto inside) {
    sigset_t before;
    hold_signals_back(&before);
    hbs_at_exit restore([&] { (void)pthread_sigmask(SIG_SETMASK, &before, nullptr); });
    if (!hbs_sem_wait_until(semaphore, deadline))
        return false;
    inside();
    (void)sem_post(semaphore);
    return true;
}

int spare_holders(sem_t *semaphore) {
    int spare = 0;
    (void)sem_getvalue(semaphore, &spare);
    return spare;
}

// --- one look, alone ------------------------------------------------------------------------------------

// Returns false when the semaphore did not come before the deadline. *taken [out]: the call has what it
// needs.
bool take_alone(hbs_query_attachment *attachment, const timespec *deadline, const hbs_query_look *look,
                bool *taken) {
    sem_t *semaphore = attachment->semaphore;
    return hold(semaphore, deadline, [&] {
        *taken = spare_holders(semaphore) == 0 && look->take(attachment->base, look->call) &&
                 spare_holders(semaphore) == 0;
    });
}

// --- two looks that agree ---------------------------------------------------------------------------------

// A writer that lost its processor in the middle of a record would show the same torn record twice.
// Two looks in quick succession therefore count only when nobody else was inside: the semaphore had
// as many holders to spare as it ever has. As long as that number is not known, no look is calm.
bool is_calm(hbs_query_attachment *attachment, int spare) {
    int capacity = attachment->capacity.load(std::memory_order_relaxed);
    if (capacity != 0 && spare + 1 > capacity)
        attachment->capacity.store(spare + 1, std::memory_order_relaxed);
    return capacity != 0 && spare + 1 >= capacity;
}

// Returns false when the semaphore did not come before the deadline.
bool look_once(hbs_query_attachment *attachment, const timespec *deadline, const hbs_query_look *look,
               void *into, seen *now) {
    if (!hold(attachment->semaphore, deadline, [&] {
            now->whole = look->copy(attachment->base, look->call, into);
            now->spare = spare_holders(attachment->semaphore);
        }))
        return false;
    now->calm = is_calm(attachment, now->spare);
    return true;
}

void pause_after(int look_number) {
    const timespec pause = {0, look_number < LEARNING_LOOKS ? 1000000 : 5000000};
    (void)nanosleep(&pause, nullptr);
}

// `copies`: room for two.
int agree_on(hbs_query_attachment *attachment, const timespec *deadline, const hbs_query_look *look,
             uint8_t *copies) {
    seen previous = {};
    int most_spare = 0;
    int outlasted = 0; // pauses since the copies last differed
    bool given = false;
    for (int i = 0; i < MAX_LOOKS && !given; i++) {
        uint8_t *into = copies + look->size * (i % 2);
        seen now = {};
        if (!look_once(attachment, deadline, look, into, &now))
            return HOSTBASE_BUSY;
        most_spare = now.spare > most_spare ? now.spare : most_spare;
        bool same = previous.whole && now.whole && memcmp(copies, copies + look->size, look->size) == 0;
        outlasted = same ? outlasted : 0;
        bool trusted = (previous.calm && now.calm) || outlasted >= PATIENCE;
        given = same && trusted && look->give(into, look->call);
        if (i % 2 == 1 && !given) {
            pause_after(i);
            outlasted++;
        }
        if (i + 1 == LEARNING_LOOKS && attachment->capacity.load(std::memory_order_relaxed) == 0)
            attachment->capacity.store(most_spare + 1, std::memory_order_relaxed);
        previous = now;
    }
    if (outlasted >= PATIENCE || !given) // a holder was lost: fewer are admitted by now
        attachment->capacity.store(most_spare + 1, std::memory_order_relaxed);
    return given ? HOSTBASE_OK : HOSTBASE_UNSTABLE;
}

int look_at(hbs_query_attachment *attachment, const hbs_query_look *look) {
    const timespec deadline = hbs_monotonic_in(HOSTBASE_WAIT_MS);
    bool taken = false;
    const bool alone = attachment->capacity.load(std::memory_order_relaxed) == 1;
    if (alone && !take_alone(attachment, &deadline, look, &taken))
        return HOSTBASE_BUSY;
    if (taken)
        return HOSTBASE_OK;
    uint8_t *copies = static_cast<uint8_t *>(calloc(2, look->size));
    if (copies == nullptr)
        return HOSTBASE_NO_MEMORY;
    hbs_at_exit release([&] { free(copies); });
    return agree_on(attachment, &deadline, look, copies);
}

} // namespace

int hbs_query_agree(const hbs_query_look *look) {
    int cancel_state = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    hbs_at_exit restore([&] { (void)pthread_setcancelstate(cancel_state, nullptr); });
    hbs_query_attachment *attachment = nullptr;
    int result = hbs_query_acquire(&attachment);
    if (result != HOSTBASE_OK)
        return result;
    result = look_at(attachment, look);
    // A semaphore that was made anew leaves this one without anybody who would ever post it.
    hbs_query_release(attachment, result == HOSTBASE_BUSY);
    return result;
}
