// The order in which the daemon's locks are taken.
#pragma once

// Each is taken only by who holds none of its own kind or a later one; the list mutex is recursive, so it may
// be taken again. The last two are locks of one subject each, held for a copy, in which no other code runs
// that takes one of the first two. What is taken with a time limit is the agent library's: nothing else is.
enum lock_kind { LIST_MUTEX, SEMAPHORE, AGENT_LOCK, ANY_OTHER, LOCK_KINDS };

// What a thread is about to wait for, holds, and gives back. What is out of order is told on standard error.
// How often each kind was taken, and how often something was given back by a thread that was not seen to take
// it, is kept in the file that HBS_LOCK_HOLDS names: 64-bit numbers, one after the other.
void lock_order_wanted(lock_kind kind);
void lock_order_taken(lock_kind kind, const void *lock);
void lock_order_given(const void *lock);
bool lock_order_holds(const void *lock);
