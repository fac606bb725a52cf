#include "daemon/command_message.h"

bool hbs_static_lease_of(hbs_msg_set_static_lease *message, hbs_static_lease_request *request) {
    *request = {};
    if (message->family == HBS_FAMILY_IPV4)
        memcpy(request->address, message->ipv4, sizeof(message->ipv4));
    else if (message->family == HBS_FAMILY_IPV6)
        memcpy(request->address, message->ipv6, sizeof(message->ipv6));
    else
        return false;
    request->family = message->family;
    request->nwidx = static_cast<uint8_t>(message->nwidx);
    memcpy(request->mac, message->mac, sizeof(request->mac));
    request->comment = hbs_text_of(message->comment);
    request->host = hbs_text_of(message->host);
    return true;
}

hbs_filter_request hbs_filter_of(hbs_msg_filter *message) {
    hbs_filter_request request{};
    request.type = message->type;
    memcpy(request.mac, message->mac, sizeof(request.mac));
    const hbs_rule rule = hbs_rule_of(message);
    memcpy(request.value, rule.value, sizeof(request.value));
    request.comment = hbs_text_of(message->comment);
    request.description = hbs_text_of(message->description);
    request.keyword_list = hbs_text_of(message->keyword_list);
    request.domain_list = hbs_text_of(message->domain_list);
    request.filter_word = message->filter_word;
    return request;
}

hbs_rule hbs_rule_of(const hbs_msg_filter *message) {
    return {{message->value1, message->value2, message->value3, message->value4, message->value5,
             message->value6}};
}

hbs_dhcpv4_lease hbs_dhcpv4_lease_of(hbs_msg_dhcpv4 *message) {
    hbs_dhcpv4_lease lease{};
    memcpy(lease.mac, message->mac, sizeof(lease.mac));
    memcpy(lease.ipv4, message->ipv4, sizeof(lease.ipv4));
    lease.dynamic = message->dynamic != 0;
    lease.seconds = message->seconds;
    lease.host = hbs_text_of(message->host);
    lease.ifname = hbs_text_of(message->ifname);
    lease.oui = hbs_text_of(message->oui);
    lease.serial_number = hbs_text_of(message->serial_number);
    lease.product_class = hbs_text_of(message->product_class);
    lease.lease_file = hbs_text_of(message->lease_file);
    lease.nwidx = static_cast<int32_t>(message->nwidx); // HBS_UNKNOWN_U32 becomes -1
    lease.adapter_type = static_cast<int32_t>(message->adapter_type);
    return lease;
}

hbs_dhcpv6_lease hbs_dhcpv6_lease_of(hbs_msg_dhcpv6 *message) {
    hbs_dhcpv6_lease lease{};
    memcpy(lease.ll, message->ll, sizeof(lease.ll));
    memcpy(lease.ipv6, message->ipv6, sizeof(lease.ipv6));
    lease.lease_end = message->lease_end;
    lease.host = message->host;
    (void)hbs_text_of(message->host);
    lease.oui = hbs_text_of(message->oui);
    lease.serial_number = hbs_text_of(message->serial_number);
    lease.product_class = hbs_text_of(message->product_class);
    lease.lease_file = hbs_text_of(message->lease_file);
    return lease;
}
