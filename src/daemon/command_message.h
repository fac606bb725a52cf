// Datagrams of the command socket: decoded once, on their way in, and as what the handlers are asked with.
#pragma once

#include <cstdint>

#include <hbs_msg.h>

#include "events/device_lists.h"
#include "events/static_lease.h"
#include "files/lease.h"

// A datagram, whatever its code: which member counts follows from the code, and bytes that a short one leaves
// over are its predecessor's. All are packed and begin with the code, so any may be read.
union hbs_datagram {
    hbs_msg_route_mode route_mode;                 // 1
    hbs_msg_set_static_lease set_static_lease;     // 2; and 3 for its TR-069 event
    hbs_msg_clr_static_lease clr_static_lease;     // 3
    hbs_msg_set_internal_lease set_internal_lease; // 4
    hbs_msg_trusted trusted;                       // 5, 6
    hbs_msg_filter filter;                         // 7, 8, 11, 12, 13
    hbs_msg_server server;                         // 101
    hbs_msg_subnet subnet;                         // 102
    hbs_msg_wifi_assoc wifi_assoc;                 // 103, 104
    hbs_msg_dhcpv4 dhcpv4;                         // 105, 107
    hbs_msg_dhcpv6 dhcpv6;                         // 106
    hbs_msg_dhcpv6_release dhcpv6_release;         // 108
    hbs_msg_dhcpv4_release dhcpv4_release;         // 109
    hbs_msg_wifi_info wifi_info;                   // 110
    hbs_msg_comment_host comment_host;             // 111
};

// Reads the receive buffer (HBS_MSG_MAX bytes, aligned for no field). Senders may leave a text without its
// NUL: it then ends with its field.
hbs_datagram hbs_datagram_read(const uint8_t *buffer);

// The requests point into the datagram's texts.
// hbs_static_lease_of returns false (request undefined) for a family that is neither IPv4 nor IPv6.
bool hbs_static_lease_of(const hbs_msg_set_static_lease *message, hbs_static_lease_request *request);
hbs_filter_request hbs_filter_of(const hbs_msg_filter *message);
hbs_dhcpv4_lease hbs_dhcpv4_lease_of(const hbs_msg_dhcpv4 *message);
hbs_dhcpv6_lease hbs_dhcpv6_lease_of(const hbs_msg_dhcpv6 *message);
