#include "store/merge.h"

#include <cstddef>
#include <cstring>

#include "base/text.h"
#include "store/clients.h"
#include "store/publish.h"
#include "store/slots.h"

namespace {

template <size_t Size>
void merge_text(hbs_client *into, const hbs_client *from, char (hbs_client::*field)[Size]) {
    if ((into->*field)[0] != '\0' || (from->*field)[0] == '\0')
        return;
    hbs_copy_text(into->*field, Size, from->*field);
    hbs_set_flags(into, 0, HBS_CHANGED);
}

void merge_addresses(hbs_client *into, const hbs_client *from) {
    if (hbs_client_has_ipv6(from) && !hbs_client_has_ipv6(into)) {
        memcpy(into->ipv6, from->ipv6, sizeof into->ipv6);
        hbs_set_flags(into, 0, HBS_CHANGED_MERGED);
    }
    if (hbs_client_has_ll(from) && !hbs_client_has_ll(into)) {
        memcpy(into->ll, from->ll, sizeof into->ll);
        hbs_set_flags(into, 0, HBS_CHANGED);
    }
    if (!hbs_ipv4_is_zero(from->ipv4) && hbs_ipv4_is_zero(into->ipv4)) {
        memcpy(into->ipv4, from->ipv4, sizeof into->ipv4);
        hbs_set_flags(into, 0, HBS_CHANGED_MERGED);
    }
}

void merge(hbs_client *into, hbs_client *from) {
    hbs_set_flags(into, from->trust, from->flags);
    if (hbs_has_commanded_lease(from))
        hbs_set_commanded_lease(into, true);
    merge_addresses(into, from);
    merge_text(into, from, &hbs_client::host);
    merge_text(into, from, &hbs_client::comment);
    merge_text(into, from, &hbs_client::device_name);
    merge_text(into, from, &hbs_client::oui);
    merge_text(into, from, &hbs_client::serial_number);
    merge_text(into, from, &hbs_client::product_class);
}

} // namespace

hbs_client *hbs_set_mac(hbs_client *client, const uint8_t *mac) {
    if (mac == nullptr || !hbs_is_nomac(client))
        return client;
    hbs_client *existing = hbs_find_by_mac(mac);
    if (existing == nullptr) {
        memcpy(client->mac, mac, sizeof client->mac);
        hbs_client_list_move(client);
        hbs_set_flags(client, 0, HBS_CHANGED);
        return client;
    }
    merge(existing, client);
    hbs_client_merge_away(client, existing);
    if (hbs_slot_of(existing) == nullptr) // neither of the two had one
        hbs_publish(existing);
    return existing;
}
