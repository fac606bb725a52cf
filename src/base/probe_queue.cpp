#include "base/probe_queue.h"

#include <algorithm>
#include <cstring>
#include <pthread.h>

#include "base/clock.h"
#include "base/deadline.h"

namespace {

constexpr int64_t MINUTE = 60'000;
constexpr int64_t PATIENCE = 2000; // milliseconds that a question may wait
constexpr int ROOM = 256;          // questions waiting and out
constexpr int PLACE_ROOM = 128;    // those of them that may wait for ever, so that the others find room
constexpr int DEVICE_SHARE = 10;   // questions of a kind about one device in a minute
constexpr int MOST_PER_MINUTE = 240;

struct kind_limits {
    int out;        // questions that are asked at the same time
    int per_minute; // for the whole house; 0 = as many as come, and as many for a device
    int room;       // questions waiting and out
    bool keeps;     // none is ever too late, and what comes while the same is out is asked after it
};

// The answers of nbtscan go through one file. The kernel tells the state of a neighbour soon, however often
// it is asked, and a lease whose device it was not asked for would make a second record of it. The place of a
// device it tells after as long as it takes; what happened after it looked needs another look.
constexpr kind_limits LIMITS[HBS_PROBE_KINDS] = {
    {1, 60, ROOM, false}, {2, 120, ROOM, false}, {1, 0, ROOM, false}, {1, MOST_PER_MINUTE, PLACE_ROOM, true}};
static_assert(LIMITS[0].out + LIMITS[1].out + LIMITS[2].out + LIMITS[3].out == HBS_PROBE_THREADS);

enum class place : uint8_t { free, waits, is_out, is_late };

struct slot {
    hbs_probe probe;
    int64_t since;
    uint32_t order; // of arrival
    place where;
};

struct expense {
    int64_t when;
    uint8_t mac[6];
    uint8_t ll[16]; // of a device without MAC
};

// The last questions of a kind that were taken, as a ring.
struct expenses {
    expense ring[MOST_PER_MINUTE];
    int next;
};

// All state is guarded by `lock` and valid when zeroed.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t changed; // made when the queue is opened, on CLOCK_MONOTONIC
bool is_open;
hbs_probe_action actions[HBS_PROBE_KINDS];
slot slots[ROOM];
uint32_t arrivals;
expenses spent[HBS_PROBE_KINDS];

struct hold {
    hold() { (void)pthread_mutex_lock(&lock); }
    ~hold() { (void)pthread_mutex_unlock(&lock); }
    hold(const hold &) = delete;
    hold &operator=(const hold &) = delete;
};

// A device is its MAC, or its link-local address when it has none.
expense expense_of(const hbs_probe *probe) {
    constexpr uint8_t none[6] = {};
    expense result{};
    memcpy(result.mac, probe->mac, sizeof result.mac);
    if (memcmp(probe->mac, none, sizeof none) == 0)
        memcpy(result.ll, probe->ll, sizeof result.ll);
    return result;
}

bool is_same_device(const expense &a, const expense &b) {
    return memcmp(a.mac, b.mac, sizeof a.mac) == 0 && memcmp(a.ll, b.ll, sizeof a.ll) == 0;
}

bool is_rival(const slot &other, const hbs_probe *probe) {
    return other.where != place::free && other.probe.kind == probe->kind &&
           is_same_device(expense_of(&other.probe), expense_of(probe));
}

slot *find_rival(const hbs_probe *probe, place where) {
    for (slot &each : slots)
        if (each.where == where && is_rival(each, probe))
            return &each;
    return nullptr;
}

slot *find_free() {
    for (slot &each : slots)
        if (each.where == place::free)
            return &each;
    return nullptr;
}

// Notes a question in the budget; false when its device or the house has had its share of this minute.
bool spend(const hbs_probe *probe, int64_t now) {
    if (LIMITS[probe->kind].per_minute == 0)
        return true;
    expenses *of = &spent[probe->kind];
    expense own = expense_of(probe);
    int by_house = 0;
    int by_device = 0;
    for (const expense &each : of->ring) {
        if (each.when == 0 || now - each.when >= MINUTE)
            continue;
        by_house++;
        by_device += is_same_device(each, own) ? 1 : 0;
    }
    if (by_house >= LIMITS[probe->kind].per_minute || by_device >= DEVICE_SHARE)
        return false;
    own.when = now;
    of->ring[of->next] = own;
    of->next = (of->next + 1) % MOST_PER_MINUTE;
    return true;
}

bool has_room(hbs_probe_kind kind) {
    int count = 0;
    for (const slot &each : slots)
        count += each.where != place::free && each.probe.kind == kind ? 1 : 0;
    return count < LIMITS[kind].room;
}

int count_out(hbs_probe_kind kind) {
    int count = 0;
    for (const slot &each : slots)
        count += each.where == place::is_out && each.probe.kind == kind ? 1 : 0;
    return count;
}

bool may_go_out(const slot &each) {
    return each.where == place::waits && count_out(each.probe.kind) < LIMITS[each.probe.kind].out &&
           find_rival(&each.probe, place::is_out) == nullptr;
}

slot *find_late(int64_t now) {
    for (slot &each : slots)
        if (each.where == place::waits && !LIMITS[each.probe.kind].keeps && now - each.since >= PATIENCE)
            return &each;
    return nullptr;
}

// The newest goes first: who comes while a crowd of silent devices waits is not behind them.
slot *find_newest() {
    slot *found = nullptr;
    for (slot &each : slots)
        if (may_go_out(each) && (found == nullptr || static_cast<int32_t>(each.order - found->order) > 0))
            found = &each;
    return found;
}

// Callers hold the lock. Null when there is nothing to be done now.
slot *take() {
    if (slot *late = find_late(hbs_monotonic_milliseconds())) {
        late->where = place::is_late;
        return late;
    }
    slot *newest = find_newest();
    if (newest != nullptr)
        newest->where = place::is_out;
    return newest;
}

// Callers hold the lock, which is let go meanwhile.
void ask(slot *taken) {
    const hbs_probe probe = taken->probe;
    const bool in_time = taken->where == place::is_out;
    const hbs_probe_action action = actions[probe.kind];
    (void)pthread_mutex_unlock(&lock);
    action(&probe, in_time);
    (void)pthread_mutex_lock(&lock);
    taken->where = place::free;
    (void)pthread_cond_broadcast(&changed);
}

// Milliseconds (at most PATIENCE) until a question that waits is late; -1 = none will be. Callers hold the
// lock.
int64_t until_late() {
    int64_t first = -1;
    for (const slot &each : slots)
        if (each.where == place::waits && !LIMITS[each.probe.kind].keeps)
            first = first < 0 ? each.since : std::min(first, each.since);
    return first < 0 ? -1 : std::max<int64_t>(first + PATIENCE - hbs_monotonic_milliseconds(), 0);
}

// Until something changes or a question is late. Callers hold the lock, which is let go meanwhile.
void wait_for_work() {
    const int64_t left = until_late();
    if (left < 0) {
        (void)pthread_cond_wait(&changed, &lock);
        return;
    }
    const timespec end = hbs_monotonic_in(static_cast<int>(left));
    (void)pthread_cond_timedwait(&changed, &lock, &end);
}

} // namespace

void hbs_probe_register(hbs_probe_kind kind, hbs_probe_action action) {
    const hold held;
    actions[kind] = action;
}

bool hbs_probe_post(const hbs_probe *probe) {
    const hold held;
    if (!is_open || actions[probe->kind] == nullptr)
        return false;
    const slot *out = find_rival(probe, place::is_out);
    if (out != nullptr && !LIMITS[probe->kind].keeps && memcmp(&out->probe, probe, sizeof *probe) == 0)
        return true;
    if (slot *waits = find_rival(probe, place::waits)) {
        waits->probe = *probe;
        return true;
    }
    const int64_t now = hbs_monotonic_milliseconds();
    slot *taken = find_free();
    if (taken == nullptr || !has_room(probe->kind) || !spend(probe, now))
        return false;
    *taken = {*probe, now, ++arrivals, place::waits};
    (void)pthread_cond_signal(&changed);
    return true;
}

void hbs_probe_open() {
    const hold held;
    if (!is_open)
        hbs_monotonic_condition(&changed);
    is_open = true;
}

bool hbs_probe_is_open() {
    const hold held;
    return is_open;
}

bool hbs_probe_serve() {
    const hold held;
    slot *taken = take();
    if (taken != nullptr)
        ask(taken);
    return taken != nullptr;
}

void *hbs_probe_thread(void *) {
    hbs_probe_open();
    const hold held;
    for (;;)
        if (slot *taken = take())
            ask(taken);
        else
            wait_for_work();
}
