// The two sorted lists of the segment, IP index and DHCP-option IP index: keys, insertion, removal.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "store/slots.h"

enum hbs_ip_kind : int { HBS_IP_KIND_IPV4 = 0, HBS_IP_KIND_IPV6 = 1, HBS_IP_KIND_LL = 2 };

// Network number of a client for its keys and maps: 8-15 fold onto 0-7, and what lies above (no such
// network) is kept inside 0-7 too.
constexpr uint32_t hbs_fold_network(int nwidx) {
    return static_cast<uint32_t>(nwidx) & 7u;
}

// First key word of a network's entries, 200-207.
constexpr uint32_t hbs_network_key(int nwidx) {
    return HBS_NETWORK_KEY + hbs_fold_network(nwidx);
}

// Key order: the shorter key is smaller; keys of equal length compare word by word, unsigned. So every
// IPv4 entry sorts before every IPv6 entry, whatever the network. Returns <0, 0, >0.
int hbs_oid_compare(const uint32_t *a, uint32_t a_count, const uint32_t *b, uint32_t b_count);

// Fill an entry with a client's key and its dbpos. nwidx 0-15, 8-15 folded. A kind that the list does not
// know leaves an entry of no key words, which is never inserted. The DHCP-option list knows no global
// IPv6 addresses, and its keys have no length word.
void hbs_file_client_to_ip_index(int nwidx, int kind, const hbs_client *client, hbs_ip_entry *entry);
void hbs_file_dhcp_option_client_to_ip_idx(int nwidx, int kind, const hbs_client *client,
                                           hbs_ip_entry *entry);

// Sorted insertion of a filled entry. Nothing is inserted for a client that is not published.
void hostbase_insert_ipidx(const hbs_ip_entry *entry);
void hbs_file_dhcp_option_insert_ip_idx(const hbs_ip_entry *entry);

// Remove all entries of a client.
void hbs_file_remove_ip_idx(const hbs_slot *slot);
void hbs_file_remove_dhcp_option_ip_idx(const hbs_slot *slot);

// Remove the entries with the client's current global (link-local) address as key: called before that
// address changes. Lock. The link-local form also removes the DHCP-option entry. An entry of the client
// with this address goes also when it was made for another network.
void hbs_file_remove_ipv6_entry(const hbs_client *client);
void hbs_file_remove_ll_entries(const hbs_client *client);

// Gives every entry of both back. Callers hold the semaphore.
void hbs_ip_index_clear();
