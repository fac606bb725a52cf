#include "query/list_copy.h"

#include <cstdlib>
#include <cstring>

#include <hostbase_query.h>

#include "base/scope.h"
#include "query/look.h"

namespace {

// A copied list: the head's next word, then the pool.
constexpr size_t POOL_AT = sizeof(uint32_t);

size_t pool_size(const hbs_pool_layout *list) {
    return size_t{list->size} * list->capacity;
}

bool copy_pool(const uint8_t *base, const void *what, void *into) {
    const hbs_pool_layout *list = static_cast<const hbs_pool_layout *>(what);
    uint8_t *copy = static_cast<uint8_t *>(into);
    memcpy(copy, base + list->head, POOL_AT);
    memcpy(copy + POOL_AT, base + list->first, pool_size(list));
    return true;
}

int collect(const void *copy, const hbs_pool_layout *list, void *elements, size_t capacity) {
    const uint8_t *bytes = static_cast<const uint8_t *>(copy);
    return hbs_query_collect(list, bytes + POOL_AT, hbs_query_word(bytes), elements, capacity);
}

bool is_sound_list(const void *copy, const void *what) {
    return collect(copy, static_cast<const hbs_pool_layout *>(what), nullptr, 0) >= 0;
}

} // namespace

int hbs_query_copy_list(hbs_pool pool, void *elements, size_t capacity, size_t *count) {
    const hbs_pool_layout *list = &hbs_layout_of(pool);
    const size_t size = POOL_AT + pool_size(list);
    uint8_t *copies = static_cast<uint8_t *>(calloc(2, size));
    hbs_at_exit release([&] { free(copies); });
    if (copies == nullptr)
        return HOSTBASE_NO_MEMORY;
    static_assert(sizeof(hbs_client) % 4 == 0 && sizeof(hbs_ip_entry) % 4 == 0,
                  "the second copy is 4-byte aligned because every element is");
    const hbs_query_look look = {copy_pool, is_sound_list, list, {copies, copies + size}, size};
    const void *agreed = nullptr;
    int result = hbs_query_agree(&look, &agreed);
    if (result == HOSTBASE_OK)
        *count = static_cast<size_t>(collect(agreed, list, elements, capacity));
    return result;
}

namespace {

bool copy_segment(const uint8_t *base, const void *, void *into) {
    memcpy(into, base, HBS_SHM_SIZE);
    return true;
}

bool is_sound_segment(const void *copy, const void *) {
    const uint8_t *base = static_cast<const uint8_t *>(copy);
    for (const hbs_pool_layout &list : hbs_pool_layouts)
        if (hbs_query_collect(&list, base + list.first, hbs_query_word(base + list.head), nullptr, 0) < 0)
            return false;
    return true;
}

} // namespace

int hbs_query_copy_all(hbs_db *db) {
    uint8_t *copies = static_cast<uint8_t *>(calloc(2, HBS_SHM_SIZE));
    hbs_at_exit release([&] { free(copies); });
    if (copies == nullptr)
        return HOSTBASE_NO_MEMORY;
    const hbs_query_look look = {
        copy_segment, is_sound_segment, nullptr, {copies, copies + HBS_SHM_SIZE}, HBS_SHM_SIZE};
    const void *agreed = nullptr;
    int result = hbs_query_agree(&look, &agreed);
    if (result == HOSTBASE_OK)
        memcpy(db, agreed, HBS_SHM_SIZE);
    return result;
}
