#include "events/trust.h"

#include <cstring>

#include "base/log.h"
#include "events/user_setting.h"
#include "files/trusted_devices.h"
#include "store/clients.h"

namespace {

constexpr int TRUST_KIND_SITE = 1;
constexpr int TRUST_KIND_SERVICE = 2;

void enable_trust(int kind, const char *comment, hbs_client *client) {
    hbs_copy_unless_empty(client->comment, comment);
    if (kind == TRUST_KIND_SITE) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_trust : enable - site");
        hbs_set_flags(client, HBS_TRUST_SITE, 0);
    } else if (kind == TRUST_KIND_SERVICE) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_trust : enable - service");
        hbs_set_flags(client, HBS_TRUST_SERV, 0);
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_trust : enable - unknown");
    }
}

void disable_trust(int kind, hbs_client *client) {
    if (kind == TRUST_KIND_SITE) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_trust : disable - site");
        hbs_clear_flags(client, HBS_TRUST_SITE, 0);
    } else if (kind == TRUST_KIND_SERVICE) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_trust : disable - service");
        hbs_clear_flags(client, HBS_TRUST_SERV, 0);
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_trust : disable - unknown");
    }
}

// A device that has a record keeps it, with the instance that the agent gave it.
void remember_trusted(const uint8_t mac[6]) {
    hbs_trusted_device device{};
    memcpy(device.mac, mac, sizeof device.mac);
    if (hbs_nv_get_trusted_tr69_instance(&device) != 0)
        (void)hbs_nv_set_trusted_tr69_instance(&device);
}

} // namespace

int hbs_api_set_trust(int kind, bool enable, const char *comment, hbs_client *client) {
    if (client == nullptr)
        return -1;
    if (enable)
        enable_trust(kind, comment, client);
    else
        disable_trust(kind, client);
    hbs_publish_setting(client);
    if (enable)
        remember_trusted(client->mac);
    else
        (void)hbs_nv_remove_trusted_tr69_instance(client->mac);
    return 0;
}

int hbs_api_trust_by_mac(int kind, bool enable, const uint8_t mac[6], const char *comment) {
    return hbs_api_set_trust(kind, enable, comment,
                             enable ? hbs_find_or_add_named(mac) : hbs_find_by_mac(mac));
}

int hbs_api_trust_by_ipv4(int kind, bool enable, const uint8_t ipv4[4], const char *comment) {
    return hbs_api_set_trust(kind, enable, comment, hbs_find_by_ipv4(ipv4));
}

int hbs_api_trust_by_ipv6(int kind, bool enable, const uint8_t ipv6[16], const char *comment) {
    return hbs_api_set_trust(kind, enable, comment, hbs_find_by_ipv6(ipv6));
}
