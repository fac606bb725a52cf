// The static leases of the DHCPv4 server and the host records that go with them: adding, updating and
// deleting them by text. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

// What a new static lease is written with. Texts are NUL-terminated and not kept.
struct hbs_static_lease {
    const char *mac;
    const char *address;
    const char *host;
    int number;
    const char *text[3]; // OUI, serial number, product class
    uint32_t index;      // 0 = none
};

// Adds a lease line and a host record to the group's (0-7) files. 0, or -1 (nothing, or only the lease
// line, was written).
int hbs_lease_add_ipv4_static(int group, const hbs_static_lease *lease);

// Rewrites the lease line of lease->index and replaces the host record of the MAC or the address. The
// static-lease file must exist; a line that cannot be rewritten is passed over. 0, or -1.
int hbs_lease_update_ipv4_static(int group, const hbs_static_lease *lease);

// Deletes each file's first line of the MAC (of the address): static and host files of all groups. Always 0,
// also when a file could not be written (logged): who asks has nothing else to do.
int hbs_lease_delete_ipv4_static(const char *mac_text);
int hbs_lease_delete_ipv4_static_by_ip(const char *address_text);

// Delete every line of the MAC (of the address) in those files.
void hbs_lease_delete_all_ipv4_static(const char *mac_text);
void hbs_lease_delete_all_ipv4_static_by_ip(const char *address_text);

// Removes what a power cut in the middle of an edit left beside those files (start-up).
void hbs_lease_clear_leftovers();

// Whether the group's static-lease file holds the pair, and its index (0 where the line has none).
// index [out] is 0 when not found. Returns 0; *found [out, may be null] says whether.
int hbs_lease_get_static_index(int group, const char *mac_text, const char *address_text, uint32_t *index,
                               bool *found);
