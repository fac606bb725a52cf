// The pool of working copies and the two lists that they are on. All state is valid when zeroed, so
// the lists are usable before hbs_clients_init.
#include "store/clients.h"

#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "base/text.h"

namespace {

// Left in the link words of a record that was taken off its list.
constexpr uint32_t POISON_NEXT = 0x00100100;
constexpr uint32_t POISON_PREV = 0x00200200;

constexpr int TIMER_KINDS = 3;

enum class place : uint8_t { pool, client_list, nomac_list };

// The record's own link words are 32 bits wide: they hold numbers, the links stand beside it.
struct working_copy {
    hbs_client record; // first member: the address of a client is the address of its working copy
    working_copy *next;
    working_copy *prev;
    hbs_timer_slot timers[TIMER_KINDS];
    place where;
    bool has_commanded_lease;
    uint32_t asked_at;
};

struct working_list {
    working_copy *first;
    working_copy *last;
    uint32_t number; // what the outer link words of the first and last record hold
};

working_copy copies[HBS_MAX_WORKING];
int copies_touched;        // copies from here on were never used
working_copy *free_copies; // given back, chained through next
working_list client_list = {nullptr, nullptr, HBS_MAX_WORKING + 1};
working_list nomac_list = {nullptr, nullptr, HBS_MAX_WORKING + 2};
uint32_t counter;

working_copy *copy_of(const hbs_client *client) {
    const uintptr_t base = reinterpret_cast<uintptr_t>(copies);
    const uintptr_t address = reinterpret_cast<uintptr_t>(client);
    if (address < base || address - base >= sizeof copies || (address - base) % sizeof(working_copy) != 0)
        return nullptr;
    working_copy *copy = &copies[(address - base) / sizeof(working_copy)];
    return copy->where == place::pool ? nullptr : copy;
}

hbs_client *record_of(working_copy *copy) {
    return copy == nullptr ? nullptr : &copy->record;
}

working_list *list_of(const working_copy *copy) {
    return copy->where == place::nomac_list ? &nomac_list : &client_list;
}

uint32_t number_of(const working_copy *copy, const working_list *list) {
    return copy == nullptr ? list->number : static_cast<uint32_t>(copy - copies) + 1;
}

void set_next(working_list *list, working_copy *copy, working_copy *next) {
    if (copy == nullptr) {
        list->first = next;
        return;
    }
    copy->next = next;
    copy->record.next = number_of(next, list);
}

void set_prev(working_list *list, working_copy *copy, working_copy *prev) {
    if (copy == nullptr) {
        list->last = prev;
        return;
    }
    copy->prev = prev;
    copy->record.prev = number_of(prev, list);
}

void append(working_copy *copy, place where) {
    copy->where = where;
    working_list *list = list_of(copy);
    working_copy *last = list->last;
    set_prev(list, copy, last);
    set_next(list, copy, nullptr);
    set_next(list, last, copy);
    set_prev(list, nullptr, copy);
}

void unlink_copy(working_copy *copy) {
    working_list *list = list_of(copy);
    set_next(list, copy->prev, copy->next);
    set_prev(list, copy->next, copy->prev);
    copy->next = copy->prev = nullptr;
    copy->record.next = POISON_NEXT;
    copy->record.prev = POISON_PREV;
}

working_copy *take_copy() {
    working_copy *copy = free_copies;
    if (copy != nullptr)
        free_copies = copy->next;
    else if (copies_touched < HBS_MAX_WORKING)
        copy = &copies[copies_touched++];
    else
        return nullptr;
    memset(copy, 0, sizeof *copy);
    return copy;
}

// Every event looks clients up several times, so these compare words in place and the walks below go by the
// links beside the records.
template <typename Word>
__attribute__((always_inline)) inline bool same_words(const uint8_t *a, const uint8_t *b, size_t count) {
    for (size_t i = 0; i < count; i++) {
        Word left, right;
        memcpy(&left, a + i * sizeof left, sizeof left);
        memcpy(&right, b + i * sizeof right, sizeof right);
        if (left != right)
            return false;
    }
    return true;
}

bool same_mac(const uint8_t *a, const uint8_t *b) {
    return same_words<uint16_t>(a, b, 3);
}

__attribute__((always_inline)) inline bool same_ipv4(const uint8_t *a, const uint8_t *b) {
    return same_words<uint32_t>(a, b, 1);
}

bool same_ipv6(const uint8_t *a, const uint8_t *b) {
    return same_words<uint64_t>(a, b, 2);
}

bool matches_ipv6(const hbs_client *client, const uint8_t *ipv6) {
    return same_ipv6(client->ipv6, ipv6) || same_ipv6(client->ll, ipv6);
}

// Compares the old words with the requested bits, change marks aside.
bool are_exactly(const hbs_client *client, uint32_t t, uint32_t s) {
    return ((client->trust ^ t) & ~HBS_CHANGED_MASK) == 0 && ((client->flags ^ s) & ~HBS_CHANGED_MASK) == 0;
}

} // namespace

void hbs_clients_init() {
    // Those that were never used are zero already, and take no memory as long as they are left alone.
    memset(copies, 0, static_cast<size_t>(copies_touched) * sizeof *copies);
    copies_touched = 0;
    free_copies = nullptr;
    client_list.first = client_list.last = nullptr;
    nomac_list.first = nomac_list.last = nullptr;
    counter = 0;
}

hbs_client *hbs_client_take(const uint8_t *mac) {
    working_copy *copy = take_copy();
    if (copy == nullptr)
        return nullptr;
    if (++counter == 0)
        counter = 1;
    hbs_client *client = &copy->record;
    client->client_id = counter;
    client->online_time = hbs_monotonic_seconds();
    if (mac == nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_add: Client at %d has NO MAC address - save in nomac list",
                static_cast<int>(client->dbpos));
        append(copy, place::nomac_list);
        return client;
    }
    memcpy(client->mac, mac, sizeof client->mac);
    append(copy, place::client_list);
    hbs_set_flags(client, 0, HBS_CHANGED);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_add: Client at %d has mac address %s", static_cast<int>(client->dbpos),
            hbs_mac_to_text(mac).text);
    return client;
}

hbs_client *hbs_find_by_mac(const uint8_t *mac) {
    if (mac == nullptr)
        return nullptr;
    working_copy *copy = client_list.first;
    while (copy != nullptr && !same_mac(copy->record.mac, mac))
        copy = copy->next;
    return record_of(copy);
}

namespace {

// The two messages number differently on purpose: the first counts the clients with an address only.
hbs_client *find_mac_client_by_ipv4(const uint8_t *ipv4) {
    int position = 0;
    constexpr uint8_t none[4] = {};
    for (working_copy *copy = client_list.first; copy != nullptr; copy = copy->next) {
        const hbs_client *client = &copy->record;
        if (same_ipv4(client->ipv4, none)) {
            HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_find_by_ipv4: Client at pos %d has no ipv4 address",
                    static_cast<int>(client->dbpos));
            continue;
        }
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_find_by_ipv4: Client at pos %d has ipv4 address %s", position++,
                hbs_ipv4_to_text(client->ipv4).text);
        if (same_ipv4(client->ipv4, ipv4))
            return &copy->record;
    }
    return nullptr;
}

} // namespace

hbs_client *hbs_find_by_ipv4(const uint8_t *ipv4) {
    if (ipv4 == nullptr)
        return nullptr;
    if (hbs_client *client = find_mac_client_by_ipv4(ipv4))
        return client;
    working_copy *copy = nomac_list.first;
    while (copy != nullptr && !same_ipv4(copy->record.ipv4, ipv4))
        copy = copy->next;
    return record_of(copy);
}

namespace {

hbs_client *find_by_ipv6(const working_list *list, const uint8_t *ipv6) {
    working_copy *copy = list->first;
    while (copy != nullptr && !matches_ipv6(&copy->record, ipv6))
        copy = copy->next;
    return record_of(copy);
}

} // namespace

hbs_client *hbs_find_by_ipv6(const uint8_t *ipv6) {
    if (ipv6 == nullptr || hbs_ipv6_is_zero(ipv6))
        return nullptr;
    hbs_client *client = find_by_ipv6(&client_list, ipv6);
    return client != nullptr ? client : find_by_ipv6(&nomac_list, ipv6);
}

hbs_client *hbs_find_nomac_by_ipv6(const uint8_t *ipv6) {
    if (ipv6 == nullptr || hbs_ipv6_is_zero(ipv6))
        return nullptr;
    return find_by_ipv6(&nomac_list, ipv6);
}

hbs_client *hbs_client_first() {
    return record_of(client_list.first);
}

hbs_client *hbs_nomac_first() {
    return record_of(nomac_list.first);
}

hbs_client *hbs_client_next(const hbs_client *client) {
    const working_copy *copy = copy_of(client);
    return copy == nullptr ? nullptr : record_of(copy->next);
}

hbs_client *hbs_nomac_next(const hbs_client *client) {
    return hbs_client_next(client);
}

bool hbs_is_working_copy(const hbs_client *client) {
    return copy_of(client) != nullptr;
}

bool hbs_is_nomac(const hbs_client *client) {
    const working_copy *copy = copy_of(client);
    return copy != nullptr && copy->where == place::nomac_list;
}

void hbs_client_list_move(hbs_client *client) {
    if (!hbs_is_nomac(client))
        return;
    working_copy *copy = copy_of(client);
    unlink_copy(copy);
    append(copy, place::client_list);
}

void hbs_client_release(hbs_client *client) {
    working_copy *copy = copy_of(client);
    if (copy == nullptr)
        return;
    unlink_copy(copy);
    copy->where = place::pool;
    copy->next = free_copies;
    free_copies = copy;
}

void hbs_set_commanded_lease(hbs_client *client, bool has) {
    if (working_copy *copy = copy_of(client))
        copy->has_commanded_lease = has;
}

bool hbs_has_commanded_lease(const hbs_client *client) {
    const working_copy *copy = copy_of(client);
    return copy != nullptr && copy->has_commanded_lease;
}

void hbs_set_asked_at(hbs_client *client, uint32_t seconds) {
    if (working_copy *copy = copy_of(client))
        copy->asked_at = seconds;
}

uint32_t hbs_asked_at(const hbs_client *client) {
    const working_copy *copy = copy_of(client);
    return copy == nullptr ? 0 : copy->asked_at;
}

void hbs_client_counter_decrement() {
    --counter;
}

uint32_t hbs_client_counter() {
    return counter;
}

void hbs_set_flags(hbs_client *client, uint32_t t, uint32_t s) {
    if (client == nullptr)
        return;
    const bool marks = !are_exactly(client, t, s);
    if ((s & HBS_FLAG_ONLINE) != 0 && (client->flags & HBS_FLAG_ONLINE) == 0)
        client->online_time = hbs_monotonic_seconds();
    client->trust |= t;
    client->flags |= s;
    if (marks)
        client->flags |= HBS_CHANGED;
}

void hbs_clear_flags(hbs_client *client, uint32_t t, uint32_t s) {
    if (client == nullptr)
        return;
    const bool marks = !are_exactly(client, t, s);
    if ((s & HBS_FLAG_ONLINE) != 0 && (client->flags & HBS_FLAG_ONLINE) != 0)
        client->online_time = hbs_monotonic_seconds();
    client->trust &= ~t;
    client->flags &= ~s;
    if (marks)
        client->flags |= HBS_CHANGED;
}

bool hbs_client_has_ipv6(const hbs_client *client) {
    return !hbs_ipv6_is_zero(client->ipv6);
}

bool hbs_client_has_ll(const hbs_client *client) {
    return !hbs_ipv6_is_zero(client->ll);
}

hbs_timer_slot *hbs_client_timer_slot(hbs_client *client, int kind) {
    working_copy *copy = copy_of(client);
    if (copy == nullptr || kind < 1 || kind > TIMER_KINDS)
        return nullptr;
    return &copy->timers[kind - 1];
}
