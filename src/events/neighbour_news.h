// What a look at the whole neighbour table adds to what is already known. After notifications were lost the
// table shows how each address stands, not what happened: most of it has been told before, and some of it was
// overtaken by what came another way. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

struct hbs_neigh_entry {
    int family;             // AF_INET or AF_INET6
    uint16_t state;         // NUD_...
    const uint8_t *mac;     // 6 bytes, null = none
    const uint8_t *address; // 4 or 16 bytes
    int64_t changed_ms;     // when the entry came to this state or MAC (hbs_monotonic_milliseconds)
};

// Keeps what the handlers were told of an address, for the addresses that were told of last. Addresses of
// other families than AF_INET and AF_INET6 are not kept.
void hbs_neigh_note(uint16_t state, const uint8_t *mac, int family, const uint8_t *address);

// What was told of a device counts as not told: the handlers could not take it. That one of its addresses is
// gone stays told.
void hbs_neigh_forget(const uint8_t mac[6]);

// Whether the device of an entry was told of since it was forgotten, with an address that competes with the
// entry's for the same field of the record. The entry has a MAC.
bool hbs_neigh_was_told(const hbs_neigh_entry *entry);

// Whether the handler of the entry's state has to hear of it:
//   REACHABLE  an unknown device; a client with another address; one that does not count as reachable,
//              unless it went off line after the entry changed
//   STALE      an unknown device; a client with another address; a wired client on line whose time is not
//              running yet
//   gone       (DELAY, FAILED) a client that holds the address and counts as present
// An unknown device and one that is gone are told of once. Other states are never news, nor is anything in
// bridge mode.
bool hbs_neigh_is_news(const hbs_neigh_entry *entry);
