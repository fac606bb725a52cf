#include "query/client_search.h"

#include <cstring>

#include <hostbase_query.h>

#include "query/look.h"
#include "query/walk.h"

namespace {

struct finding {
    uint32_t found;
    hbs_client client; // all zero when not found
};

struct search {
    hbs_query_key key;
    const uint8_t *bytes;
    finding answer;
};

size_t key_size(hbs_query_key key) {
    switch (key) {
    case HBS_QUERY_BY_MAC:
        return sizeof(hbs_client::mac);
    case HBS_QUERY_BY_IPV4:
        return sizeof(hbs_client::ipv4);
    case HBS_QUERY_BY_IPV6:
        return sizeof(hbs_client::ipv6);
    }
    return 0;
}

bool has_field(const uint8_t *record, size_t offset, const search *wanted) {
    return memcmp(record + offset, wanted->bytes, key_size(wanted->key)) == 0;
}

bool matches(const uint8_t *record, const search *wanted) {
    switch (wanted->key) {
    case HBS_QUERY_BY_MAC:
        return has_field(record, offsetof(hbs_client, mac), wanted);
    case HBS_QUERY_BY_IPV4:
        return has_field(record, offsetof(hbs_client, ipv4), wanted);
    case HBS_QUERY_BY_IPV6:
        return has_field(record, offsetof(hbs_client, ipv6), wanted) ||
               has_field(record, offsetof(hbs_client, ll), wanted);
    }
    return false;
}

bool copy_match(const uint8_t *base, const void *what, void *into) {
    const hbs_pool_layout *list = &hbs_layout_of(hbs_pool::clients);
    finding *result = static_cast<finding *>(into);
    uint32_t offset = hbs_query_word(base + list->head);
    for (uint32_t step = 0; step <= list->capacity; step++) {
        if (offset == list->head) {
            memset(result, 0, sizeof *result);
            return true;
        }
        if (!hbs_query_is_element(list, offset))
            return false;
        const uint8_t *record = base + offset;
        if (matches(record, static_cast<const search *>(what))) {
            result->found = 1;
            memcpy(&result->client, record, sizeof result->client);
            return result->client.dbpos == offset;
        }
        offset = hbs_query_word(record);
    }
    return false;
}

bool is_all_zero(const uint8_t *bytes, size_t size) {
    for (size_t i = 0; i < size; i++)
        if (bytes[i] != 0)
            return false;
    return true;
}

bool take_match(const uint8_t *base, void *what) {
    finding *answer = &static_cast<search *>(what)->answer;
    const bool copied = copy_match(base, what, answer);
    hbs_query_look_anew();
    return copied && (answer->found == 0 ||
                      memcmp(&answer->client, base + answer->client.dbpos, sizeof answer->client) == 0);
}

bool give_match(const void *copy, void *what) {
    static_cast<search *>(what)->answer = *static_cast<const finding *>(copy);
    return true;
}

} // namespace

int hbs_query_find(hbs_query_key key, const uint8_t *bytes, hbs_client *client) {
    search wanted = {key, bytes, {}};
    const hbs_query_look look = {take_match, copy_match, give_match, &wanted, sizeof(finding)};
    int result = hbs_query_agree(&look);
    if (result != HOSTBASE_OK)
        return result;
    if (wanted.answer.found == 0 || is_all_zero(bytes, key_size(key)))
        return HOSTBASE_NOT_FOUND;
    *client = wanted.answer.client;
    return HOSTBASE_OK;
}
