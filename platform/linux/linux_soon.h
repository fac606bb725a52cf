// What may wait for the kernel, done for those who hold the daemon's lock: with an end to the wait.
#pragma once

#include <cstddef>
#include <cstdint>

// A question to routing netlink waits for the kernel's lock on all links, in the system call itself, for as
// long as somebody else holds it. A thread of its own waits there; who asked goes on when this is used up.
// All waits of one hold of the daemon's lock together stay below 50 ms: of each question LINUX_FREE_US are
// free, and what is spent comes back slowly.
constexpr int64_t LINUX_PATIENCE_US = 36000;
constexpr int64_t LINUX_FREE_US = 1000;
constexpr int64_t LINUX_COMES_BACK = 8; // one microsecond in so many

struct linux_patience {
    int64_t spent_us;
    int64_t at_us; // CLOCK_MONOTONIC
};

// How much of it is left at a moment, and what a wait takes of it.
int64_t linux_patience_left(linux_patience *patience, int64_t now_us);
void linux_patience_spend(linux_patience *patience, int64_t waited_us);

int64_t linux_now_us(); // CLOCK_MONOTONIC

// Bytes that a job may have of its own.
constexpr size_t LINUX_JOB_SIZE = 128;

// Returns false with errno when it failed.
using linux_job = bool (*)(void *context);

// Runs the job on a copy of the context, which comes back when it is done. Returns false with ETIMEDOUT and
// leaves the context alone when that is not soon enough, else what the job returned.
bool linux_soon(linux_job job, void *context, size_t size);

// Runs the job when there is time for it; waits for nothing. Returns false when too many are waiting.
bool linux_later(linux_job job, const void *context, size_t size);
