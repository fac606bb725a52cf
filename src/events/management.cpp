#include "events/management.h"

#include <cstring>
#include <sys/socket.h>

#include <hbs_msg.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "files/client_file.h"
#include "files/client_removal.h"
#include "files/rule_files.h"
#include "files/trusted_devices.h"
#include "gateway/lease_files.h"
#include "gateway/networks.h"
#include "store/client_fields.h"
#include "store/clients.h"
#include "store/index.h"
#include "store/publish.h"
#include "store/rule_index.h"

namespace {

constexpr int TRUST_KIND_SITE = 1;
constexpr int TRUST_KIND_SERVICE = 2;

// What a client without an identity of its own gets with a static lease.
constexpr const char *DEFAULT_HOST = "unknown";
constexpr const char *DEFAULT_IDENTITY = "null";

bool reload_pending; // the database was emptied for bridge mode

void publish_and_persist(hbs_client *client) {
    hbs_publish(client);
    hbs_nv_update_client(client);
}

template <size_t size> void copy_unless_empty(char (&field)[size], const char *text) {
    if (text[0] != '\0')
        hbs_copy_text(field, size, text);
}

// The known client of a MAC, or a new one, which starts in network 0. Null when memory runs out, and for six
// zero bytes, which are no MAC.
hbs_client *find_or_add(const uint8_t mac[6]) {
    if (hbs_mac_is_zero(mac))
        return nullptr;
    hbs_client *client = hbs_find_by_mac(mac);
    return client != nullptr ? client : hbs_add(mac);
}

// --- trust ------------------------------------------------------------------------------------------

void enable_trust(int kind, const char *comment, hbs_client *client) {
    copy_unless_empty(client->comment, comment);
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

// --- static leases ------------------------------------------------------------------------------------

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
    copy_unless_empty(defaults->host, client->host);
    copy_unless_empty(defaults->oui, client->oui);
    copy_unless_empty(defaults->serial_number, client->serial_number);
    copy_unless_empty(defaults->product_class, client->product_class);
}

hbs_addr_text address_text(int family, const uint8_t *address) {
    return family == AF_INET6 ? hbs_ipv6_to_text(address) : hbs_ipv4_to_text(address);
}

hbs_client *find_by_address(int family, const uint8_t *address) {
    return family == AF_INET6 ? hbs_find_by_ipv6(address) : hbs_find_by_ipv4(address);
}

// Takes every entry of the MAC and of the address out of the files. Returns whether all that were there went.
bool make_room_for_static_lease(const char *mac, const char *address) {
    const int by_mac = hbs_lease_delete_all_ipv4_static(mac);
    const int by_address = hbs_lease_delete_all_ipv4_static_by_ip(address);
    return by_mac == 0 && by_address == 0;
}

// Writes the lease into the network's files: an entry for the pair is updated, any other of the MAC or of
// the address goes first. "Every" entry: a delete takes each file's first match, so it is repeated. Where the
// old one cannot be taken out, the new one is not put beside it: two would speak for one device.
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
    if (make_room_for_static_lease(lease->mac, lease->address))
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
    const hbs_client *holder = find_by_address(request->family, request->address);
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
    if (client != nullptr)
        return client;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_static_lease: mac %s not found - create new", mac_text);
    client = hbs_add(request->mac);
    if (client != nullptr)
        hbs_set_nwidx(client, request->nwidx);
    return client;
}

void clear_static_lease_ipv4(const uint8_t *address) {
    hbs_client *client = hbs_find_by_ipv4(address);
    if (client == nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_del_static_lease: ip adress free - nothing to do\n");
        return;
    }
    memset(client->comment, 0, sizeof client->comment);
    (void)hbs_lease_delete_all_ipv4_static_by_ip(hbs_ipv4_to_text(address).text);
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
    hbs_shm_commit(client);
    hbs_file_remove_if_idx_locked(client);
    hbs_nv_update_client(client);
}

// --- lists ----------------------------------------------------------------------------------------------

// A comment may be left out; the other texts come with every request, and empty ones replace too.
void copy_filter_texts(hbs_client *client, const hbs_filter_request *request) {
    if (request->comment[0] != '\0') {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : comment is %s", request->comment);
        hbs_copy_text(client->comment, sizeof client->comment, request->comment);
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : description is %s", request->description);
    hbs_copy_text(client->description, sizeof client->description, request->description);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : keyword_list is %s", request->keyword_list);
    hbs_copy_text(client->keyword_list, sizeof client->keyword_list, request->keyword_list);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : domain_list is %s", request->domain_list);
    hbs_copy_text(client->domain_list, sizeof client->domain_list, request->domain_list);
    client->mac_filter = static_cast<int32_t>(request->filter_word);
}

// Path of a list's rule file, or null for a number that is no list.
const char *rule_file_of(uint8_t list) {
    if (list == HBS_LIST_WHITE)
        return HBS_WHITE_RULES;
    return list == HBS_LIST_BLACK ? HBS_BLACK_RULES : nullptr;
}

hbs_rule rule_of(const hbs_filter_request *request) {
    hbs_rule rule;
    memcpy(rule.value, request->value, sizeof rule.value);
    return rule;
}

void leave_list(hbs_client *client, uint8_t list) {
    if (list == HBS_LIST_WHITE) {
        hbs_clear_flags(client, HBS_TRUST_WHITE, 0);
        return;
    }
    hbs_clear_flags(client, HBS_TRUST_BLACK, 0);
    memset(client->keyword_list, 0, sizeof client->keyword_list);
    memset(client->description, 0, sizeof client->description);
    memset(client->domain_list, 0, sizeof client->domain_list);
    client->mac_filter = 0;
}

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

int hbs_api_set_trust(int kind, bool enable, const char *comment, hbs_client *client) {
    if (client == nullptr)
        return -1;
    if (enable)
        enable_trust(kind, comment, client);
    else
        disable_trust(kind, client);
    publish_and_persist(client);
    if (enable)
        remember_trusted(client->mac);
    else
        (void)hbs_nv_remove_trusted_tr69_instance(client->mac);
    return 0;
}

int hbs_api_trust_by_mac(int kind, bool enable, const uint8_t mac[6], const char *comment) {
    return hbs_api_set_trust(kind, enable, comment, enable ? find_or_add(mac) : hbs_find_by_mac(mac));
}

int hbs_api_trust_by_ipv4(int kind, bool enable, const uint8_t ipv4[4], const char *comment) {
    return hbs_api_set_trust(kind, enable, comment, hbs_find_by_ipv4(ipv4));
}

int hbs_api_trust_by_ipv6(int kind, bool enable, const uint8_t ipv6[16], const char *comment) {
    return hbs_api_set_trust(kind, enable, comment, hbs_find_by_ipv6(ipv6));
}

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
    copy_unless_empty(client->comment, request->comment);
    if (request->family == AF_INET) {
        const hbs_static_lease lease = {mac_text.text,
                                        address.text,
                                        client->host,
                                        1,
                                        {defaults.oui, defaults.serial_number, defaults.product_class},
                                        0};
        write_static_lease(client->nwidx & 7, &lease);
        hbs_set_ipv4(client, request->address);
    }
    publish_and_persist(client);
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
    const bool has_room = make_room_for_static_lease(mac_text.text, ipv4_text.text);
    const hbs_static_lease lease = {mac_text.text,
                                    ipv4_text.text,
                                    DEFAULT_HOST,
                                    1,
                                    {DEFAULT_IDENTITY, DEFAULT_IDENTITY, DEFAULT_IDENTITY},
                                    index};
    if (has_room)
        (void)hbs_lease_add_ipv4_static(0, &lease);
    return 0;
}

int hbs_api_set_comment_host(hbs_client *client, const char *comment, const char *host) {
    if (client == nullptr)
        return -1;
    if (comment[0] == '\0' && host[0] == '\0')
        hbs_clear_flags(client, HBS_TRUST_USER, 0);
    else
        hbs_set_flags(client, HBS_TRUST_USER, 0);
    hbs_copy_text(client->comment, sizeof client->comment, comment);
    hbs_copy_text(client->host, sizeof client->host, host);
    publish_and_persist(client);
    return 0;
}

int hbs_api_set_mac_filter(const hbs_filter_request *request) {
    hbs_client *client = find_or_add(request->mac);
    if (client == nullptr)
        return -1;
    copy_filter_texts(client, request);
    const char *path = rule_file_of(request->type);
    if (path == nullptr)
        return -1;
    if (request->type == HBS_LIST_WHITE) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_whitelist");
        hbs_set_flags(client, HBS_TRUST_WHITE, 0);
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_blacklist");
        hbs_set_flags(client, HBS_TRUST_BLACK, 0);
    }
    publish_and_persist(client);
    const hbs_rule rule = rule_of(request);
    (void)hbs_nv_update_client_white_rules(path, request->mac, &rule);
    const uint32_t *v = request->value;
    const uint32_t parameters[7] = {v[0], v[1], v[2], client->dbpos, v[3], v[4], v[5]};
    hbs_file_update_rule_idx(request->type, request->mac, parameters);
    return 0;
}

int hbs_api_clr_mac_filter(const hbs_filter_request *request) {
    const char *path = rule_file_of(request->type);
    if (path == nullptr)
        return -1;
    bool rules_left = false;
    const hbs_rule rule = rule_of(request);
    (void)hbs_nv_clear_client_rules(path, request->mac, &rule, &rules_left);
    const uint32_t *v = request->value;
    hbs_file_remove_rule_idx(request->type, request->mac, v[0], v[1], v[2]);
    hbs_client *client = hbs_find_by_mac(request->mac);
    if (client == nullptr)
        return 0;
    if (!rules_left)
        leave_list(client, request->type);
    hbs_shm_commit(client);
    hbs_nv_update_client(client);
    return 0;
}

int hbs_set_route_mode(uint8_t mode) {
    if (mode == 0) {
        enter_bridge_mode();
        return 0;
    }
    if (reload_pending) {
        (void)hbs_nv_load_clients();
        hbs_nv_load_rules();
        reload_pending = false;
    }
    hbs_db_ready = mode;
    return 0;
}
