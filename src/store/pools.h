// The six element pools of the segment and the offset-linked lists that their elements are on. Which
// element is free, and the order of every list, is kept in process memory: the segment's own links are
// written for the readers and never read back, so a process that scribbles over them cannot lead the daemon
// astray. Internal to the store; callers hold the semaphore. Without a segment there are no elements, and
// every operation does nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/db_layout.h"

// Carves all pools of the attached segment (every element free) and makes the shared lists empty.
void hbs_pools_carve();

// Takes the first free element, zeroed whole; null when there is none (or no segment).
void *hbs_pool_take(hbs_pool pool);

// The element of a pool to be written to, within the hold that it was asked for in; null for what is none.
void *hbs_pool_edit(hbs_pool pool, const void *element);

// Appends an element to the pool's free list and zeroes its client reference (index kinds) or dbpos
// (clients). It must be on no shared list; an element that is free or on the shared list is left alone.
void hbs_pool_give(hbs_pool pool, const void *element);

// Returns every element to the free list: those on the shared list in its order, then those on no list.
void hbs_pool_give_all(hbs_pool pool);
int hbs_pool_free_count(hbs_pool pool);

// Offset of an element from the segment base (0 for null), and back. The element of an offset is null
// unless it is the start of an element of that pool.
uint32_t hbs_pool_offset(const void *element);
const void *hbs_pool_element(hbs_pool pool, uint32_t offset);
int hbs_pool_number(hbs_pool pool, const void *element); // 0-based place in the pool, or -1

// The shared list of a pool. before null = at the tail. Unlinking puts 0 in both links. Linking takes
// elements on no list only, unlinking those on the shared list only.
void hbs_list_link(hbs_pool pool, const void *element, const void *before);
void hbs_list_unlink(hbs_pool pool, const void *element);
const void *hbs_list_first(hbs_pool pool); // null when empty
const void *hbs_list_next(hbs_pool pool,
                          const void *element); // null at the end, and for an element off the list

// The first element of the list whose bytes from `at` on are these, or null. size: 4 and more.
const void *hbs_list_find(hbs_pool pool, size_t at, const void *bytes, size_t size);

// Changes whenever an element goes off one of the lists or is asked for in vain; never 0.
uint32_t hbs_lists_edition();

bool hbs_list_holds(hbs_pool pool, const void *element);
