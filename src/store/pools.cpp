// Element pools and shared lists of the segment, with the process-local links that govern them.
#include "store/pools.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "store/segment.h"

namespace {

// A ring's nodes are the elements by number, and one node for each of the two heads.
using node = uint16_t;
constexpr node MAX_ELEMENTS = HBS_MAX_IP_ENTRIES;
constexpr node SHARED_HEAD = MAX_ELEMENTS;
constexpr node FREE_HEAD = MAX_ELEMENTS + 1;

enum class place : uint8_t { nowhere, free, shared };

struct pool_state {
    node count; // elements carved
    node free_count;
    node next[MAX_ELEMENTS + 2];
    node prev[MAX_ELEMENTS + 2];
    place at[MAX_ELEMENTS];
};

pool_state states[HBS_POOLS];
uint32_t edition = 1;

void count_edition() {
    if (++edition == 0)
        edition = 1;
}

pool_state &state_of(hbs_pool pool) {
    return states[static_cast<int>(pool)];
}

const uint8_t *base() {
    return reinterpret_cast<const uint8_t *>(hbs_segment());
}

uint32_t node_offset(hbs_pool pool, node n) {
    const hbs_pool_layout &layout = hbs_layout_of(pool);
    return n == SHARED_HEAD ? layout.head : layout.first + n * layout.size;
}

// Every element and every head begins with its next and prev words.
void put_links(uint32_t offset, uint32_t next, uint32_t prev) {
    const uint32_t links[2] = {next, prev};
    memcpy(hbs_segment_edit(offset, sizeof links), links, sizeof links);
}

void publish_links(hbs_pool pool, node n) {
    const pool_state &state = state_of(pool);
    put_links(node_offset(pool, n), node_offset(pool, state.next[n]), node_offset(pool, state.prev[n]));
}

void ring_insert(pool_state &state, node n, node before) {
    state.next[n] = before;
    state.prev[n] = state.prev[before];
    state.next[state.prev[n]] = n;
    state.prev[before] = n;
}

void ring_remove(pool_state &state, node n) {
    state.next[state.prev[n]] = state.next[n];
    state.prev[state.next[n]] = state.prev[n];
}

void clear_reference(hbs_pool pool, node n) {
    constexpr uint32_t none = 0;
    const hbs_pool_layout &layout = hbs_layout_of(pool);
    if (layout.reference != 0)
        memcpy(hbs_segment_edit(node_offset(pool, n) + layout.reference, sizeof none), &none, sizeof none);
}

void append_free(hbs_pool pool, node n) {
    pool_state &state = state_of(pool);
    ring_insert(state, n, FREE_HEAD);
    state.at[n] = place::free;
    state.free_count++;
    clear_reference(pool, n);
}

// Each pool lies at its fixed place, so a segment that is too short loses the last elements and the
// pools behind them, and readers still find what is there where they expect it.
node elements_that_fit(const hbs_pool_layout &layout) {
    uint32_t size = hbs_segment_size();
    if (size <= layout.first)
        return 0;
    return static_cast<node>(std::min(layout.capacity, (size - layout.first) / layout.size));
}

void carve(hbs_pool pool) {
    pool_state &state = state_of(pool);
    state.count = elements_that_fit(hbs_layout_of(pool));
    state.free_count = 0;
    for (node head : {SHARED_HEAD, FREE_HEAD})
        state.next[head] = state.prev[head] = head;
    for (node n = 0; n < state.count; n++) {
        put_links(node_offset(pool, n), 0, 0);
        append_free(pool, n);
    }
    publish_links(pool, SHARED_HEAD);
}

} // namespace

void hbs_pools_carve() {
    if (hbs_segment() == nullptr)
        return;
    count_edition();
    for (int i = 0; i < HBS_POOLS; i++)
        carve(static_cast<hbs_pool>(i));
}

uint32_t hbs_pool_offset(const void *element) {
    if (element == nullptr || hbs_segment() == nullptr)
        return 0;
    return static_cast<uint32_t>(static_cast<const uint8_t *>(element) - base());
}

namespace {

int number_of_offset(hbs_pool pool, uint32_t offset) {
    const hbs_pool_layout &layout = hbs_layout_of(pool);
    if (offset < layout.first || (offset - layout.first) % layout.size != 0)
        return -1;
    uint32_t number = (offset - layout.first) / layout.size;
    return number < state_of(pool).count ? static_cast<int>(number) : -1;
}

} // namespace

const void *hbs_pool_element(hbs_pool pool, uint32_t offset) {
    if (hbs_segment() == nullptr || number_of_offset(pool, offset) < 0)
        return nullptr;
    return base() + offset;
}

int hbs_pool_number(hbs_pool pool, const void *element) {
    // As numbers: the element may be anything, a working copy for one.
    uintptr_t start = reinterpret_cast<uintptr_t>(base());
    uintptr_t address = reinterpret_cast<uintptr_t>(element);
    if (start == 0 || address < start || address - start >= hbs_segment_size())
        return -1;
    return number_of_offset(pool, static_cast<uint32_t>(address - start));
}

namespace {

// Whether the element is one of the pool's and at that place; its node goes into *n.
bool is_at(hbs_pool pool, const void *element, place where, node *n) {
    int number = hbs_pool_number(pool, element);
    if (number < 0)
        return false;
    *n = static_cast<node>(number);
    return state_of(pool).at[number] == where;
}

} // namespace

// An element off the free list holds no poison values in its links: it is zeroed at once, and linked
// before any reader may look.
void *hbs_pool_take(hbs_pool pool) {
    pool_state &state = state_of(pool);
    if (hbs_segment() == nullptr || state.free_count == 0) {
        count_edition();
        return nullptr;
    }
    node n = state.next[FREE_HEAD];
    ring_remove(state, n);
    state.at[n] = place::nowhere;
    state.free_count--;
    const uint32_t size = hbs_layout_of(pool).size;
    return memset(hbs_segment_edit(node_offset(pool, n), size), 0, size);
}

void *hbs_pool_edit(hbs_pool pool, const void *element) {
    const int number = hbs_pool_number(pool, element);
    if (number < 0)
        return nullptr;
    return hbs_segment_edit(node_offset(pool, static_cast<node>(number)), hbs_layout_of(pool).size);
}

void hbs_pool_give(hbs_pool pool, const void *element) {
    node n = 0;
    if (is_at(pool, element, place::nowhere, &n))
        append_free(pool, n);
}

void hbs_pool_give_all(hbs_pool pool) {
    pool_state &state = state_of(pool);
    for (const void *element = hbs_list_first(pool); element != nullptr; element = hbs_list_first(pool)) {
        hbs_list_unlink(pool, element);
        hbs_pool_give(pool, element);
    }
    for (node n = 0; n < state.count; n++)
        if (state.at[n] == place::nowhere)
            append_free(pool, n);
}

int hbs_pool_free_count(hbs_pool pool) {
    return hbs_segment() == nullptr ? 0 : state_of(pool).free_count;
}

void hbs_list_link(hbs_pool pool, const void *element, const void *before) {
    pool_state &state = state_of(pool);
    node n = 0;
    node follower = SHARED_HEAD;
    if (!is_at(pool, element, place::nowhere, &n))
        return;
    if (before != nullptr && !is_at(pool, before, place::shared, &follower))
        return;
    ring_insert(state, n, follower);
    state.at[n] = place::shared;
    publish_links(pool, n);
    publish_links(pool, state.prev[n]);
    publish_links(pool, follower);
}

void hbs_list_unlink(hbs_pool pool, const void *element) {
    pool_state &state = state_of(pool);
    node n = 0;
    if (!is_at(pool, element, place::shared, &n))
        return;
    ring_remove(state, n);
    state.at[n] = place::nowhere;
    count_edition();
    publish_links(pool, state.prev[n]);
    publish_links(pool, state.next[n]);
    put_links(node_offset(pool, n), 0, 0);
}

namespace {

// The element that a link word of the image leads to; null for the head, and for the 0 of an element that is
// on no list.
const void *linked(const uint8_t *start, hbs_pool pool, uint32_t link) {
    const hbs_pool_layout &layout = hbs_layout_of(pool);
    return link - layout.first < layout.size * layout.capacity ? start + link : nullptr;
}

uint32_t link_at(const void *place) {
    uint32_t link = 0;
    memcpy(&link, place, sizeof link);
    return link;
}

} // namespace

const void *hbs_list_first(hbs_pool pool) {
    const uint8_t *start = base();
    return start == nullptr ? nullptr : linked(start, pool, link_at(start + hbs_layout_of(pool).head));
}

// The image's own links, which nobody else can write, are the quickest way along a list.
const void *hbs_list_next(hbs_pool pool, const void *element) {
    const uint8_t *start = base();
    const uintptr_t offset = reinterpret_cast<uintptr_t>(element) - reinterpret_cast<uintptr_t>(start);
    return start != nullptr && offset < sizeof(hbs_db) ? linked(start, pool, link_at(element)) : nullptr;
}

// The words that two lists are looked through for by each event: without a call for each element.
const void *hbs_list_find(hbs_pool pool, size_t at, const void *bytes, size_t size) {
    const uint8_t *start = base();
    if (start == nullptr)
        return nullptr;
    const hbs_pool_layout layout = hbs_layout_of(pool);
    const uint32_t end = layout.size * layout.capacity;
    const uint32_t first_word = link_at(bytes);
    const size_t rest = size - sizeof first_word; // devices of one maker begin alike and end differently
    const uint32_t last_word = link_at(static_cast<const uint8_t *>(bytes) + rest);
    for (uint32_t link = link_at(start + layout.head); link - layout.first < end;
         link = link_at(start + link)) {
        const uint8_t *place = start + link + at;
        if (link_at(place + rest) == last_word && link_at(place) == first_word &&
            memcmp(place, bytes, size) == 0)
            return start + link;
    }
    return nullptr;
}

uint32_t hbs_lists_edition() {
    return edition;
}

bool hbs_list_holds(hbs_pool pool, const void *element) {
    node n = 0;
    return is_at(pool, element, place::shared, &n);
}
