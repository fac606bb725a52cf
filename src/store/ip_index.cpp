// The IP index and the DHCP-option IP index.
#include "store/ip_index.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/log.h"
#include "store/client_text.h"
#include "store/pools.h"
#include "store/segment.h"
#include "store/slots.h"

int hbs_oid_compare(const uint32_t *a, uint32_t a_count, const uint32_t *b, uint32_t b_count) {
    if (a_count != b_count)
        return a_count < b_count ? -1 : 1;
    for (uint32_t i = 0; i < a_count; i++)
        if (a[i] != b[i])
            return a[i] < b[i] ? -1 : 1;
    return 0;
}

namespace {

// Appends the octets of an address to a key, one word each, and `pad` words of 0 behind them.
void add_octets(hbs_ip_entry *entry, const uint8_t *address, uint32_t octets, uint32_t pad) {
    for (uint32_t i = 0; i < octets; i++)
        entry->key[entry->count + i] = address[i];
    entry->count += octets + pad;
}

void start_entry(hbs_ip_entry *entry, int nwidx, const hbs_client *client) {
    *entry = {};
    entry->key[0] = hbs_network_key(nwidx);
    entry->dbpos = client->dbpos;
}

} // namespace

void hbs_file_client_to_ip_index(int nwidx, int kind, const hbs_client *client, hbs_ip_entry *entry) {
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_file_client_to_ip_index: clnt dbpos is %d",
            static_cast<int>(client->dbpos));
    start_entry(entry, nwidx, client);
    if (kind != HBS_IP_KIND_IPV4 && kind != HBS_IP_KIND_IPV6 && kind != HBS_IP_KIND_LL)
        return;
    entry->count = 3;
    if (kind == HBS_IP_KIND_IPV4) {
        entry->key[1] = HBS_KEY_IPV4;
        entry->key[2] = sizeof client->ipv4;
        add_octets(entry, client->ipv4, sizeof client->ipv4, 0);
        return;
    }
    entry->key[1] = HBS_KEY_IPV6;
    entry->key[2] = sizeof client->ipv6;
    add_octets(entry, kind == HBS_IP_KIND_IPV6 ? client->ipv6 : client->ll, sizeof client->ipv6, 0);
}

void hbs_file_dhcp_option_client_to_ip_idx(int nwidx, int kind, const hbs_client *client,
                                           hbs_ip_entry *entry) {
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_file_dhcp_option_client_to_ip_idx: clnt dbpos is %d",
            static_cast<int>(client->dbpos));
    start_entry(entry, nwidx, client);
    if (kind != HBS_IP_KIND_IPV4 && kind != HBS_IP_KIND_LL)
        return;
    entry->count = 2;
    entry->key[1] = kind == HBS_IP_KIND_IPV4 ? HBS_KEY_IPV4 : HBS_KEY_IPV6;
    if (kind == HBS_IP_KIND_IPV4)
        add_octets(entry, client->ipv4, sizeof client->ipv4, 1);
    else
        add_octets(entry, client->ll, sizeof client->ll, 1);
}

namespace {

const hbs_ip_entry *first_entry(hbs_pool pool) {
    return static_cast<const hbs_ip_entry *>(hbs_list_first(pool));
}

const hbs_ip_entry *entry_after(hbs_pool pool, const hbs_ip_entry *entry) {
    return static_cast<const hbs_ip_entry *>(hbs_list_next(pool, entry));
}

bool may_be_inserted(const hbs_ip_entry *entry) {
    return entry != nullptr && entry->count > 0 && entry->count <= std::size(entry->key) &&
           hbs_reference_is_published(entry->dbpos);
}

int compare_keys(const hbs_ip_entry *a, const hbs_ip_entry *b) {
    return hbs_oid_compare(a->key, std::min(a->count, uint32_t{HBS_IP_KEY_WORDS}), b->key,
                           std::min(b->count, uint32_t{HBS_IP_KEY_WORDS}));
}

// The entries of a list in its order, so that a place in it is found without walking there.
struct sorted_entries {
    const hbs_ip_entry *entry[HBS_MAX_IP_ENTRIES];
    size_t count;
};

sorted_entries ip_entries, dhcp_entries;

sorted_entries *entries_of(hbs_pool pool) {
    return pool == hbs_pool::ip ? &ip_entries : &dhcp_entries;
}

// The first entry whose key is equal or larger, by its number.
size_t number_of_place(hbs_pool pool, const hbs_ip_entry *wanted) {
    const sorted_entries *all = entries_of(pool);
    const hbs_ip_entry *const *place =
        std::lower_bound(all->entry, all->entry + all->count, wanted,
                         [](const hbs_ip_entry *a, const hbs_ip_entry *b) { return compare_keys(a, b) < 0; });
    return static_cast<size_t>(place - all->entry);
}

// The entry at that place; null = the new entry goes to the tail.
const hbs_ip_entry *find_place(hbs_pool pool, const hbs_ip_entry *wanted) {
    const sorted_entries *all = entries_of(pool);
    const size_t number = number_of_place(pool, wanted);
    return number < all->count ? all->entry[number] : nullptr;
}

bool is_at_place(const hbs_ip_entry *place, const hbs_ip_entry *wanted) {
    return place != nullptr && compare_keys(place, wanted) == 0;
}

// Copies an entry into an element and links it. Returns the element, or null when the pool is empty.
const hbs_ip_entry *store_entry(hbs_pool pool, const hbs_ip_entry *entry, const hbs_ip_entry *before) {
    auto *element = static_cast<hbs_ip_entry *>(hbs_pool_take(pool));
    if (element == nullptr)
        return nullptr;
    element->count = entry->count;
    std::copy_n(entry->key, entry->count, element->key);
    element->dbpos = entry->dbpos;
    sorted_entries *all = entries_of(pool);
    const hbs_ip_entry **place = all->entry + number_of_place(pool, element);
    std::move_backward(place, all->entry + all->count, all->entry + all->count + 1);
    *place = element;
    all->count++;
    hbs_list_link(pool, element, before);
    return element;
}

} // namespace

void hostbase_insert_ipidx(const hbs_ip_entry *entry) {
    if (!may_be_inserted(entry))
        return;
    const hbs_ip_entry *place = find_place(hbs_pool::ip, entry);
    if (is_at_place(place, entry)) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hostbase_insert_ipidx : index already exists (%s)",
                hbs_ip_entry_text(place).text);
        return;
    }
    const hbs_ip_entry *stored = store_entry(hbs_pool::ip, entry, place);
    if (stored == nullptr)
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_file_insert_ip_idx : failed to allocate memory for new index");
    else
        HBS_LOG(HBS_INFO, "HOSTBASE: insert new ip index %s", hbs_ip_entry_text(stored).text);
}

void hbs_file_dhcp_option_insert_ip_idx(const hbs_ip_entry *entry) {
    if (!may_be_inserted(entry))
        return;
    const hbs_ip_entry *place = find_place(hbs_pool::dhcp, entry);
    if (is_at_place(place, entry)) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_dhcp_option_insert_ip_idx : index already exists (%s)",
                hbs_dhcp_entry_text(place).text);
        return;
    }
    const hbs_ip_entry *stored = store_entry(hbs_pool::dhcp, entry, place);
    if (stored == nullptr)
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_file_dhcp_option_insert_ip_idx : failed to allocate memory");
    else
        HBS_LOG(HBS_INFO, "HOSTBASE: insert new dhcp ip index %s", hbs_dhcp_entry_text(stored).text);
}

namespace {

void free_entry(hbs_pool pool, const hbs_ip_entry *entry) {
    sorted_entries *all = entries_of(pool);
    const hbs_ip_entry **end = all->entry + all->count;
    all->count = static_cast<size_t>(std::remove(all->entry, end, entry) - all->entry);
    hbs_list_unlink(pool, entry);
    hbs_pool_give(pool, entry);
}

} // namespace

void hbs_file_remove_ip_idx(const hbs_slot *slot) {
    uint32_t reference = hbs_slot_reference(slot);
    if (reference == HBS_DBPOS_NONE)
        return;
    const hbs_ip_entry *after = nullptr;
    for (const hbs_ip_entry *entry = first_entry(hbs_pool::ip); entry != nullptr; entry = after) {
        after = entry_after(hbs_pool::ip, entry);
        if (entry->dbpos != reference)
            continue;
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_remove_ip_idx : client found (pos:%p) (%s)",
                hbs_dbpos_for_log(reference), hbs_ip_entry_text(entry).text);
        free_entry(hbs_pool::ip, entry);
    }
}

void hbs_file_remove_dhcp_option_ip_idx(const hbs_slot *slot) {
    uint32_t reference = hbs_slot_reference(slot);
    if (reference == HBS_DBPOS_NONE)
        return;
    const hbs_ip_entry *after = nullptr;
    for (const hbs_ip_entry *entry = first_entry(hbs_pool::dhcp); entry != nullptr; entry = after) {
        after = entry_after(hbs_pool::dhcp, entry);
        if (entry->dbpos != reference)
            continue;
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_remove_dhcp_option_ip_idx : client found (pos:%p) (%s)",
                hbs_dbpos_for_log(reference), hbs_dhcp_entry_text(entry).text);
        free_entry(hbs_pool::dhcp, entry);
    }
}

namespace {

// Frees the entry with the key of `wanted`, and those of the client `reference` that differ from it in
// their network only.
void remove_by_address(hbs_pool pool, const hbs_ip_entry *wanted, uint32_t reference) {
    const hbs_ip_entry *after = nullptr;
    for (const hbs_ip_entry *entry = first_entry(pool); entry != nullptr; entry = after) {
        after = entry_after(pool, entry);
        bool same_network = entry->key[0] == wanted->key[0];
        bool own = reference != HBS_DBPOS_NONE && entry->dbpos == reference;
        if (entry->count != wanted->count || !(same_network || own))
            continue;
        if (std::equal(wanted->key + 1, wanted->key + wanted->count, entry->key + 1))
            free_entry(pool, entry);
    }
}

} // namespace

void hbs_file_remove_ipv6_entry(const hbs_client *client) {
    if (client == nullptr)
        return;
    const hbs_shm_hold hold;
    hbs_ip_entry wanted;
    hbs_file_client_to_ip_index(client->nwidx, HBS_IP_KIND_IPV6, client, &wanted);
    remove_by_address(hbs_pool::ip, &wanted, hbs_reference_of(client));
}

void hbs_file_remove_ll_entries(const hbs_client *client) {
    if (client == nullptr)
        return;
    const hbs_shm_hold hold;
    uint32_t reference = hbs_reference_of(client);
    hbs_ip_entry wanted;
    hbs_file_client_to_ip_index(client->nwidx, HBS_IP_KIND_LL, client, &wanted);
    remove_by_address(hbs_pool::ip, &wanted, reference);
    hbs_file_dhcp_option_client_to_ip_idx(client->nwidx, HBS_IP_KIND_LL, client, &wanted);
    remove_by_address(hbs_pool::dhcp, &wanted, reference);
}

void hbs_ip_index_clear() {
    ip_entries.count = dhcp_entries.count = 0;
    hbs_pool_give_all(hbs_pool::ip);
    hbs_pool_give_all(hbs_pool::dhcp);
}
