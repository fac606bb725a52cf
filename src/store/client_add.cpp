#include "store/client_add.h"

#include "store/client_end.h"
#include "store/clients.h"

hbs_client *hbs_add(const uint8_t *mac) {
    hbs_client *client = hbs_client_take(mac);
    if (client == nullptr && hbs_client_make_room())
        client = hbs_client_take(mac);
    return client;
}

hbs_client *hbs_find_or_add(const uint8_t *mac, bool *is_new) {
    hbs_client *client = hbs_find_by_mac(mac);
    *is_new = client == nullptr && mac != nullptr;
    return *is_new ? hbs_add(mac) : client;
}
