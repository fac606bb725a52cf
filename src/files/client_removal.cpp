#include "files/client_removal.h"

#include "files/client_leases.h"
#include "files/rule_files.h"
#include "store/clients.h"
#include "store/publish.h"

// With more working copies than slots, publishing one may delete another: the next client is taken
// only afterwards.
static void publish_all_anew() {
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client)) {
        hbs_set_flags(client, 0, HBS_CHANGED_ADDRESS);
        hbs_publish(client);
    }
}

// The client counter stays as it is here, unlike in a reclaim.
void hbs_remove_client(hbs_client *client) {
    if (!hbs_is_working_copy(client))
        return;
    hbs_lease_delete_client_static(client);
    hbs_shm_flush();
    hbs_client_delete_files(client);
    hbs_client_free(client);
    publish_all_anew();
    hbs_nv_load_rules();
}
