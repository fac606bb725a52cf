// The index lists of the segment that clients have entries in, taken together.
#include "store/index.h"

#include <cstring>

#include "base/log.h"
#include "base/text.h"
#include "store/client_text.h"
#include "store/pools.h"
#include "store/segment.h"
#include "store/slots.h"

namespace {

void update_ip_index(const hbs_client *client) {
    hbs_ip_entry entry;
    if (!hbs_ipv4_is_zero(client->ipv4)) {
        hbs_file_client_to_ip_index(client->nwidx, HBS_IP_KIND_IPV4, client, &entry);
        HBS_LOG(HBS_INFO, "HOSTBASE: hostbase_update_ip_indicies : created IPV4 index %s",
                hbs_ip_entry_text(&entry).text);
        hostbase_insert_ipidx(&entry);
    }
    if (!hbs_ipv6_is_zero(client->ipv6)) {
        hbs_file_client_to_ip_index(client->nwidx, HBS_IP_KIND_IPV6, client, &entry);
        hostbase_insert_ipidx(&entry);
    }
    if (!hbs_ipv6_is_zero(client->ll)) {
        hbs_file_client_to_ip_index(client->nwidx, HBS_IP_KIND_LL, client, &entry);
        hostbase_insert_ipidx(&entry);
    }
}

void update_dhcp_option_index(const hbs_client *client) {
    hbs_ip_entry entry;
    if (!hbs_ipv4_is_zero(client->ipv4) && (client->flags & HBS_FLAG_DYNIP4) != 0) {
        hbs_file_dhcp_option_client_to_ip_idx(client->nwidx, HBS_IP_KIND_IPV4, client, &entry);
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_dhcp_option_update_ip_indicies : created IPV4 index %s",
                hbs_dhcp_entry_text(&entry).text);
        hbs_file_dhcp_option_insert_ip_idx(&entry);
    }
    if (!hbs_ipv6_is_zero(client->ll) && (client->flags & HBS_FLAG_DYNIP6) != 0) {
        hbs_file_dhcp_option_client_to_ip_idx(client->nwidx, HBS_IP_KIND_LL, client, &entry);
        hbs_file_dhcp_option_insert_ip_idx(&entry);
    }
}

} // namespace

namespace {

// What all entries of a published client follow from. As long as it is the same, none is missing.
struct index_basis {
    uint32_t edition; // of the lists; 0 = not known
    uint32_t flags;
    uint8_t ipv4[4], ipv6[16], ll[16];
    uint32_t nwidx;
};

index_basis complete[HBS_MAX_CLIENTS]; // by the number of the slot

index_basis basis_of(const hbs_client *client) {
    index_basis basis = {hbs_lists_edition(), client->flags & (HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6), {}, {}, {},
                         client->nwidx};
    memcpy(basis.ipv4, client->ipv4, sizeof basis.ipv4);
    memcpy(basis.ipv6, client->ipv6, sizeof basis.ipv6);
    memcpy(basis.ll, client->ll, sizeof basis.ll);
    return basis;
}

void update_all(const hbs_client *client) {
    update_ip_index(client);
    update_dhcp_option_index(client);
    hbs_file_update_if_idx(client);
    hbs_file_update_pri_idx(client);
}

} // namespace

// The log tells of each entry at each update. Where nobody takes that, entries that are there are left alone.
void hbs_index_update(const hbs_client *client) {
    const hbs_slot *slot = hbs_slot_of(client);
    if (slot == nullptr)
        return;
    if (hbs_log_takes(HBS_INFO)) {
        update_all(client);
        return;
    }
    index_basis *known = &complete[hbs_pool_number(hbs_pool::clients, slot)];
    const index_basis now = basis_of(client);
    if (memcmp(known, &now, sizeof now) == 0)
        return;
    *known = now; // of an older edition at once where an element was lacking
    update_all(client);
}

void hostbase_update_ip_indicies(const hbs_client *client) {
    const hbs_shm_hold hold;
    hbs_index_update(client);
}

void hbs_file_remove_if_idx(const hbs_slot *slot) {
    hbs_file_remove_ip_idx(slot);
    hbs_file_remove_dhcp_option_ip_idx(slot);
    hbs_file_remove_if_entry(slot);
    hbs_file_remove_pri_idx(slot);
}

void hbs_file_remove_if_idx_locked(const hbs_client *client) {
    const hbs_shm_hold hold;
    hbs_file_remove_if_idx(hbs_slot_of(client));
}

void hbs_index_clear() {
    hbs_ip_index_clear();
    hbs_instance_index_clear();
}
