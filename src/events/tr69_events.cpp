// Builds the event payloads that tell the TR-069 agent about hosts that come, change and go.
#include "events/tr69_events.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/counters.h"
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

void send_event(int code, const hbs_tr69_body *body) {
    hbs_tr69_payload payload{};
    payload.one = 1;
    payload.code = static_cast<uint8_t>(code);
    payload.body = *body;
    hbs_count(HBS_COUNT_AGENT_EVENTS);
    // An agent that refuses an event gets the next one all the same.
    (void)quarn_tr69SendEvent(reinterpret_cast<const uint8_t *>(&payload));
}

void put_mac(hbs_tr69_body *body, const uint8_t mac[6]) {
    hbs_copy_text(body->mac, sizeof(body->mac), hbs_mac_to_text_upper(mac).text);
}

void put_ipv4(hbs_tr69_body *body, const uint8_t ipv4[4]) {
    hbs_copy_text(body->ipv4, sizeof(body->ipv4), hbs_ipv4_to_text(ipv4).text);
}

void put_ipv6(hbs_tr69_body *body, const uint8_t ipv6[16]) {
    hbs_copy_text(body->ipv6, sizeof(body->ipv6), hbs_ipv6_to_text(ipv6).text);
}

void put_ll(hbs_tr69_body *body, const uint8_t ll[16]) {
    hbs_copy_text(body->ll, sizeof(body->ll), hbs_ipv6_to_text(ll).text);
}

// What readers see; a client that is not published yet leaves these fields zero.
void put_published(hbs_tr69_body *body, const hbs_client *client) {
    const hbs_list_hold hold;
    const hbs_client *published = hbs_published_of(client);
    if (published == nullptr)
        return;
    body->adapter = published->adapter_type;
    hbs_copy_text(body->host, sizeof(body->host), published->host);
    hbs_copy_text(body->oui, sizeof(body->oui), published->oui);
    hbs_copy_text(body->serial_number, sizeof(body->serial_number), published->serial_number);
    hbs_copy_text(body->product_class, sizeof(body->product_class), published->product_class);
}

} // namespace

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

    put_published(&body, client);
    send_event(code, &body);
    return 0;
}

namespace {

void fill_from_client(hbs_tr69_body *body, const hbs_client *client, unsigned fields) {
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

} // namespace

int hbs_send_tr69_event(int code, const hbs_client *record) {
    const auto *event = std::find_if(std::begin(record_events), std::end(record_events),
                                     [code](const record_event &known) { return known.code == code; });
    if (record == nullptr || event == std::end(record_events))
        return -1;
    hbs_tr69_body body{};
    {
        const hbs_list_hold hold; // the command thread announces outside the lock, and the record needs it
        fill_from_client(&body, record, event->fields);
    }
    send_event(code, &body);
    return 0;
}

void hbs_send_tr69_static_lease_set(const hbs_msg_set_static_lease *datagram) {
    hbs_tr69_body body{};
    put_mac(&body, datagram->mac);
    body.number = datagram->nwidx;
    body.described = 1;
    put_ipv4(&body, datagram->ipv4);
    hbs_copy_text(body.host, sizeof(body.host), datagram->host);
    send_event(HBS_TR69_STATIC_LEASE_SET, &body);
}

void hbs_send_tr69_static_lease_cleared(const hbs_msg_set_static_lease *datagram) {
    hbs_tr69_body body{};
    {
        const hbs_list_hold hold; // this event is sent before the command's own look-up
        if (const hbs_client *client = hbs_find_by_ipv4(datagram->ipv4); client != nullptr) {
            put_mac(&body, client->mac);
            body.number = datagram->nwidx;
            put_ipv4(&body, datagram->ipv4);
        }
    }
    send_event(HBS_TR69_STATIC_LEASE_CLEARED, &body);
}
