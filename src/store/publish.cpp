#include "store/publish.h"

#include <cstddef>
#include <cstring>

#include "base/log.h"
#include "gateway/hotspot.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/rule_index.h"
#include "store/shm.h"

namespace {

// Everything behind the two link words, which each copy has its own of.
void copy_record(hbs_client *slot, const hbs_client *client) {
    constexpr size_t links = offsetof(hbs_client, dbpos);
    memcpy(reinterpret_cast<uint8_t *>(slot) + links, reinterpret_cast<const uint8_t *>(client) + links,
           sizeof *slot - links);
}

// Callers hold the semaphore. Returns whether the client is published now.
bool publish_copy(hbs_client *client) {
    if (hbs_client *own = hbs_slot_of(client)) {
        copy_record(own, client);
        return true;
    }
    hbs_client *slot = static_cast<hbs_client *>(hbs_pool_take(hbs_pool::clients));
    if (slot == nullptr)
        slot = hbs_shm_reclaim();
    if (slot == nullptr)
        return false;
    client->dbpos = hbs_pool_offset(slot);
    copy_record(slot, client);
    hbs_slot_set_owner(slot, client);
    hbs_list_link(hbs_pool::clients, slot, nullptr);
    return true;
}

void say_no_slot(hbs_client *client) {
    client->dbpos = HBS_DBPOS_NONE; // a stale one must not make index entries for another client's slot
    HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to alloc new client from shared memory");
}

} // namespace

void hbs_shm_commit(hbs_client *client) {
    if (client == nullptr)
        return;
    bool published = false;
    {
        const hbs_shm_hold hold;
        published = publish_copy(client);
    }
    if (!published)
        say_no_slot(client);
}

void hbs_publish(hbs_client *client) {
    if (client == nullptr)
        return;
    bool published = false;
    {
        const hbs_shm_hold hold;
        published = publish_copy(client);
        if (published)
            hbs_index_update(client);
    }
    if (!published)
        say_no_slot(client);
}

void hbs_publish_again(hbs_client *client) {
    const hbs_shm_hold hold;
    hbs_client *slot = hbs_slot_of(client);
    if (slot == nullptr)
        return;
    copy_record(slot, client);
    hbs_index_update(client);
}

void hbs_shm_remove(hbs_client *client) {
    const hbs_shm_hold hold;
    hbs_client *slot = hbs_slot_of(client);
    if (slot == nullptr)
        return;
    hbs_file_remove_if_idx(client);
    hbs_list_unlink(hbs_pool::clients, slot);
    hbs_pool_give(hbs_pool::clients, slot);
}

void hbs_shm_flush() {
    HBS_LOG(HBS_INFO, "HOSTBASE: flush client list database");
    const hbs_shm_hold hold;
    hbs_index_clear();
    hbs_rule_index_clear();
    hbs_pool_give_all(hbs_pool::clients);
}

void hbs_shm_mark_hotspot() {
    static hbs_hotspot_names names; // 4 KB, too much for a small thread stack; callers hold hbs_list_mutex
    hbs_hotspot_read(&names);
    const hbs_shm_hold hold;
    for (void *at = hbs_list_first(hbs_pool::clients); at != nullptr;
         at = hbs_list_next(hbs_pool::clients, at)) {
        hbs_client *slot = static_cast<hbs_client *>(at);
        if (hbs_hotspot_has(&names, slot->ifname))
            slot->hotspot = 1;
    }
}
