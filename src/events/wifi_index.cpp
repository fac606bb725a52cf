#include "events/wifi_index.h"

#include "base/log.h"
#include "base/text.h"
#include "gateway/bssid_table.h"
#include "store/client_fields.h"

void hbs_take_wifi_index(hbs_client *client) {
    if (client->adapter_type != HBS_ADAPTER_WIFI)
        return;
    const int bssid = hbs_bssid_of(client->mac);
    if (bssid >= 0)
        hbs_set_wifi_index(client, static_cast<uint8_t>(bssid));
    else
        HBS_LOG(HBS_ERROR, "HOSTBASE: Got bssid failed for %s", hbs_mac_to_text(client->mac).text);
}
