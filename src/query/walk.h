// Follows the offset links of the segment's lists, trusting none of them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/db_layout.h"

// One word of the segment, read exactly once. The pointer must be 4-byte aligned.
uint32_t hbs_query_word(const uint8_t *at);

// Whether `offset` is the start of an element of the list's pool.
bool hbs_query_is_element(const hbs_pool_layout *list, uint32_t offset);

// Walks a list from its first element. `pool` points to the pool's bytes, or to a copy of them;
// `first` is the list head's next word. Copies up to `capacity` elements, in list order, into
// `elements` (may be null with capacity 0). Returns how many elements the list has, or -1 when a link
// leaves the pool, the chain does not come back to the head, or an element contradicts itself.
int hbs_query_collect(const hbs_pool_layout *list, const uint8_t *pool, uint32_t first, void *elements,
                      size_t capacity);
