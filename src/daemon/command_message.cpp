#include "daemon/command_message.h"

#include <cstddef>
#include <cstring>

namespace {

template <size_t Size> void end_text(char (&field)[Size]) {
    field[Size - 1] = '\0';
}

void end_lease_texts(hbs_msg_dhcpv4 *message) {
    end_text(message->host);
    end_text(message->ifname);
    end_text(message->oui);
    end_text(message->serial_number);
    end_text(message->product_class);
    end_text(message->lease_file);
}

void end_lease_texts(hbs_msg_dhcpv6 *message) {
    end_text(message->host);
    end_text(message->oui);
    end_text(message->serial_number);
    end_text(message->product_class);
    end_text(message->lease_file);
}

void end_filter_texts(hbs_msg_filter *message) {
    end_text(message->comment);
    end_text(message->description);
    end_text(message->keyword_list);
    end_text(message->domain_list);
}

void end_texts(uint8_t code, hbs_datagram *datagram) {
    switch (code) {
    case HBS_CMD_SET_STATIC_LEASE:
        end_text(datagram->set_static_lease.comment);
        end_text(datagram->set_static_lease.host);
        return;
    case HBS_CMD_SET_TRUSTED:
        end_text(datagram->trusted.comment);
        return;
    case HBS_CMD_SET_MACFILTER:
    case HBS_CMD_CLR_MACFILTER:
    case HBS_CMD_MOD_MACFILTER:
        end_filter_texts(&datagram->filter);
        return;
    case HBS_EVENT_WIFI_ASSOC:
    case HBS_EVENT_WIFI_DISASSOC:
        end_text(datagram->wifi_assoc.mac_text);
        return;
    case HBS_EVENT_DHCPV4_LEASE:
        end_lease_texts(&datagram->dhcpv4);
        return;
    case HBS_EVENT_DHCPV6_LEASE:
        end_lease_texts(&datagram->dhcpv6);
        return;
    case HBS_CMD_SET_COMMENT_HOST:
        end_text(datagram->comment_host.comment);
        end_text(datagram->comment_host.host);
        return;
    default: // the others bear no text
        return;
    }
}

template <size_t Size> void copy_text(char (&into)[Size], const char (&from)[Size]) {
    memcpy(into, from, Size);
}

} // namespace

hbs_datagram hbs_datagram_read(const uint8_t *buffer) {
    static_assert(sizeof(hbs_datagram) <= HBS_MSG_MAX);
    hbs_datagram datagram;
    memcpy(&datagram, buffer, sizeof datagram);
    end_texts(buffer[0], &datagram);
    return datagram;
}

bool hbs_static_lease_of(const hbs_msg_set_static_lease *message, hbs_static_lease_request *request) {
    *request = {};
    if (message->family == HBS_FAMILY_IPV4)
        memcpy(request->address, message->ipv4, sizeof message->ipv4);
    else if (message->family == HBS_FAMILY_IPV6)
        memcpy(request->address, message->ipv6, sizeof message->ipv6);
    else
        return false;
    request->family = message->family;
    request->nwidx = static_cast<uint8_t>(message->nwidx);
    memcpy(request->mac, message->mac, sizeof request->mac);
    request->comment = message->comment;
    request->host = message->host;
    return true;
}

hbs_filter_request hbs_filter_of(const hbs_msg_filter *message) {
    hbs_filter_request request{};
    request.type = message->type;
    memcpy(request.mac, message->mac, sizeof request.mac);
    const uint32_t values[] = {message->value1, message->value2, message->value3,
                               message->value4, message->value5, message->value6};
    static_assert(sizeof values == sizeof request.value);
    memcpy(request.value, values, sizeof values);
    request.rule_word = message->rule_word;
    request.comment = message->comment;
    request.description = message->description;
    request.keyword_list = message->keyword_list;
    request.domain_list = message->domain_list;
    request.filter_word = message->filter_word;
    return request;
}

hbs_dhcpv4_lease hbs_dhcpv4_lease_of(const hbs_msg_dhcpv4 *message) {
    hbs_dhcpv4_lease lease{};
    memcpy(lease.mac, message->mac, sizeof lease.mac);
    memcpy(lease.ipv4, message->ipv4, sizeof lease.ipv4);
    lease.dynamic = message->dynamic != 0;
    lease.seconds = message->seconds;
    copy_text(lease.host, message->host);
    copy_text(lease.ifname, message->ifname);
    copy_text(lease.oui, message->oui);
    copy_text(lease.serial_number, message->serial_number);
    copy_text(lease.product_class, message->product_class);
    copy_text(lease.lease_file, message->lease_file);
    lease.nwidx = static_cast<int32_t>(message->nwidx); // HBS_UNKNOWN_U32 becomes -1
    lease.adapter_type = static_cast<int32_t>(message->adapter_type);
    return lease;
}

hbs_dhcpv6_lease hbs_dhcpv6_lease_of(const hbs_msg_dhcpv6 *message) {
    hbs_dhcpv6_lease lease{};
    memcpy(lease.ll, message->ll, sizeof lease.ll);
    memcpy(lease.ipv6, message->ipv6, sizeof lease.ipv6);
    lease.lease_end = message->lease_end;
    copy_text(lease.host, message->host);
    copy_text(lease.oui, message->oui);
    copy_text(lease.serial_number, message->serial_number);
    copy_text(lease.product_class, message->product_class);
    copy_text(lease.lease_file, message->lease_file);
    return lease;
}
