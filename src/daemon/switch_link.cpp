// Link events of the external switch.
#include "daemon/switch_link.h"

#include <extswt.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "gateway/docsis_bridge.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

// Last reported link state from port 1 on; only the callback's thread uses it after start-up.
int32_t hbs_switch_port_link[EXTSWT_PORTS];

void force_offline(hbs_client *client) {
    client->lease_start_uptime = 0;
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_REACH_2);
    hbs_clear_status_time(client);
    hbs_publish(client);
    HBS_LOG(HBS_INFO, "HOSTBASE: \tforce offline device %s", hbs_mac_to_text(client->mac).text);
    hbs_remove_cpe_from_docsis_bridge(client->mac);
}

} // namespace

void hbs_switch_link_init() {
    for (int32_t &state : hbs_switch_port_link)
        state = 1;
    (void)EXTSWT_RegisterLinkStatusCb(hbs_ext_switch_link_cb);
}

void hbs_ext_switch_link_cb(const uint32_t states[EXTSWT_PORTS]) {
    for (uint32_t i = 0; i < EXTSWT_PORTS; ++i) {
        if (hbs_switch_port_link[i] != 0 && states[i] == 0)
            hbs_ext_switch_link_down(i + 1);
        hbs_switch_port_link[i] = static_cast<int32_t>(states[i]);
    }
}

void hbs_ext_switch_link_down(uint32_t port) {
    const hbs_list_hold hold;
    HBS_LOG(HBS_INFO, "HOSTBASE: Got link down for external switch port %d", static_cast<int>(port));
    bool any = false;
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client)) {
        if (client->switch_port != port)
            continue;
        force_offline(client);
        any = true;
    }
    // Devices that the daemon does not know are still taken out of the bridge.
    if (!any)
        hbs_remove_cpe_by_port(port);
}
