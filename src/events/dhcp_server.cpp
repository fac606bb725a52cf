// Re-validates every client when the DHCP server of a network was (re)started with a new pool.
#include "events/dhcp_server.h"

#include <cstring>

#include <hbs_db.h>
#include <lsddb.h>
#include <rnddb.h>

#include "base/log.h"
#include "base/text.h"
#include "files/client_file.h"
#include "files/client_leases.h"
#include "files/rule_files.h"
#include "gateway/lease_files.h"
#include "gateway/networks.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

struct restart {
    int nwidx; // of the network whose server started
    // Last address that a static lease was found with, from the pool's end on. It outlives a look-up that
    // fails, so a remembered client without a static lease takes what the client before it took: kept.
    uint8_t address[4];
};

void prune_lease_files(const rnddb_params *entry) {
    const int group = entry->rndidx - 1;
    hbs_lease_prune_host4(group, hbs_ipv4_to_number(entry->pool_start), hbs_ipv4_to_number(entry->pool_end));
    hbs_lease_prune_static4(group, hbs_ipv4_to_number(entry->ipv4), hbs_netmask_of(entry->prefix_length));
}

void mark_changed(hbs_client *client) {
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_dhcp_server: set flags");
    hbs_set_flags(client, 0, HBS_CHANGED_ADDRESS);
}

void drop_client(hbs_client *client) {
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_dhcp_server: deleted");
    hbs_lease_timers_clear(client);
    hbs_nv_update_client(client);
    hbs_client_free(client);
}

// May delete the client.
void revalidate(restart *event, hbs_client *client) {
    (void)hbs_check_static_ip(client);
    if (client->nwidx != event->nwidx) {
        mark_changed(client);
        return;
    }
    const bool remembered = (client->trust & HBS_TRUST_REMEMBERED) != 0;
    if ((client->flags & HBS_FLAGS_IP4) != HBS_FLAG_STIP4) {
        if (!remembered)
            drop_client(client);
        return;
    }
    if (hbs_check_lease_get_ipv4_static_lease(client->mac, event->address) != 0 && !remembered) {
        drop_client(client);
        return;
    }
    // The flush has taken every index entry out, so the address needs no setter.
    memcpy(client->ipv4, event->address, sizeof(client->ipv4));
    mark_changed(client);
}

void revalidate_clients(restart *event) {
    for (hbs_client *client = hbs_client_first(); client != nullptr;) {
        hbs_client *next = hbs_client_next(client);
        revalidate(event, client);
        client = next;
    }
}

void publish_clients() {
    // The next one is taken after the publication, which may reclaim (and so delete) a client.
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
        hbs_publish(client);
}

} // namespace

void hbs_handle_dhcp_server(uint32_t group, uint32_t start) {
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_handle_dhcp_server: group %d, start : %d", static_cast<int>(group),
            static_cast<int>(start));
    if (start == 0)
        return;
    hbs_rnd_status = RNDDB_Read(0, 1);
    hbs_lsd_status = LSDDB_Read(0, 1);
    if (hbs_rnd_status != 0)
        return;
    restart event = {static_cast<int>(group - 1), {}};
    rnddb_params entry;
    if (hbs_rnd_find(static_cast<int>(group), &entry) == 0) {
        prune_lease_files(&entry);
        memcpy(event.address, entry.pool_end, sizeof(event.address));
    }
    hbs_shm_flush();
    revalidate_clients(&event);
    publish_clients();
    hbs_nv_load_rules();
}
