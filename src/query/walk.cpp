#include "query/walk.h"

#include <cstring>

uint32_t hbs_query_word(const uint8_t *at) {
    return __atomic_load_n(static_cast<const uint32_t *>(__builtin_assume_aligned(at, 4)), __ATOMIC_RELAXED);
}

bool hbs_query_is_element(const hbs_pool_layout *list, uint32_t offset) {
    if (offset < list->first)
        return false;
    uint32_t into = offset - list->first;
    return into % list->size == 0 && into / list->size < list->capacity;
}

namespace {

// A published client holds its own offset; an index entry holds at least one and no more key words
// than its kind has room for.
bool is_consistent(const hbs_pool_layout *list, const uint8_t *element, uint32_t offset) {
    uint32_t word = hbs_query_word(element + offsetof(hbs_index_entry, count));
    static_assert(offsetof(hbs_index_entry, count) == offsetof(hbs_client, dbpos));
    if (list->key_words == 0)
        return word == offset;
    return word >= 1 && word <= list->key_words;
}

} // namespace

int hbs_query_collect(const hbs_pool_layout *list, const uint8_t *pool, uint32_t first, void *elements,
                      size_t capacity) {
    uint8_t *out = static_cast<uint8_t *>(elements);
    uint32_t offset = first;
    uint32_t found = 0;
    while (offset != list->head) {
        if (found == list->capacity || !hbs_query_is_element(list, offset))
            return -1;
        const uint8_t *element = pool + (offset - list->first);
        if (!is_consistent(list, element, offset))
            return -1;
        if (found < capacity)
            memcpy(out + size_t{found} * list->size, element, list->size);
        found++;
        offset = hbs_query_word(element);
    }
    return static_cast<int>(found);
}
