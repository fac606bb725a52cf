// The DHCPv4 server's files by text and address, with no client in sight: their names, their lines and
// the look-ups by MAC. Edits are in static_leases, lease_prune and subnet_change. Look-ups hold a shared
// flock on the server's file, edits an exclusive one. Groups are 0-7 (rndidx - 1).
// Callers hold hbs_list_mutex, which protects the router database's status.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "gateway/lease_prune.h"
#include "gateway/static_leases.h"
#include "gateway/subnet_change.h"

constexpr int HBS_LEASE_GROUPS = 8;
constexpr size_t HBS_LEASE_PATH_SIZE = 128;
constexpr int HBS_LEASE_LINE_SIZE = 1024;

enum hbs_lease_kind : int { HBS_LEASE_STATIC = 0, HBS_LEASE_DYNAMIC = 1, HBS_LEASE_HOST = 2 };

// One line of a dynamic-lease or host-record file: eight fields.
struct hbs_lease_record {
    char mac[HBS_LEASE_LINE_SIZE];
    char address[HBS_LEASE_LINE_SIZE];
    uint32_t seconds; // left; 0 in host records
    char host[HBS_LEASE_LINE_SIZE];
    uint32_t number;
    char text[3][HBS_LEASE_LINE_SIZE];
};

// One line of a static-lease file: MAC and address as they stand there, and the index (0 = none).
struct hbs_static_line {
    char mac[HBS_LEASE_LINE_SIZE];
    char address[HBS_LEASE_LINE_SIZE];
    uint32_t index;
};

// Reads "%s %s %u %s %u %s %s %s" from a line shorter than HBS_LEASE_LINE_SIZE. Returns whether all
// eight fields were there.
bool hbs_lease_record_parse(const char *line, hbs_lease_record *record);

// Reads "%s %s" and, when there is one, the index. Returns whether both words were there.
bool hbs_static_line_parse(const char *line, hbs_static_line *lease);

// Dotted quad into address (4 bytes). Returns whether it is one.
bool hbs_lease_address(const char *text, uint8_t address[4]);

// What to look for: a MAC, an address (null = any), or a line that has either of the two.
struct hbs_lease_search {
    const uint8_t *mac;     // 6 bytes
    const uint8_t *address; // 4 bytes
    bool either;
};

// Next line of an open file that matches, from where the stream stands. Return whether there was one.
bool hbs_static_line_find(FILE *stream, const hbs_lease_search *search, hbs_static_line *found);
bool hbs_lease_record_find(FILE *stream, const hbs_lease_search *search, hbs_lease_record *found);

// File name of a kind for a group into path. Returns 0, or -1 (unreadable router database, unknown
// kind, no address).
int hbs_lease_filename(int group, int kind, char path[HBS_LEASE_PATH_SIZE]);

// Kind-0 name for a LAN address (host order) into path.
void hbs_static_lease_filename(uint32_t address, char path[HBS_LEASE_PATH_SIZE]);

// Each look-up waits for the locks of others on the files, seconds at the worst (HBS_LOCK_PATIENCE).
// Static lease of a MAC in all eight files. address [out, may be null] 4 bytes. 0 found, -1 not.
int hbs_check_lease_get_ipv4_static_lease(const uint8_t mac[6], uint8_t *address);

// The same in the files that the user configuration names.
int hbs_check_lease_get_ipv4_static_lease_from_mac(const uint8_t mac[6], uint8_t *address);

// Dynamic lease of a MAC: host [out, 64 bytes] and address [out, 4 bytes], untouched when not found.
// Returns the lease seconds left, or -1.
int64_t hbs_check_lease_get_ipv4_dynamic_lease(const uint8_t mac[6], char host[64], uint8_t address[4]);
