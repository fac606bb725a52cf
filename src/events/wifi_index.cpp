#include "events/wifi_index.h"

#include <db.h>

#include "base/log.h"
#include "base/text.h"
#include "gateway/bssid_table.h"
#include "store/client_fields.h"

namespace {

constexpr uint8_t WIFI_RPC_REGISTERED = 5;

} // namespace

void hbs_take_wifi_index(hbs_client *client) {
    if (client->adapter_type != HBS_ADAPTER_WIFI)
        return;
    const int bssid = hbs_bssid_of(client->mac);
    if (bssid >= 0)
        hbs_set_wifi_index(client, static_cast<uint8_t>(bssid));
    else
        HBS_LOG(HBS_ERROR, "HOSTBASE: Got bssid failed for %s", hbs_mac_to_text(client->mac).text);
}

bool hbs_wifi_is_registered() {
    return DB_GetByte(DB_ITEM_WIFI_RPC_MODE) == WIFI_RPC_REGISTERED;
}

uint32_t hbs_ssid_of(const hbs_client *record) {
    const int row = hbs_wifi_is_registered() ? hbs_bssid_of(record->mac) : -1;
    return row >= 0 ? static_cast<uint32_t>(row) + 1 : record->wifi_index + 1u;
}
