// Events to the TR-069 agent: a fixed 524-byte payload.
#pragma once

#include <cstdint>

#include <hbs_db.h>
#include <hbs_msg.h>

enum hbs_tr69_code : int {
    HBS_TR69_STATIC_LEASE_SET = 1,
    HBS_TR69_STATIC_LEASE_CLEARED = 2,
    HBS_TR69_DHCPV4_LEASE = 101,
    HBS_TR69_DHCPV6_LEASE = 102,
    HBS_TR69_DHCPV4_INFO = 103,
    HBS_TR69_DHCPV6_RELEASE = 104,
    HBS_TR69_LEASE_EXPIRED = 105,
    HBS_TR69_IPV4_NEIGHBOUR = 106,
    HBS_TR69_IPV6_NEIGHBOUR = 107,
    HBS_TR69_NEIGHBOUR_GONE = 108
};

// Codes 106-108, with what readers see of the client. 0, or -1 for no client.
int hbs_send_tr69_client_event(int code, const hbs_client *client);

// Codes 101-105 and 108, with what the record holds. 0, or -1 for no record or another code.
int hbs_send_tr69_event(int code, const hbs_client *record);

// Codes 1 and 2, with the datagram that set or cleared the lease, its texts ended (hbs_datagram_read). The
// second reads the datagram that clears with the layout of the one that sets: the address stands at the same
// place, the number is what the sender has left in two bytes of no meaning. Kept, as the agent knows it so.
void hbs_send_tr69_static_lease_set(const hbs_msg_set_static_lease *datagram);
void hbs_send_tr69_static_lease_cleared(const hbs_msg_set_static_lease *datagram);
