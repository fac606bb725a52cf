// The order in which the daemon's locks are taken.
#pragma once

// Each is taken only by who holds none of its own kind or a later one; the list mutex is recursive, so it may
// be taken again. "Any other" are locks of one subject each, held for a copy, in which no other code runs
// that takes one of the first two.
enum lock_kind { LIST_MUTEX, SEMAPHORE, ANY_OTHER };

// What a thread is about to wait for, holds, and gives back. What is out of order is told on standard error.
void lock_order_wanted(lock_kind kind);
void lock_order_taken(lock_kind kind, const void *lock);
void lock_order_given(const void *lock);
