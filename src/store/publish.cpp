#include "store/publish.h"

#include "base/log.h"
#include "gateway/hotspot.h"
#include "store/index.h"
#include "store/rule_index.h"
#include "store/segment.h"
#include "store/slots.h"

namespace {

// A client that is reclaimed for it leaves its files for after the hold.
bool publish(hbs_client *client, bool with_entries) {
    hbs_client_remains remains{};
    bool published = false;
    {
        const hbs_shm_hold hold;
        published = hbs_slot_publish(client);
        if (const hbs_slot *slot = published ? nullptr : hbs_shm_reclaim(&remains); slot != nullptr) {
            hbs_slot_give_to(slot, client);
            published = true;
        }
        if (published && with_entries)
            hbs_index_update(client);
    }
    hbs_client_drop_remains(&remains);
    return published;
}

void publish_or_say_so(hbs_client *client, bool with_entries) {
    if (client == nullptr || publish(client, with_entries))
        return;
    client->dbpos = HBS_DBPOS_NONE; // a stale one must not make index entries for another client's slot
    HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to alloc new client from shared memory");
}

} // namespace

void hbs_shm_commit(hbs_client *client) {
    publish_or_say_so(client, false);
}

void hbs_publish(hbs_client *client) {
    publish_or_say_so(client, true);
}

bool hbs_is_published(const hbs_client *client) {
    return hbs_slot_of(client) != nullptr;
}

void hbs_publish_again(hbs_client *client) {
    const hbs_shm_hold hold;
    if (hbs_slot_refresh(client))
        hbs_index_update(client);
}

void hbs_shm_flush() {
    HBS_LOG(HBS_INFO, "HOSTBASE: flush client list database");
    const hbs_shm_hold hold;
    hbs_index_clear();
    hbs_rule_index_clear();
    hbs_slots_clear();
}

void hbs_shm_mark_hotspot() {
    static hbs_hotspot_names names; // 4 KB, too much for a small thread stack; callers hold hbs_list_mutex
    hbs_hotspot_read(&names);
    const hbs_shm_hold hold;
    for (const hbs_slot *slot = hbs_slot_first(); slot != nullptr; slot = hbs_slot_after(slot))
        if (hbs_hotspot_has(&names, slot->record.ifname))
            hbs_slot_edit(slot)->record.hotspot = 1;
}
