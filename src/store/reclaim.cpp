#include "store/reclaim.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/log.h"
#include "base/text.h"
#include "gateway/lease_files.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/index.h"
#include "store/pools.h"

namespace {

constexpr uint32_t KEPT_FLAGS = HBS_FLAG_ONLINE | HBS_FLAG_STIP4 | HBS_FLAG_STIP6;
constexpr size_t CLIENT_LINE_SIZE = 512;

// A name out of a slot may have been scribbled over: it need not end inside its field.
void delete_file(const char name[HBS_LEASE_FILE_SIZE]) {
    const size_t length = strnlen(name, HBS_LEASE_FILE_SIZE);
    if (length == 0 || length == HBS_LEASE_FILE_SIZE || memchr(name, '/', length) != nullptr)
        return;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
        return;
    char path[sizeof "/var/tmp/" + HBS_LEASE_FILE_SIZE];
    (void)snprintf(path, sizeof path, "/var/tmp/%s", name);
    (void)unlink(path);
}

hbs_client *slot_after(const hbs_client *slot) {
    return static_cast<hbs_client *>(hbs_list_next(hbs_pool::clients, slot));
}

// Times are compared as signed numbers, so one of 0x7FFFFFFF is never taken. Among equal ones the first wins.
hbs_client *find_victim() {
    hbs_client *victim = nullptr;
    int32_t best = INT32_MAX;
    hbs_client *slot = static_cast<hbs_client *>(hbs_list_first(hbs_pool::clients));
    for (; slot != nullptr; slot = slot_after(slot)) {
        if ((slot->trust & HBS_TRUST_PROTECTED) != 0 || (slot->flags & KEPT_FLAGS) != 0)
            continue;
        const int32_t since = static_cast<int32_t>(slot->online_time);
        if (since >= best)
            continue;
        best = since;
        victim = slot;
    }
    return victim;
}

// The working copy in the client list that a slot was published from. The note of slot owners decides
// between those whose dbpos is the slot's: a stale one names it too.
hbs_client *owner_of(const hbs_client *slot) {
    const uint32_t position = hbs_pool_offset(slot);
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
        if (client->dbpos == position && hbs_slot_owner(slot) == client)
            return client;
    return nullptr;
}

} // namespace

void hbs_client_free(hbs_client *client) {
    hbs_slot_set_owner(hbs_slot_of(client), nullptr);
    hbs_lease_timers_clear(client);
    hbs_client_release(client);
}

void hbs_client_delete_files(const hbs_client *client) {
    delete_file(client->lease_file);
    delete_file(client->lease_file6);
}

void hbs_delete_client(const hbs_client *slot) {
    (void)hbs_lease_delete_ipv4_static(hbs_mac_to_text(slot->mac).text);
    hbs_client_delete_files(slot);
    hbs_client *client = owner_of(slot);
    if (client == nullptr)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_delete_client: Client at %p removed %02x:%02x:%02x:%02x:%02x:%02x",
            hbs_dbpos_for_log(client->dbpos), client->mac[0], client->mac[1], client->mac[2], client->mac[3],
            client->mac[4], client->mac[5]);
    hbs_client_counter_decrement();
    hbs_client_free(client);
}

hbs_client *hbs_shm_reclaim() {
    hbs_client *slot = find_victim();
    if (slot == nullptr)
        return nullptr;
    char text[CLIENT_LINE_SIZE];
    HBS_LOG(HBS_INFO, "HOSTBASE: reclaiming client # %s at %p", hbs_client_to_str(slot, text, sizeof text),
            hbs_dbpos_for_log(slot->dbpos));
    hbs_file_remove_if_idx(slot);
    hbs_list_unlink(hbs_pool::clients, slot);
    hbs_delete_client(slot);
    hbs_slot_set_owner(slot, nullptr); // a nomac owner lives on and gets a fresh slot at its next commit
    memset(slot, 0, sizeof *slot);
    return slot;
}
