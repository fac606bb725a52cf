#include "query/look.h"

#include <csignal>
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

// Returns false when the semaphore did not come before the deadline.
bool look_once(const hbs_query_attachment *attachment, const timespec *deadline, const hbs_query_look *look,
               void *into, seen *result) {
    sigset_t before;
    hold_signals_back(&before);
    hbs_at_exit restore([&] { (void)pthread_sigmask(SIG_SETMASK, &before, nullptr); });
    if (!hbs_sem_wait_until(attachment->semaphore, deadline))
        return false;
    result->whole = look->copy(attachment->base, look->what, into);
    (void)sem_getvalue(attachment->semaphore, &result->spare);
    (void)sem_post(attachment->semaphore);
    return true;
}

// A writer that lost its processor in the middle of a record would show the same torn record twice.
// Two looks in quick succession therefore count only when nobody else was inside: the semaphore had
// as many holders to spare as it ever has. As long as that number is not known, no look is calm.
bool is_calm(hbs_query_attachment *attachment, int spare) {
    int capacity = attachment->capacity.load(std::memory_order_relaxed);
    if (capacity != 0 && spare + 1 > capacity)
        attachment->capacity.store(spare + 1, std::memory_order_relaxed);
    return capacity != 0 && spare + 1 >= capacity;
}

void pause_after(int look_number) {
    const timespec pause = {0, look_number < LEARNING_LOOKS ? 1000000 : 5000000};
    (void)nanosleep(&pause, nullptr);
}

bool same_copies(const hbs_query_look *look) {
    return memcmp(look->copies[0], look->copies[1], look->size) == 0;
}

bool is_sound(const hbs_query_look *look, const void *copy) {
    return look->sound == nullptr || look->sound(copy, look->what);
}

int agree_on(hbs_query_attachment *attachment, const hbs_query_look *look, const void **agreed) {
    const timespec deadline = hbs_monotonic_in(HOSTBASE_WAIT_MS);
    seen previous = {};
    int most_spare = 0;
    int outlasted = 0; // pauses since the copies last differed
    for (int i = 0; i < MAX_LOOKS; i++) {
        void *into = look->copies[i % 2];
        seen now = {};
        if (!look_once(attachment, &deadline, look, into, &now))
            return HOSTBASE_BUSY;
        now.calm = is_calm(attachment, now.spare);
        most_spare = now.spare > most_spare ? now.spare : most_spare;
        bool same = previous.whole && now.whole && same_copies(look);
        outlasted = same ? outlasted : 0;
        bool trusted = (previous.calm && now.calm) || outlasted >= PATIENCE;
        if (same && trusted && is_sound(look, into)) {
            *agreed = into;
            break;
        }
        if (i % 2 == 1) {
            pause_after(i);
            outlasted++;
        }
        if (i + 1 == LEARNING_LOOKS && attachment->capacity.load(std::memory_order_relaxed) == 0)
            attachment->capacity.store(most_spare + 1, std::memory_order_relaxed);
        previous = now;
    }
    if (outlasted >= PATIENCE || *agreed == nullptr) // a holder was lost: fewer are admitted by now
        attachment->capacity.store(most_spare + 1, std::memory_order_relaxed);
    return *agreed == nullptr ? HOSTBASE_UNSTABLE : HOSTBASE_OK;
}

} // namespace

int hbs_query_agree(const hbs_query_look *look, const void **agreed) {
    int cancel_state = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    hbs_at_exit restore([&] { (void)pthread_setcancelstate(cancel_state, nullptr); });
    *agreed = nullptr;
    hbs_query_attachment *attachment = nullptr;
    int result = hbs_query_acquire(&attachment);
    if (result != HOSTBASE_OK)
        return result;
    result = agree_on(attachment, look, agreed);
    // A semaphore that was made anew leaves this one without anybody who would ever post it.
    hbs_query_release(attachment, result == HOSTBASE_BUSY);
    return result;
}
