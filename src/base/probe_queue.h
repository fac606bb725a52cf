// What the daemon asks others (a host, the kernel) and may have to wait for: questions are queued by whoever
// needs an answer and asked by threads of their own, which hold no lock meanwhile. The queue knows no
// clients: it keeps the questions apart by the device that they are about, so that no device uses up what is
// there for the others. Its own lock is taken inside hbs_list_mutex and held for short.
#pragma once

#include <cstdint>

enum hbs_probe_kind : uint8_t {
    HBS_PROBE_NETBIOS,
    HBS_PROBE_SEED,
    HBS_PROBE_NEIGHBOUR,
    HBS_PROBE_PLACE, // where a device is, by its MAC
    HBS_PROBE_KINDS
};

// A question. What is not used is zero: two questions are the same when all their bytes are.
struct hbs_probe {
    hbs_probe_kind kind;
    uint8_t network;     // of the device
    uint8_t mac[6];      // of the device; zeros = it is known by its address only
    uint8_t ll[16];      // link-local address of the device, or what else tells one without MAC apart
    uint8_t address[16]; // what is asked for; IPv4 in the first four bytes
    uint32_t ticket;     // the asker's
};

// Asks and has the answer applied; runs without any lock. in_time false: the question waited for too long and
// is not asked, it counts as one without an answer. A question for a place is never too late.
using hbs_probe_action = void (*)(const hbs_probe *probe, bool in_time);

// The threads that ask: as many as questions of all kinds may be out together.
constexpr int HBS_PROBE_THREADS = 5;

// Registered once at start-up, because the actions stand above this floor.
void hbs_probe_register(hbs_probe_kind kind, hbs_probe_action action);

// Queues a question. False when it cannot be asked, which counts as "no answer": no thread asks yet
// (start-up), there is no room, or the minute's share of the device or of the house is used up, which the
// kernel's neighbours have none of. Per kind and device one question is out and one waits: a newer one takes
// the place of the one that waits, and one that is out already is not queued again, but for a place.
bool hbs_probe_post(const hbs_probe *probe);

// From now on questions are taken. Whether they are.
void hbs_probe_open();
bool hbs_probe_is_open();

// Asks one question that may be asked now, on the caller's thread. False when there is none.
bool hbs_probe_serve();

// A thread that asks for ever. It opens the queue.
void *hbs_probe_thread(void *);
