#include "store/client_end.h"

#include <cstring>

#include "base/log.h"
#include "base/text.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/segment.h"
#include "store/slots.h"

namespace {

constexpr uint32_t KEPT_FLAGS = HBS_FLAG_ONLINE | HBS_FLAG_STIP4 | HBS_FLAG_STIP6;
constexpr size_t CLIENT_LINE_SIZE = 512;

hbs_remains_action drop_action;

// The working copy that a slot was published from, or null.
hbs_client *owner_of(const hbs_slot *slot) {
    hbs_client *owner = hbs_slot_owner(slot);
    return hbs_is_working_copy(owner) ? owner : nullptr;
}

// Known by nothing that an event could name.
bool is_nobody(const hbs_client *client) {
    return client != nullptr && hbs_mac_is_zero(client->mac) && hbs_ipv4_is_zero(client->ipv4) &&
           !hbs_client_has_ipv6(client) && !hbs_client_has_ll(client);
}

bool may_go(const hbs_client *record, const hbs_client *working_copy) {
    return (record->trust & HBS_TRUST_PROTECTED) == 0 && (record->flags & KEPT_FLAGS) == 0 &&
           !hbs_has_commanded_lease(working_copy);
}

// Times are compared as signed numbers.
int32_t time_of(const hbs_client *record) {
    return static_cast<int32_t>(record->online_time);
}

// A time of 0x7FFFFFFF is never taken. Among equal ones the first wins.
const hbs_slot *find_victim_by_rule() {
    const hbs_slot *victim = nullptr;
    int32_t best = INT32_MAX;
    for (const hbs_slot *slot = hbs_slot_first(); slot != nullptr; slot = hbs_slot_after(slot)) {
        if (time_of(&slot->record) >= best || !may_go(&slot->record, owner_of(slot)))
            continue;
        best = time_of(&slot->record);
        victim = slot;
    }
    return victim;
}

// The working copy is asked: what took its addresses away need not have been published.
const hbs_slot *find_published_nobody() {
    for (const hbs_slot *slot = hbs_slot_first(); slot != nullptr; slot = hbs_slot_after(slot))
        if (is_nobody(owner_of(slot)))
            return slot;
    return nullptr;
}

const hbs_slot *find_victim() {
    const hbs_slot *victim = find_victim_by_rule();
    return victim != nullptr ? victim : find_published_nobody();
}

void log_reclaim(const hbs_client *record) {
    char text[CLIENT_LINE_SIZE];
    HBS_LOG(HBS_INFO, "HOSTBASE: reclaiming client # %s at %p", hbs_client_to_str(record, text, sizeof text),
            hbs_dbpos_for_log(record->dbpos));
}

void end_working_copy(hbs_client *client) {
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_delete_client: Client at %p removed %02x:%02x:%02x:%02x:%02x:%02x",
            hbs_dbpos_for_log(client->dbpos), client->mac[0], client->mac[1], client->mac[2], client->mac[3],
            client->mac[4], client->mac[5]);
    hbs_client_counter_decrement();
    hbs_client_free(client);
}

// Takes a slot from its client, which ends; the slot is zeroed and on no list then. Callers hold the
// semaphore.
void take_slot(const hbs_slot *slot, hbs_client_remains *remains) {
    log_reclaim(&slot->record);
    hbs_file_remove_if_idx(slot);
    hbs_slot_unlink(slot);
    *remains = hbs_delete_client(slot);
    hbs_slot_set_owner(slot, nullptr); // a nomac owner lives on and gets a fresh slot at its next commit
    memset(hbs_slot_edit(slot), 0, sizeof *slot);
}

// Callers hold the semaphore.
void unpublish(hbs_client *client) {
    const hbs_slot *slot = hbs_slot_of(client);
    if (slot == nullptr)
        return;
    hbs_file_remove_if_idx(slot);
    hbs_slot_unlink(slot);
    hbs_slot_give_back(slot);
}

// The candidate that is older, or the only one.
hbs_client *older(hbs_client *victim, hbs_client *candidate) {
    return victim == nullptr || time_of(candidate) < time_of(victim) ? candidate : victim;
}

hbs_client *find_unpublished(hbs_client *victim, hbs_client *first, bool (*matches)(const hbs_client *)) {
    for (hbs_client *client = first; client != nullptr; client = hbs_client_next(client))
        if (hbs_slot_of(client) == nullptr && matches(client))
            victim = older(victim, client);
    return victim;
}

hbs_client *oldest_unpublished(bool (*matches)(const hbs_client *)) {
    hbs_client *victim = find_unpublished(nullptr, hbs_client_first(), matches);
    return find_unpublished(victim, hbs_nomac_first(), matches);
}

bool end_unpublished(bool (*matches)(const hbs_client *), hbs_client_remains *remains) {
    hbs_client *victim = oldest_unpublished(matches);
    if (victim == nullptr)
        return false;
    log_reclaim(victim);
    *remains = hbs_client_remains_of(victim);
    end_working_copy(victim);
    return true;
}

// Ends the client of a slot, working copy and all.
bool end_published(const hbs_slot *(*find)(), hbs_client_remains *remains) {
    const hbs_shm_hold hold;
    const hbs_slot *slot = find();
    hbs_client *owner = slot != nullptr ? owner_of(slot) : nullptr;
    if (owner == nullptr)
        return false;
    take_slot(slot, remains);
    hbs_slot_give_back(slot);
    if (hbs_is_working_copy(owner)) // one without a MAC outlives its slot
        end_working_copy(owner);
    return true;
}

bool is_unprotected(const hbs_client *client) {
    return may_go(client, client);
}

} // namespace

void hbs_client_end_register(hbs_remains_action drop) {
    drop_action = drop;
}

void hbs_client_drop_remains(const hbs_client_remains *remains) {
    if (remains->exist && drop_action != nullptr)
        drop_action(remains);
}

hbs_client_remains hbs_client_remains_of(const hbs_client *client) {
    hbs_client_remains remains{};
    remains.exist = true;
    memcpy(remains.mac, client->mac, sizeof remains.mac);
    memcpy(remains.lease_file, client->lease_file, sizeof remains.lease_file);
    memcpy(remains.lease_file6, client->lease_file6, sizeof remains.lease_file6);
    return remains;
}

void hbs_client_free(hbs_client *client) {
    hbs_slot_set_owner(hbs_slot_of(client), nullptr);
    hbs_lease_timers_clear(client);
    hbs_client_release(client);
}

void hbs_shm_remove(hbs_client *client) {
    const hbs_shm_hold hold;
    unpublish(client);
}

void hbs_client_merge_away(hbs_client *client, hbs_client *survivor) {
    {
        const hbs_shm_hold hold;
        unpublish(client);
        unpublish(survivor);
        if (hbs_slot_publish(survivor))
            hbs_index_update(survivor);
    }
    hbs_client_free(client);
}

hbs_client_remains hbs_delete_client(const hbs_slot *slot) {
    hbs_client *owner = owner_of(slot);
    if (owner != nullptr && !hbs_is_nomac(owner))
        end_working_copy(owner);
    else if (is_nobody(owner))
        hbs_client_free(owner);
    return hbs_client_remains_of(&slot->record);
}

const hbs_slot *hbs_shm_reclaim(hbs_client_remains *remains) {
    const hbs_slot *slot = find_victim();
    if (slot != nullptr)
        take_slot(slot, remains);
    return slot;
}

bool hbs_slot_available() {
    return hbs_pool_free_count(hbs_pool::clients) > 0 || find_victim() != nullptr;
}

bool hbs_client_make_room() {
    hbs_client_remains remains{};
    const bool ended = end_unpublished(is_unprotected, &remains) ||
                       end_published(find_victim_by_rule, &remains) || end_unpublished(is_nobody, &remains) ||
                       end_published(find_published_nobody, &remains);
    hbs_client_drop_remains(&remains);
    return ended;
}

void hbs_client_end_nobody() {
    hbs_client *client = hbs_nomac_first();
    while (client != nullptr && !is_nobody(client))
        client = hbs_nomac_next(client);
    if (client == nullptr)
        return;
    hbs_shm_remove(client);
    hbs_client_free(client);
}
