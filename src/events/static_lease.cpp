#include "events/static_lease.h"

#include <cstring>
#include <sys/socket.h>

#include "base/log.h"
#include "base/text.h"
#include "events/user_setting.h"
#include "files/client_file.h"
#include "files/client_removal.h"
#include "gateway/lease_files.h"
#include "gateway/networks.h"
#include "store/client_add.h"
#include "store/client_fields.h"
#include "store/clients.h"
#include "store/index.h"
#include "store/ip_index.h"
#include "store/publish.h"

namespace {

// What a client without an identity of its own gets with a static lease.
constexpr const char *DEFAULT_HOST = "unknown";
constexpr const char *DEFAULT_IDENTITY = "null";

// Static leases are only for networks 0 and 8, which fold onto each other; the restriction is deliberate.
bool is_static_lease_network(uint8_t nwidx) {
    return (nwidx & ~8u) == 0;
}

struct lease_defaults {
    char host[HBS_HOST_SIZE];
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
};

void take_defaults(const hbs_client *client, lease_defaults *defaults) {
    hbs_copy_text(defaults->host, sizeof defaults->host, DEFAULT_HOST);
    hbs_copy_text(defaults->oui, sizeof defaults->oui, DEFAULT_IDENTITY);
    hbs_copy_text(defaults->serial_number, sizeof defaults->serial_number, DEFAULT_IDENTITY);
    hbs_copy_text(defaults->product_class, sizeof defaults->product_class, DEFAULT_IDENTITY);
    if (client == nullptr)
        return;
    hbs_copy_unless_empty(defaults->host, client->host);
    hbs_copy_unless_empty(defaults->oui, client->oui);
    hbs_copy_unless_empty(defaults->serial_number, client->serial_number);
    hbs_copy_unless_empty(defaults->product_class, client->product_class);
}

hbs_addr_text address_text(int family, const uint8_t *address) {
    return family == AF_INET6 ? hbs_ipv6_to_text(address) : hbs_ipv4_to_text(address);
}

hbs_client *find_by_address(int family, const uint8_t *address) {
    return family == AF_INET6 ? hbs_find_by_ipv6(address) : hbs_find_by_ipv4(address);
}

// Writes the lease into the network's files: an entry for the pair is updated, any other of the MAC or of
// the address goes first. "Every" entry: a delete takes each file's first match, so it is repeated. What
// became of the deletions is not asked for: a record that cannot be taken out must not cost the device its
// new lease.
void write_static_lease(int group, const hbs_static_lease *lease) {
    uint32_t index = 0;
    bool found = false;
    (void)hbs_lease_get_static_index(group, lease->mac, lease->address, &index, &found);
    hbs_static_lease written = *lease;
    written.index = index;
    if (found) {
        (void)hbs_lease_update_ipv4_static(group, &written);
        return;
    }
    hbs_lease_delete_all_ipv4_static(lease->mac);
    hbs_lease_delete_all_ipv4_static_by_ip(lease->address);
    (void)hbs_lease_add_ipv4_static(group, &written);
}

// The client that the lease is for, taken out of the indices; null when the operation is refused.
hbs_client *claim_static_lease(const hbs_static_lease_request *request, const char *mac_text,
                               const char *address, lease_defaults *defaults) {
    if (hbs_mac_is_zero(request->mac))
        return nullptr;
    hbs_client *client = hbs_find_by_mac(request->mac);
    if (client != nullptr && !is_static_lease_network(client->nwidx)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_api_set_static_lease: mac %s found in nwidx %d", mac_text,
                client->nwidx);
        return nullptr;
    }
    if (client != nullptr)
        hbs_file_remove_if_idx_locked(client);
    take_defaults(client, defaults);
    hbs_client *holder = find_by_address(request->family, request->address);
    if (holder != nullptr && !is_static_lease_network(holder->nwidx)) {
        // Prints the network of the client found by MAC; that one stays out of the indices.
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_api_set_static_lease: ip %s found in nwidx %d", address,
                client != nullptr ? client->nwidx : 0);
        return nullptr;
    }
    if (client == nullptr && !is_static_lease_network(request->nwidx))
        return nullptr;
    if (holder != nullptr)
        hbs_file_remove_if_idx_locked(holder); // its record keeps the address until a later event changes it
    if (client == nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_static_lease: mac %s not found - create new", mac_text);
        client = hbs_add(request->mac);
        hbs_set_nwidx(client, request->nwidx);
    }
    // Its lines go. Where the newcomer was given the holder's own place, the caller's note is the last word.
    if (client != nullptr)
        hbs_set_commanded_lease(holder, false);
    return client;
}

void clear_static_lease_ipv4(const uint8_t *address) {
    hbs_client *client = hbs_find_by_ipv4(address);
    if (client == nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_del_static_lease: ip adress free - nothing to do\n");
        return;
    }
    memset(client->comment, 0, sizeof client->comment);
    hbs_set_commanded_lease(client, false);
    hbs_lease_delete_all_ipv4_static_by_ip(hbs_ipv4_to_text(address).text);
    hbs_shm_commit(client);
    hbs_file_remove_if_idx_locked(client);
    hbs_nv_update_client(client);
    if ((client->flags & (HBS_FLAG_DYNIP4 | HBS_FLAG_USRIP4)) == 0)
        hbs_remove_client(client);
    else
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_clr_static_lease: Hbs client is still used - keep it\n");
}

void clear_static_lease_ipv6(const uint8_t *address) {
    hbs_client *client = hbs_find_by_ipv6(address);
    if (client == nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_del_static_lease: ip adress free - nothing to do\n");
        return;
    }
    memset(client->comment, 0, sizeof client->comment);
    hbs_set_commanded_lease(client, false);
    hbs_shm_commit(client);
    hbs_file_remove_if_idx_locked(client);
    hbs_nv_update_client(client);
}

} // namespace

int hbs_api_set_static_lease(const hbs_static_lease_request *request) {
    const hbs_mac_text mac_text = hbs_mac_to_text(request->mac);
    const hbs_addr_text address = address_text(request->family, request->address);
    lease_defaults defaults;
    hbs_client *client = claim_static_lease(request, mac_text.text, address.text, &defaults);
    if (client == nullptr)
        return -1;
    hbs_set_host(client, request->host[0] != '\0' ? request->host : defaults.host);
    hbs_set_oui(client, defaults.oui);
    hbs_set_serial_number(client, defaults.serial_number);
    hbs_set_product_class(client, defaults.product_class);
    hbs_copy_unless_empty(client->comment, request->comment);
    if (request->family == AF_INET) {
        const hbs_static_lease lease = {mac_text.text,
                                        address.text,
                                        client->host,
                                        1,
                                        {defaults.oui, defaults.serial_number, defaults.product_class},
                                        0};
        write_static_lease(static_cast<int>(hbs_fold_network(client->nwidx)), &lease);
        hbs_set_ipv4(client, request->address);
    }
    hbs_set_commanded_lease(client, true);
    hbs_publish_setting(client);
    return 0;
}

int hbs_api_clr_static_lease(int family, const uint8_t *address) {
    if (family == AF_INET)
        clear_static_lease_ipv4(address);
    else if (family == AF_INET6)
        clear_static_lease_ipv6(address);
    return 0;
}

// The router database is read anew at the next look-up: the internal device may sit in a network that
// was configured a moment ago.
int hbs_api_set_internal_lease(int family, const uint8_t *address, const uint8_t mac[6]) {
    hbs_rnd_status = -1;
    if (family != AF_INET)
        return 0;
    const hbs_mac_text mac_text = hbs_mac_to_text(mac);
    const hbs_addr_text ipv4_text = hbs_ipv4_to_text(address);
    uint32_t index = 0;
    (void)hbs_lease_get_static_index(0, mac_text.text, ipv4_text.text, &index, nullptr);
    hbs_lease_delete_all_ipv4_static(mac_text.text);
    hbs_lease_delete_all_ipv4_static_by_ip(ipv4_text.text);
    const hbs_static_lease lease = {mac_text.text,
                                    ipv4_text.text,
                                    DEFAULT_HOST,
                                    1,
                                    {DEFAULT_IDENTITY, DEFAULT_IDENTITY, DEFAULT_IDENTITY},
                                    index};
    (void)hbs_lease_add_ipv4_static(0, &lease);
    hbs_set_commanded_lease(hbs_find_by_mac(mac), true); // whose end would drop the line
    return 0;
}
