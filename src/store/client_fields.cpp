#include "store/client_fields.h"

#include <cstddef>
#include <cstring>
#include <net/if.h>

#include "base/date.h"
#include "base/log.h"
#include "base/text.h"
#include "gateway/hotspot.h"
#include "store/client_text.h"
#include "store/clients.h"
#include "store/index.h"
#include "store/slots.h"

namespace {

// Compares with the whole text, so one that does not fit its field marks a change every time.
template <size_t Size> bool set_text(hbs_client *client, char (hbs_client::*field)[Size], const char *text) {
    if (client == nullptr || text == nullptr || strcmp(client->*field, text) == 0)
        return false;
    hbs_copy_text(client->*field, Size, text);
    hbs_set_flags(client, 0, HBS_CHANGED);
    return true;
}

void set_byte(hbs_client *client, uint8_t hbs_client::*field, uint8_t value, uint32_t mark) {
    if (client == nullptr || client->*field == value)
        return;
    client->*field = value;
    hbs_set_flags(client, 0, mark);
}

// A client without a slot of its own has no index entries: those with its address are another's.
bool has_entries(const hbs_client *client) {
    return hbs_slot_of(client) != nullptr;
}

void interface_changed(hbs_client *client) {
    client->hotspot = hbs_is_hotspot_interface(client->ifname) ? 1 : 0;
    hbs_set_flags(client, 0, HBS_CHANGED);
}

} // namespace

void hbs_set_host(hbs_client *client, const char *host) {
    (void)set_text(client, &hbs_client::host, host);
}

void hbs_set_device_name(hbs_client *client, const char *name) {
    if (set_text(client, &hbs_client::device_name, name))
        HBS_LOG(HBS_INFO, "HOSTBASE: ******* set device name for client at %p to %s\n",
                hbs_dbpos_for_log(client->dbpos), client->device_name);
}

void hbs_set_oui(hbs_client *client, const char *oui) {
    (void)set_text(client, &hbs_client::oui, oui);
}

void hbs_set_serial_number(hbs_client *client, const char *serial_number) {
    (void)set_text(client, &hbs_client::serial_number, serial_number);
}

void hbs_set_product_class(hbs_client *client, const char *product_class) {
    (void)set_text(client, &hbs_client::product_class, product_class);
}

void hbs_set_lease_file(hbs_client *client, const char *name) {
    (void)set_text(client, &hbs_client::lease_file, name);
}

void hbs_set_lease_file6(hbs_client *client, const char *name) {
    (void)set_text(client, &hbs_client::lease_file6, name);
}

// Index entries carry the network in their keys: publishing would keep the interface entry of the old one
// and put a second address entry beside the first.
void hbs_set_nwidx(hbs_client *client, uint8_t nwidx) {
    if (client != nullptr && hbs_fold_network(client->nwidx) != hbs_fold_network(nwidx) &&
        has_entries(client))
        hbs_file_remove_if_idx_locked(client);
    set_byte(client, &hbs_client::nwidx, nwidx, HBS_CHANGED_ADDRESS);
}

void hbs_set_wifi_index(hbs_client *client, uint8_t wifi_index) {
    set_byte(client, &hbs_client::wifi_index, wifi_index, HBS_CHANGED);
}

// A client that left the switch keeps no port: a link going down there would force it off line.
void hbs_set_adapter(hbs_client *client, uint8_t adapter_type, uint8_t port) {
    if (client == nullptr)
        return;
    const uint8_t kept = adapter_type == HBS_ADAPTER_ETHERNET ? port : uint8_t{0};
    if (client->adapter_type == adapter_type && client->switch_port == kept)
        return;
    client->adapter_type = adapter_type;
    client->switch_port = kept;
    hbs_set_flags(client, 0, HBS_CHANGED);
}

void hbs_set_interface(hbs_client *client, uint32_t ifindex, const char *ifname) {
    if (client == nullptr)
        return;
    const bool moved = client->ifindex != ifindex;
    const bool renamed = ifname != nullptr && strncmp(client->ifname, ifname, sizeof client->ifname) != 0;
    if (!moved && !renamed)
        return;
    client->ifindex = ifindex;
    char kernel_name[IF_NAMESIZE] = "";
    if (ifname == nullptr) // an index that the kernel does not know leaves the name as it was
        ifname = if_indextoname(ifindex, kernel_name);
    if (ifname != nullptr)
        hbs_copy_text(client->ifname, sizeof client->ifname, ifname);
    interface_changed(client);
}

void hbs_set_ipv4(hbs_client *client, const uint8_t ipv4[4]) {
    if (client == nullptr || ipv4 == nullptr || memcmp(client->ipv4, ipv4, sizeof client->ipv4) == 0)
        return;
    const bool replaced = !hbs_ipv4_is_zero(client->ipv4);
    if (replaced)
        hbs_file_remove_if_idx_locked(client);
    memcpy(client->ipv4, ipv4, sizeof client->ipv4);
    if (replaced)
        hbs_set_flags(client, 0, HBS_CHANGED_ADDRESS);
}

void hbs_set_ipv6(hbs_client *client, const uint8_t ipv6[16]) {
    if (client == nullptr || ipv6 == nullptr || memcmp(client->ipv6, ipv6, sizeof client->ipv6) == 0)
        return;
    if (hbs_client_has_ipv6(client) && has_entries(client))
        hbs_file_remove_ipv6_entry(client);
    memcpy(client->ipv6, ipv6, sizeof client->ipv6);
    hbs_set_flags(client, 0, HBS_CHANGED_ADDRESS);
}

void hbs_set_ll(hbs_client *client, const uint8_t ll[16]) {
    if (client == nullptr || ll == nullptr || memcmp(client->ll, ll, sizeof client->ll) == 0)
        return;
    if (hbs_client_has_ll(client) && has_entries(client))
        hbs_file_remove_ll_entries(client);
    memcpy(client->ll, ll, sizeof client->ll);
    hbs_set_flags(client, 0, HBS_CHANGED);
}

void hbs_clear_status_time(hbs_client *client) {
    if (client != nullptr)
        hbs_date_clear(client->status_time);
}
