#include "events/user_setting.h"

#include "base/text.h"
#include "files/client_file.h"
#include "store/client_add.h"
#include "store/clients.h"
#include "store/publish.h"

hbs_client *hbs_find_or_add_named(const uint8_t mac[6]) {
    if (hbs_mac_is_zero(mac))
        return nullptr;
    bool is_new = false;
    return hbs_find_or_add(mac, &is_new);
}

void hbs_publish_setting(hbs_client *client) {
    hbs_publish(client);
    hbs_nv_update_client(client);
}
