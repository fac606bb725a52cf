// Datagrams of the command socket as what the handlers are asked with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <hbs_msg.h>

#include "events/device_lists.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "events/static_lease.h"
#include "files/rule_files.h"

// A message out of the receive buffer (HBS_MSG_MAX bytes), which is aligned for no field.
template <typename Message> Message hbs_message_of(const uint8_t *buffer) {
    static_assert(sizeof(Message) <= HBS_MSG_MAX);
    Message message;
    memcpy(&message, buffer, sizeof(message));
    return message;
}

// Senders may leave a text without its NUL: it then ends with its field.
template <size_t size> const char *hbs_text_of(char (&field)[size]) {
    field[size - 1] = '\0';
    return field;
}

// The requests point into the message, whose texts are ended here.
// hbs_static_lease_of returns false (request undefined) for a family that is neither IPv4 nor IPv6.
bool hbs_static_lease_of(hbs_msg_set_static_lease *message, hbs_static_lease_request *request);
hbs_filter_request hbs_filter_of(hbs_msg_filter *message);
hbs_rule hbs_rule_of(const hbs_msg_filter *message);
hbs_dhcpv4_lease hbs_dhcpv4_lease_of(hbs_msg_dhcpv4 *message);
hbs_dhcpv6_lease hbs_dhcpv6_lease_of(hbs_msg_dhcpv6 *message);
