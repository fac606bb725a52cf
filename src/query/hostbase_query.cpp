// The calls of libhbs_query.
#include <cstring>

#include <hostbase_query.h>

#include "query/client_search.h"
#include "query/list_copy.h"

const char *hostbase_strerror(int result) {
    switch (result) {
    case HOSTBASE_OK:
        return "no error";
    case HOSTBASE_NOT_FOUND:
        return "no such client or entry";
    case HOSTBASE_NO_SEGMENT:
        return "the client database is not there: gw_hostbase has not run since the system started";
    case HOSTBASE_BUSY:
        return "the client database stayed locked for too long";
    case HOSTBASE_UNSTABLE:
        return "the client database kept changing or its links are damaged";
    case HOSTBASE_BAD_ARGUMENT:
        return "bad argument";
    case HOSTBASE_NO_PERMISSION:
        return "no permission to read the client database or to use its semaphore";
    case HOSTBASE_NO_MEMORY:
        return "not enough memory";
    }
    return "unknown error";
}

namespace {

int find(hbs_query_key key, const uint8_t *bytes, hbs_client *client) {
    if (bytes == nullptr || client == nullptr)
        return HOSTBASE_BAD_ARGUMENT;
    return hbs_query_find(key, bytes, client);
}

// Texts end inside their field whatever the record holds.
int get_text(const uint8_t *mac, size_t offset, char *text, size_t size) {
    hbs_client client;
    int result = text == nullptr ? int{HOSTBASE_BAD_ARGUMENT} : find(HBS_QUERY_BY_MAC, mac, &client);
    if (result == HOSTBASE_OK) {
        memcpy(text, reinterpret_cast<const char *>(&client) + offset, size);
        text[size - 1] = '\0';
    }
    return result;
}

int get_number(const uint8_t *mac, uint8_t hbs_client::*field, uint32_t add, uint32_t *number) {
    hbs_client client;
    int result = number == nullptr ? int{HOSTBASE_BAD_ARGUMENT} : find(HBS_QUERY_BY_MAC, mac, &client);
    if (result == HOSTBASE_OK)
        *number = client.*field + add;
    return result;
}

} // namespace

int hostbase_get_adapter_type(const uint8_t mac[6], uint32_t *adapter_type) {
    return get_number(mac, &hbs_client::adapter_type, 0, adapter_type);
}

int hostbase_get_host(const uint8_t mac[6], char host[HBS_HOST_SIZE]) {
    return get_text(mac, offsetof(hbs_client, host), host, HBS_HOST_SIZE);
}

int hostbase_get_manuf_oui(const uint8_t mac[6], char oui[HBS_OUI_SIZE]) {
    return get_text(mac, offsetof(hbs_client, oui), oui, HBS_OUI_SIZE);
}

int hostbase_get_ser_num(const uint8_t mac[6], char serial_number[HBS_SERIAL_SIZE]) {
    return get_text(mac, offsetof(hbs_client, serial_number), serial_number, HBS_SERIAL_SIZE);
}

int hostbase_get_prod_class(const uint8_t mac[6], char product_class[HBS_PRODUCT_SIZE]) {
    return get_text(mac, offsetof(hbs_client, product_class), product_class, HBS_PRODUCT_SIZE);
}

int hostbase_get_SSID(const uint8_t mac[6], uint32_t *ssid) {
    return get_number(mac, &hbs_client::wifi_index, 1, ssid);
}

int hostbase_find_by_mac(const uint8_t mac[6], hbs_client *client) {
    return find(HBS_QUERY_BY_MAC, mac, client);
}

int hostbase_find_by_ipv4(const uint8_t ipv4[4], hbs_client *client) {
    return find(HBS_QUERY_BY_IPV4, ipv4, client);
}

int hostbase_find_by_ipv6(const uint8_t ipv6[16], hbs_client *client) {
    return find(HBS_QUERY_BY_IPV6, ipv6, client);
}

namespace {

int get_list(hbs_pool pool, void *elements, size_t capacity, size_t *count) {
    if (count == nullptr || (elements == nullptr && capacity != 0))
        return HOSTBASE_BAD_ARGUMENT;
    return hbs_query_copy_list(pool, elements, capacity, count);
}

} // namespace

int hostbase_get_clients(hbs_client *clients, size_t capacity, size_t *count) {
    return get_list(hbs_pool::clients, clients, capacity, count);
}

int hostbase_get_ip_index(hbs_ip_entry *entries, size_t capacity, size_t *count) {
    return get_list(hbs_pool::ip, entries, capacity, count);
}

int hostbase_get_if_index(hbs_if_entry *entries, size_t capacity, size_t *count) {
    return get_list(hbs_pool::interface, entries, capacity, count);
}

int hostbase_get_dhcp_index(hbs_ip_entry *entries, size_t capacity, size_t *count) {
    return get_list(hbs_pool::dhcp, entries, capacity, count);
}

int hostbase_get_rule_index(hbs_rule_entry *entries, size_t capacity, size_t *count) {
    return get_list(hbs_pool::rule, entries, capacity, count);
}

int hostbase_get_pri_index(hbs_pri_entry *entries, size_t capacity, size_t *count) {
    return get_list(hbs_pool::primary, entries, capacity, count);
}

int hostbase_snapshot(hbs_db *db) {
    return db == nullptr ? int{HOSTBASE_BAD_ARGUMENT} : hbs_query_copy_all(db);
}
