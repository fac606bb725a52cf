#include "query/walk.h"

#include <cstring>

#include <hbs_db.h>

const hbs_query_list hbs_query_lists[HBS_QUERY_KINDS] = {
    {offsetof(hbs_db, clients), offsetof(hbs_db, client_pool), sizeof(hbs_client), HBS_MAX_CLIENTS, 0},
    {offsetof(hbs_db, ip_index), offsetof(hbs_db, ip_pool), sizeof(hbs_ip_entry), HBS_MAX_IP_ENTRIES,
     HBS_IP_KEY_WORDS},
    {offsetof(hbs_db, if_index), offsetof(hbs_db, if_pool), sizeof(hbs_if_entry), HBS_MAX_IF_ENTRIES, 2},
    {offsetof(hbs_db, dhcp_index), offsetof(hbs_db, dhcp_pool), sizeof(hbs_ip_entry), HBS_MAX_DHCP_ENTRIES,
     HBS_IP_KEY_WORDS},
    {offsetof(hbs_db, rule_index), offsetof(hbs_db, rule_pool), sizeof(hbs_rule_entry), HBS_MAX_RULE_ENTRIES,
     2},
    {offsetof(hbs_db, pri_index), offsetof(hbs_db, pri_pool), sizeof(hbs_pri_entry), HBS_MAX_PRI_ENTRIES, 1},
};

uint32_t hbs_query_word(const uint8_t *at) {
    return __atomic_load_n(static_cast<const uint32_t *>(__builtin_assume_aligned(at, 4)), __ATOMIC_RELAXED);
}

bool hbs_query_is_element(const hbs_query_list *list, uint32_t offset) {
    if (offset < list->pool)
        return false;
    uint32_t into = offset - list->pool;
    return into % list->element == 0 && into / list->element < list->count;
}

// A published client holds its own offset; an index entry holds at least one and no more key words
// than its kind has room for.
static bool is_consistent(const hbs_query_list *list, const uint8_t *element, uint32_t offset) {
    uint32_t word = hbs_query_word(element + offsetof(hbs_index_entry, count));
    static_assert(offsetof(hbs_index_entry, count) == offsetof(hbs_client, dbpos));
    if (list->max_words == 0)
        return word == offset;
    return word >= 1 && word <= list->max_words;
}

int hbs_query_collect(const hbs_query_list *list, const uint8_t *pool, uint32_t first, void *elements,
                      size_t capacity) {
    uint8_t *out = static_cast<uint8_t *>(elements);
    uint32_t offset = first;
    uint32_t found = 0;
    while (offset != list->head) {
        if (found == list->count || !hbs_query_is_element(list, offset))
            return -1;
        const uint8_t *element = pool + (offset - list->pool);
        if (!is_consistent(list, element, offset))
            return -1;
        if (found < capacity)
            memcpy(out + size_t{found} * list->element, element, list->element);
        found++;
        offset = hbs_query_word(element);
    }
    return static_cast<int>(found);
}
