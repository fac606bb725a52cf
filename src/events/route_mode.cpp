#include "events/route_mode.h"

#include "base/state.h"
#include "files/client_file.h"
#include "files/rule_files.h"
#include "files/user_settings.h"
#include "store/client_end.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

bool reload_pending; // the database was emptied for bridge mode

void enter_bridge_mode() {
    hbs_db_ready = 0;
    hbs_shm_flush();
    while (hbs_client *client = hbs_client_first())
        hbs_client_free(client);
    while (hbs_client *client = hbs_nomac_first())
        hbs_client_free(client);
    reload_pending = true;
}

} // namespace

int hbs_set_route_mode(uint8_t mode) {
    if (mode == 0) {
        enter_bridge_mode();
        return 0;
    }
    if (reload_pending) {
        hbs_settings_tidy();
        (void)hbs_nv_load_clients();
        hbs_nv_load_rules();
        reload_pending = false;
    }
    hbs_db_ready = mode;
    return 0;
}
