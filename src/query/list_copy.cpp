#include "query/list_copy.h"

#include <cstring>

#include <hostbase_query.h>

#include "query/look.h"

// A list goes straight to the caller while nobody else can be inside. A private copy holds the head's next
// word, then the pool.
namespace {

constexpr size_t POOL_AT = sizeof(uint32_t);

struct list_call {
    const hbs_pool_layout *list;
    uint8_t *elements;
    size_t capacity;
    size_t found; // how many the list holds
};

size_t pool_size(const hbs_pool_layout *list) {
    return size_t{list->size} * list->capacity;
}

bool collect(const list_call *call, const uint8_t *pool, uint32_t first, void *elements, size_t *found) {
    int count =
        hbs_query_collect(call->list, pool, first, elements, elements == nullptr ? 0 : call->capacity);
    if (count >= 0)
        *found = static_cast<size_t>(count);
    return count >= 0;
}

// Whether the elements that were copied out still stand in the segment, in this order.
bool still_stands(const uint8_t *base, const list_call *call, size_t copied) {
    const hbs_pool_layout *list = call->list;
    uint32_t offset = hbs_query_word(base + list->head);
    for (const uint8_t *element = call->elements; copied > 0; copied--, element += list->size) {
        if (!hbs_query_is_element(list, offset) || memcmp(element, base + offset, list->size) != 0)
            return false;
        offset = hbs_query_word(element);
    }
    return true;
}

bool take_list(const uint8_t *base, void *what) {
    list_call *call = static_cast<list_call *>(what);
    const hbs_pool_layout *list = call->list;
    const uint8_t *pool = base + list->first;
    const uint32_t first = hbs_query_word(base + list->head);
    if (!collect(call, pool, first, nullptr, &call->found) ||
        !collect(call, pool, first, call->elements, &call->found))
        return false;
    hbs_query_look_anew();
    return still_stands(base, call, call->found < call->capacity ? call->found : call->capacity);
}

bool copy_pool(const uint8_t *base, const void *what, void *into) {
    const hbs_pool_layout *list = static_cast<const list_call *>(what)->list;
    uint8_t *copy = static_cast<uint8_t *>(into);
    memcpy(copy, base + list->head, POOL_AT);
    memcpy(copy + POOL_AT, base + list->first, pool_size(list));
    return true;
}

bool give_list(const void *copy, void *what) {
    list_call *call = static_cast<list_call *>(what);
    const uint8_t *pool = static_cast<const uint8_t *>(copy) + POOL_AT;
    const uint32_t first = hbs_query_word(pool - POOL_AT);
    return collect(call, pool, first, nullptr, &call->found) &&
           collect(call, pool, first, call->elements, &call->found);
}

} // namespace

int hbs_query_copy_list(hbs_pool pool, void *elements, size_t capacity, size_t *count) {
    static_assert(sizeof(hbs_client) % 4 == 0 && sizeof(hbs_ip_entry) % 4 == 0,
                  "the second private copy is 4-byte aligned because every element is");
    list_call call = {&hbs_layout_of(pool), static_cast<uint8_t *>(elements), capacity, 0};
    const hbs_query_look look = {take_list, copy_pool, give_list, &call, POOL_AT + pool_size(call.list)};
    const int result = hbs_query_agree(&look);
    if (result == HOSTBASE_OK)
        *count = call.found;
    return result;
}

namespace {

bool copy_segment(const uint8_t *base, const void *, void *into) {
    memcpy(into, base, HBS_SHM_SIZE);
    return true;
}

bool is_sound_segment(const void *copy) {
    const uint8_t *base = static_cast<const uint8_t *>(copy);
    for (const hbs_pool_layout &list : hbs_pool_layouts)
        if (hbs_query_collect(&list, base + list.first, hbs_query_word(base + list.head), nullptr, 0) < 0)
            return false;
    return true;
}

bool take_segment(const uint8_t *base, void *db) {
    if (!is_sound_segment(base))
        return false;
    memcpy(db, base, HBS_SHM_SIZE);
    hbs_query_look_anew();
    return memcmp(db, base, HBS_SHM_SIZE) == 0 && is_sound_segment(db);
}

bool give_segment(const void *copy, void *db) {
    if (!is_sound_segment(copy))
        return false;
    memcpy(db, copy, HBS_SHM_SIZE);
    return true;
}

} // namespace

int hbs_query_copy_all(hbs_db *db) {
    const hbs_query_look look = {take_segment, copy_segment, give_segment, db, HBS_SHM_SIZE};
    return hbs_query_agree(&look);
}
