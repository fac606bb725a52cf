// The interface index and the primary index.
#include "store/instance_index.h"

#include <cstddef>

#include "base/log.h"
#include "store/client_text.h"
#include "store/ip_index.h"
#include "store/pools.h"
#include "store/slots.h"

namespace {

hbs_instance_map rnd_maps[HBS_NETWORKS];
hbs_instance_map primary_map;
uint32_t primary_count;

} // namespace

hbs_instance_map hbs_rnd_map(int network) {
    return rnd_maps[hbs_fold_network(network)];
}

hbs_instance_map hbs_pri_map() {
    return primary_map;
}

uint32_t hbs_pri_count() {
    return primary_count;
}

namespace {

const hbs_if_entry *first_if() {
    return static_cast<const hbs_if_entry *>(hbs_list_first(hbs_pool::interface));
}

const hbs_if_entry *if_after(const hbs_if_entry *entry) {
    return static_cast<const hbs_if_entry *>(hbs_list_next(hbs_pool::interface, entry));
}

const hbs_pri_entry *first_pri() {
    return static_cast<const hbs_pri_entry *>(hbs_list_first(hbs_pool::primary));
}

const hbs_pri_entry *pri_after(const hbs_pri_entry *entry) {
    return static_cast<const hbs_pri_entry *>(hbs_list_next(hbs_pool::primary, entry));
}

const hbs_if_entry *find_if(uint32_t reference) {
    return static_cast<const hbs_if_entry *>(
        hbs_list_find(hbs_pool::interface, offsetof(hbs_if_entry, dbpos), &reference, sizeof reference));
}

const hbs_pri_entry *find_pri(uint32_t reference) {
    return static_cast<const hbs_pri_entry *>(
        hbs_list_find(hbs_pool::primary, offsetof(hbs_pri_entry, dbpos), &reference, sizeof reference));
}

// All interface keys have two words.
int compare_if(const hbs_if_entry *a, const hbs_if_entry *b) {
    return hbs_oid_compare(a->key, 2, b->key, 2);
}

// The first entry whose key is equal or larger; null = the tail.
const hbs_if_entry *find_if_place(const hbs_if_entry *wanted) {
    const hbs_if_entry *entry = first_if();
    while (entry != nullptr && compare_if(entry, wanted) < 0)
        entry = if_after(entry);
    return entry;
}

} // namespace

void hbs_file_update_if_idx(const hbs_client *client) {
    uint32_t reference = hbs_reference_of(client);
    if (reference == HBS_DBPOS_NONE)
        return;
    // The whole list is looked through, so that a client whose network has changed never has two entries.
    if (const hbs_if_entry *own = find_if(reference); own != nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_update_if_idx : index already handled (%s)",
                hbs_if_entry_text(own).text);
        return;
    }
    hbs_instance_map *map = &rnd_maps[hbs_fold_network(client->nwidx)];
    hbs_if_entry wanted{};
    wanted.key[0] = hbs_network_key(client->nwidx);
    wanted.key[1] = hbs_instance_free(map);
    const hbs_if_entry *place = find_if_place(&wanted);
    if (place != nullptr && compare_if(place, &wanted) == 0) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_update_if_idx : index already exists (%s)",
                hbs_if_entry_text(place).text);
        return;
    }
    auto *entry = static_cast<hbs_if_entry *>(hbs_pool_take(hbs_pool::interface));
    if (entry == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_file_update_if_idx : failed to allocate memory\n");
        return;
    }
    entry->count = 2;
    entry->key[0] = wanted.key[0];
    entry->key[1] = wanted.key[1];
    entry->dbpos = reference;
    hbs_list_link(hbs_pool::interface, entry, place);
    hbs_instance_use(map, wanted.key[1]);
    HBS_LOG(HBS_INFO, "HOSTBASE: insert new if index %s", hbs_if_entry_text(entry).text);
}

namespace {

bool is_of_network_0(const hbs_client *client) {
    return client->nwidx == 0 || client->nwidx == 8;
}

} // namespace

void hbs_file_update_pri_idx(const hbs_client *client) {
    uint32_t reference = hbs_reference_of(client);
    if (reference == HBS_DBPOS_NONE || !is_of_network_0(client))
        return;
    if (const hbs_pri_entry *own = find_pri(reference); own != nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_update_pri_idx : index already exists (%s)",
                hbs_pri_entry_text(own).text);
        return;
    }
    auto *entry = static_cast<hbs_pri_entry *>(hbs_pool_take(hbs_pool::primary));
    if (entry == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_file_update_pri_idx : failed to allocate memory, current count %u",
                primary_count);
        return;
    }
    entry->count = 1;
    entry->key[0] = hbs_instance_free(&primary_map);
    entry->dbpos = reference;
    hbs_list_link(hbs_pool::primary, entry, nullptr);
    primary_count++;
    hbs_instance_use(&primary_map, entry->key[0]);
    HBS_LOG(HBS_INFO, "HOSTBASE: insert new pri index %s", hbs_pri_entry_text(entry).text);
}

void hbs_file_remove_if_entry(const hbs_slot *slot) {
    uint32_t reference = hbs_slot_reference(slot);
    const hbs_if_entry *entry = reference == HBS_DBPOS_NONE ? nullptr : find_if(reference);
    if (entry == nullptr)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_remove_if_idx : client found (pos:%p) (%s)",
            hbs_dbpos_for_log(reference), hbs_if_entry_text(entry).text);
    hbs_instance_release(&rnd_maps[hbs_fold_network(static_cast<int>(entry->key[0] - HBS_NETWORK_KEY))],
                         entry->key[1]);
    hbs_list_unlink(hbs_pool::interface, entry);
    hbs_pool_give(hbs_pool::interface, entry);
}

namespace {

// A full map gives the same instance to several primary entries: it is in use until the last one goes.
void release_pri_instance(uint32_t instance) {
    for (const hbs_pri_entry *entry = first_pri(); entry != nullptr; entry = pri_after(entry))
        if (entry->key[0] == instance)
            return;
    hbs_instance_release(&primary_map, instance);
}

} // namespace

void hbs_file_remove_pri_idx(const hbs_slot *slot) {
    uint32_t reference = hbs_slot_reference(slot);
    const hbs_pri_entry *entry = reference == HBS_DBPOS_NONE ? nullptr : find_pri(reference);
    if (entry == nullptr)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_remove_pri_idx : client found (pos:%p) (%s)",
            hbs_dbpos_for_log(reference), hbs_pri_entry_text(entry).text);
    uint32_t instance = entry->key[0];
    hbs_list_unlink(hbs_pool::primary, entry);
    hbs_pool_give(hbs_pool::primary, entry);
    if (primary_count > 0)
        primary_count--;
    release_pri_instance(instance);
}

void hbs_instance_index_clear() {
    hbs_pool_give_all(hbs_pool::interface);
    hbs_pool_give_all(hbs_pool::primary);
    for (hbs_instance_map &map : rnd_maps)
        map = {};
    primary_map = {};
    primary_count = 0;
}
