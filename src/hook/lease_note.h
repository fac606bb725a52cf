// What a DHCP server tells of one lease, and the datagram that the daemon gets of it.
#pragma once

#include <cstddef>
#include <cstdint>

enum class hbs_note_kind { none, lease_v4, release_v4, lease_v6, release_v6 };

// Texts are the server's own: NUL-terminated, of any length and with any bytes.
struct hbs_lease_note {
    hbs_note_kind kind;
    bool has_mac;
    uint8_t mac[6];
    uint8_t address[16]; // an IPv4 address in the first four
    uint8_t ll[16];      // link-local address of a DHCPv6 client, :: = not known
    bool dynamic;        // as read always: no server says otherwise
    bool endless;
    uint32_t seconds; // left
    const char *host;
    const char *ifname;
    const char *oui;
    const char *serial_number;
    const char *product_class;
};

// For every note that a call of the hook tells of.
using hbs_note_visit = void (*)(hbs_lease_note *note, void *context);

// Where variables of the environment come from: getenv, or a test.
using hbs_environment = const char *(*)(const char *name);

// Reads what dnsmasq or Kea called the hook with. What is none of their lease actions visits nothing.
void hbs_notes_read(int count, const char *const argv[], hbs_environment environment, hbs_note_visit visit,
                    void *context);

// A lease that does not end, or not in less, is told with so many seconds: ten years.
constexpr uint32_t HBS_NOTE_ENDLESS_SECONDS = 315360000;

// Writes the datagram; now: seconds since the epoch. Returns its length, 0 when there is nothing to tell.
size_t hbs_note_datagram(const hbs_lease_note *note, int64_t now, uint8_t *buffer, size_t size);
