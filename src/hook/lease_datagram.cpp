// A note as the command socket takes it.
#include <cstring>

#include <hbs_msg.h>

#include "hook/lease_note.h"

namespace {

// Cut so that its NUL stays inside; null is empty.
void put_text(char *field, size_t size, const char *text) {
    const size_t length = text != nullptr ? strnlen(text, size - 1) : 0;
    memcpy(field, text != nullptr ? text : "", length);
}

// The daemon gives a lease of no seconds no end, and one of very many an end before its time.
uint32_t seconds_of(const hbs_lease_note *note) {
    if (note->endless || note->seconds > HBS_NOTE_ENDLESS_SECONDS)
        return HBS_NOTE_ENDLESS_SECONDS;
    return note->seconds > 0 ? note->seconds : 1;
}

// 0 would be a lease without end.
uint32_t end_of(const hbs_lease_note *note, int64_t now) {
    const int64_t end = now + seconds_of(note);
    return end > UINT32_MAX ? UINT32_MAX : end < 1 ? 1 : static_cast<uint32_t>(end);
}

template <typename Message> size_t put(const Message &message, uint8_t *buffer, size_t size) {
    if (sizeof message > size)
        return 0;
    memcpy(buffer, &message, sizeof message);
    return sizeof message;
}

size_t lease_v4(const hbs_lease_note *note, uint8_t *buffer, size_t size) {
    hbs_msg_dhcpv4 message = {};
    message.code = HBS_EVENT_DHCPV4_LEASE;
    memcpy(message.mac, note->mac, sizeof message.mac);
    memcpy(message.ipv4, note->address, sizeof message.ipv4);
    message.dynamic = note->dynamic ? 1 : 0;
    message.seconds = seconds_of(note);
    put_text(message.host, sizeof message.host, note->host);
    put_text(message.ifname, sizeof message.ifname, note->ifname);
    put_text(message.oui, sizeof message.oui, note->oui);
    put_text(message.serial_number, sizeof message.serial_number, note->serial_number);
    put_text(message.product_class, sizeof message.product_class, note->product_class);
    message.nwidx = HBS_UNKNOWN_U32;
    message.adapter_type = HBS_UNKNOWN_U32;
    return put(message, buffer, size);
}

// The daemon takes no release that speaks of no time.
size_t release_v4(const hbs_lease_note *note, uint8_t *buffer, size_t size) {
    hbs_msg_dhcpv4_release message = {};
    message.code = HBS_EVENT_DHCPV4_RELEASE;
    memcpy(message.mac, note->mac, sizeof message.mac);
    memcpy(message.ipv4, note->address, sizeof message.ipv4);
    message.dynamic = 1;
    message.seconds = 1;
    return put(message, buffer, size);
}

size_t lease_v6(const hbs_lease_note *note, int64_t now, uint8_t *buffer, size_t size) {
    hbs_msg_dhcpv6 message = {};
    message.code = HBS_EVENT_DHCPV6_LEASE;
    memcpy(message.ll, note->ll, sizeof message.ll);
    memcpy(message.ipv6, note->address, sizeof message.ipv6);
    message.lease_end = end_of(note, now);
    put_text(message.host, sizeof message.host, note->host);
    put_text(message.oui, sizeof message.oui, note->oui);
    put_text(message.serial_number, sizeof message.serial_number, note->serial_number);
    put_text(message.product_class, sizeof message.product_class, note->product_class);
    return put(message, buffer, size);
}

// The leased address alone says whose lease ends: by the link-local one the daemon would take away what the
// device has by now.
size_t release_v6(const hbs_lease_note *note, uint8_t *buffer, size_t size) {
    hbs_msg_dhcpv6_release message = {};
    message.code = HBS_EVENT_DHCPV6_RELEASE;
    memcpy(message.ipv6, note->address, sizeof message.ipv6);
    return put(message, buffer, size);
}

} // namespace

size_t hbs_note_datagram(const hbs_lease_note *note, int64_t now, uint8_t *buffer, size_t size) {
    switch (note->kind) {
    case hbs_note_kind::lease_v4:
        return lease_v4(note, buffer, size);
    case hbs_note_kind::release_v4:
        return release_v4(note, buffer, size);
    case hbs_note_kind::lease_v6:
        return lease_v6(note, now, buffer, size);
    case hbs_note_kind::release_v6:
        return release_v6(note, buffer, size);
    case hbs_note_kind::none:
        return 0;
    }
    return 0;
}
