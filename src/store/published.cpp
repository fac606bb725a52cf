#include "store/published.h"

#include <cstring>

#include "base/text.h"
#include "store/pools.h"

const hbs_client *hbs_published_by_mac(const uint8_t mac[6]) {
    if (hbs_mac_is_zero(mac))
        return nullptr;
    const void *at = hbs_list_first(hbs_pool::clients);
    while (at != nullptr &&
           memcmp(static_cast<const hbs_client *>(at)->mac, mac, sizeof hbs_client::mac) != 0)
        at = hbs_list_next(hbs_pool::clients, at);
    return static_cast<const hbs_client *>(at);
}
