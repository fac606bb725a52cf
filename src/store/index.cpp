// The index lists of the segment that clients have entries in, taken together.
#include "store/index.h"

#include "base/log.h"
#include "base/text.h"
#include "store/client_text.h"
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

void hbs_index_update(const hbs_client *client) {
    if (hbs_reference_of(client) == HBS_DBPOS_NONE)
        return;
    update_ip_index(client);
    update_dhcp_option_index(client);
    hbs_file_update_if_idx(client);
    hbs_file_update_pri_idx(client);
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
