// Builds the event payloads that tell the TR-069 agent about hosts that come, change and go.
#include "events/tr69_events.h"

#include <cstring>

#include <hbs_msg.h>

#include "base/state.h"
#include "base/text.h"
#include "events/tr69_payload.h"
#include "store/clients.h"
#include "store/published.h"

namespace {
// What an event about a client record carries beside MAC, OUI, serial number and product class.
enum body_fields : unsigned {
    FIELD_NETWORK = 1,
    FIELD_ADAPTER = 2,
    FIELD_DESCRIBED = 4,
    FIELD_IPV4 = 8,
    FIELD_IPV6 = 16,
    FIELD_HOST = 32
};

struct record_event {
    int code;
    unsigned fields;
};

constexpr unsigned FIELDS_LEASE = FIELD_NETWORK | FIELD_ADAPTER | FIELD_DESCRIBED | FIELD_HOST;

constexpr record_event record_events[] = {
    {HBS_TR69_DHCPV4_LEASE, FIELDS_LEASE | FIELD_IPV4},
    {HBS_TR69_DHCPV6_LEASE, FIELDS_LEASE | FIELD_IPV6},
    {HBS_TR69_DHCPV4_INFO, 0},
    {HBS_TR69_DHCPV6_RELEASE, 0},
    {HBS_TR69_LEASE_EXPIRED, FIELD_ADAPTER},
    {HBS_TR69_NEIGHBOUR_GONE, FIELD_ADAPTER},
};
} // namespace

static void send_event(int code, const hbs_tr69_body *body) {
    hbs_tr69_payload payload{};
    payload.one = 1;
    payload.code = static_cast<uint8_t>(code);
    payload.body = *body;
    uint8_t bytes[TR69_EVENT_SIZE];
    std::memcpy(bytes, &payload, sizeof(bytes));
    (void)quarn_tr69SendEvent(bytes); // an agent that refuses an event gets the next one all the same
}

static void put_mac(hbs_tr69_body *body, const uint8_t mac[6]) {
    hbs_copy_text(body->mac, sizeof(body->mac), hbs_mac_to_text_upper(mac).text);
}

static void put_ipv4(hbs_tr69_body *body, const uint8_t ipv4[4]) {
    hbs_copy_text(body->ipv4, sizeof(body->ipv4), hbs_ipv4_to_text(ipv4).text);
}

static void put_ipv6(hbs_tr69_body *body, const uint8_t ipv6[16]) {
    hbs_copy_text(body->ipv6, sizeof(body->ipv6), hbs_ipv6_to_text(ipv6).text);
}

static void put_ll(hbs_tr69_body *body, const uint8_t ll[16]) {
    hbs_copy_text(body->ll, sizeof(body->ll), hbs_ipv6_to_text(ll).text);
}

// What readers see; a client that is not published yet leaves these fields zero.
static void put_published(hbs_tr69_body *body, const uint8_t mac[6]) {
    const hbs_list_hold hold;
    const hbs_client *published = hbs_published_by_mac(mac);
    if (published == nullptr)
        return;
    body->adapter = published->adapter_type;
    hbs_copy_text(body->host, sizeof(body->host), published->host);
    hbs_copy_text(body->oui, sizeof(body->oui), published->oui);
    hbs_copy_text(body->serial_number, sizeof(body->serial_number), published->serial_number);
    hbs_copy_text(body->product_class, sizeof(body->product_class), published->product_class);
}

int hbs_send_tr69_client_event(int code, const hbs_client *client) {
    if (client == nullptr)
        return -1;
    hbs_tr69_body body{};
    put_mac(&body, client->mac);
    body.number = client->nwidx;
    if (!hbs_ipv4_is_zero(client->ipv4))
        put_ipv4(&body, client->ipv4);
    if (hbs_client_has_ipv6(client))
        put_ipv6(&body, client->ipv6);
    if (hbs_client_has_ll(client))
        put_ll(&body, client->ll);
    body.described = client->status_time[0] != 0;

    put_published(&body, client->mac);
    send_event(code, &body);
    return 0;
}

static uint16_t command_value(const uint8_t *command) {
    uint16_t value;
    std::memcpy(&value, command + offsetof(hbs_msg_set_static_lease, nwidx), sizeof(value));
    return value;
}

static const uint8_t *command_ipv4(const uint8_t *command) {
    return command + offsetof(hbs_msg_set_static_lease, ipv4);
}

static void fill_lease_set(hbs_tr69_body *body, const uint8_t *command) {
    put_mac(body, command + offsetof(hbs_msg_set_static_lease, mac));
    body->number = command_value(command);
    body->described = 1;
    put_ipv4(body, command_ipv4(command));
    // The sender's text need not end inside its field.
    char host[HBS_HOST_SIZE + 1] = {};
    std::memcpy(host, command + offsetof(hbs_msg_set_static_lease, host), HBS_HOST_SIZE);
    hbs_copy_text(body->host, sizeof(body->host), host);
}

static void fill_lease_cleared(hbs_tr69_body *body, const uint8_t *command) {
    const hbs_client *client = hbs_find_by_ipv4(command_ipv4(command));
    if (client == nullptr)
        return;
    put_mac(body, client->mac);
    body->number = command_value(command);
    put_ipv4(body, command_ipv4(command));
}

static void fill_from_client(hbs_tr69_body *body, const hbs_client *client, unsigned fields) {
    put_mac(body, client->mac);
    hbs_copy_text(body->oui, sizeof(body->oui), client->oui);
    hbs_copy_text(body->serial_number, sizeof(body->serial_number), client->serial_number);
    hbs_copy_text(body->product_class, sizeof(body->product_class), client->product_class);
    if (fields & FIELD_NETWORK)
        body->number = client->nwidx;
    if (fields & FIELD_ADAPTER)
        body->adapter = client->adapter_type;
    if (fields & FIELD_DESCRIBED)
        body->described = 1;
    if (fields & FIELD_IPV4)
        put_ipv4(body, client->ipv4);
    if (fields & FIELD_IPV6) {
        put_ipv6(body, client->ipv6);
        put_ll(body, client->ll);
    }
    if (fields & FIELD_HOST)
        hbs_copy_text(body->host, sizeof(body->host), client->host);
}

// Returns whether the code is known and the body was filled.
static bool fill_body(hbs_tr69_body *body, int code, const void *record) {
    // The command thread announces outside the lock, and the look-up and the record need it.
    const hbs_list_hold hold;
    if (code == HBS_TR69_STATIC_LEASE_SET || code == HBS_TR69_STATIC_LEASE_CLEARED) {
        const uint8_t *command = static_cast<const uint8_t *>(record);
        if (code == HBS_TR69_STATIC_LEASE_SET)
            fill_lease_set(body, command);
        else
            fill_lease_cleared(body, command);
        return true;
    }
    for (const record_event &event : record_events) {
        if (event.code != code)
            continue;
        fill_from_client(body, static_cast<const hbs_client *>(record), event.fields);
        return true;
    }
    return false;
}

int hbs_send_tr69_event(int code, const void *record) {
    hbs_tr69_body body{};
    if (record == nullptr || !fill_body(&body, code, record))
        return -1;
    send_event(code, &body);
    return 0;
}
