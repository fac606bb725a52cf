// Names, lines and look-ups of the DHCPv4 server's files.
#include "gateway/lease_files.h"

#include <arpa/inet.h>
#include <cstring>

#include <rnddb.h>

#include "base/line_read.h"
#include "base/locked_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/scope.h"
#include "base/text.h"
#include "gateway/networks.h"
#include "gateway/userconf.h"

namespace {

// A file name of each kind: what stands before and after the LAN address.
constexpr struct {
    const char *before;
    const char *after;
} FILE_KINDS[] = {
    {HBS_STATIC_LEASES_BEFORE, HBS_STATIC_LEASES_AFTER},
    {HBS_DYNAMIC_LEASES_BEFORE, HBS_DYNAMIC_LEASES_AFTER},
    {HBS_STATIC_LEASES_BEFORE, HBS_HOST_RECORDS_AFTER},
};

// Instances of the user configuration's objects: this + group.
constexpr int USERCONF_FIRST_INSTANCE = 200;

void build_name(int kind, const char *address, char path[HBS_LEASE_PATH_SIZE]) {
    (void)snprintf(path, HBS_LEASE_PATH_SIZE, "%s%s%s", FILE_KINDS[kind].before, address,
                   FILE_KINDS[kind].after);
}

} // namespace

int hbs_lease_filename(int group, int kind, char path[HBS_LEASE_PATH_SIZE]) {
    uint8_t address[4];
    if (!hbs_rnd_load() || kind < HBS_LEASE_STATIC || kind > HBS_LEASE_HOST ||
        RNDDB_inet4AddrGetWithKeyAndIndex("address_1", group + 1, address) != 0)
        return -1;
    build_name(kind, hbs_ipv4_to_text(address).text, path);
    return 0;
}

void hbs_static_lease_filename(uint32_t address, char path[HBS_LEASE_PATH_SIZE]) {
    uint8_t bytes[4];
    hbs_ipv4_from_number(address, bytes);
    build_name(HBS_LEASE_STATIC, hbs_ipv4_to_text(bytes).text, path);
}

// The widths keep each word inside its HBS_LEASE_LINE_SIZE bytes, whatever the line holds.
bool hbs_lease_record_parse(const char *line, hbs_lease_record *record) {
    return sscanf(line, "%1023s %1023s %u %1023s %u %1023s %1023s %1023s", record->mac, record->address,
                  &record->seconds, record->host, &record->number, record->text[0], record->text[1],
                  record->text[2]) == 8;
}

bool hbs_static_line_parse(const char *line, hbs_static_line *lease) {
    lease->index = 0;
    return sscanf(line, "%1023s %1023s %u", lease->mac, lease->address, &lease->index) >= 2;
}

bool hbs_lease_address(const char *text, uint8_t address[4]) {
    return inet_pton(AF_INET, text, address) == 1;
}

namespace {

bool is_mac(const char *text, const uint8_t mac[6]) {
    uint8_t read[6];
    return hbs_text_to_mac(text, read) == 6 && memcmp(read, mac, sizeof read) == 0;
}

bool is_address(const char *text, const uint8_t address[4]) {
    uint8_t read[4];
    return hbs_lease_address(text, read) && memcmp(read, address, sizeof read) == 0;
}

bool matches(const hbs_lease_search *search, const char *mac_text, const char *address_text) {
    const bool mac = search->mac == nullptr || is_mac(mac_text, search->mac);
    const bool address = search->address == nullptr || is_address(address_text, search->address);
    return search->either ? mac || address : mac && address;
}

} // namespace

bool hbs_static_line_find(FILE *stream, const hbs_lease_search *search, hbs_static_line *found) {
    char line[HBS_LEASE_LINE_SIZE];
    while (hbs_line_read(stream, line, sizeof line))
        if (hbs_static_line_parse(line, found) && matches(search, found->mac, found->address))
            return true;
    return false;
}

bool hbs_lease_record_find(FILE *stream, const hbs_lease_search *search, hbs_lease_record *found) {
    char line[HBS_LEASE_LINE_SIZE];
    while (hbs_line_read(stream, line, sizeof line))
        if (hbs_lease_record_parse(line, found) && matches(search, found->mac, found->address))
            return true;
    return false;
}

namespace {

// First line of the MAC with a usable address.
bool static_address_of(FILE *stream, const uint8_t mac[6], uint8_t *address) {
    const hbs_lease_search search = {mac, nullptr, false};
    hbs_static_line lease;
    uint8_t read[4];
    while (hbs_static_line_find(stream, &search, &lease)) {
        if (!hbs_lease_address(lease.address, read))
            continue;
        if (address != nullptr)
            memcpy(address, read, sizeof read);
        return true;
    }
    return false;
}

} // namespace

int hbs_check_lease_get_ipv4_static_lease(const uint8_t mac[6], uint8_t *address) {
    for (int group = 0; group < HBS_LEASE_GROUPS; ++group) {
        char path[HBS_LEASE_PATH_SIZE];
        if (hbs_lease_filename(group, HBS_LEASE_STATIC, path) != 0)
            continue;
        FILE *stream = hbs_locked_open(path, "r", hbs_lock::shared);
        if (stream == nullptr) {
            HBS_LOG(HBS_INFO, "HOSTBASE: can't open %s", path);
            continue;
        }
        hbs_at_exit unlock([&] { (void)fclose(stream); });
        if (static_address_of(stream, mac, address))
            return 0;
    }
    return -1;
}

int hbs_check_lease_get_ipv4_static_lease_from_mac(const uint8_t mac[6], uint8_t *address) {
    if (!hbs_userconf_is_there())
        return -1;
    for (int group = 0; group < HBS_LEASE_GROUPS; ++group) {
        char lan_address[16];
        if (hbs_userconf_address(HBS_USERCONF_LAN_ADDRESS, USERCONF_FIRST_INSTANCE + group, lan_address) == 0)
            continue;
        char path[HBS_LEASE_PATH_SIZE];
        build_name(HBS_LEASE_STATIC, lan_address, path);
        FILE *stream = hbs_locked_open(path, "r", hbs_lock::exclusive);
        if (stream == nullptr) {
            HBS_LOG(HBS_INFO, "HOSTBASE: (%s) can't open %s",
                    "hbs_check_lease_get_ipv4_static_lease_from_mac", path);
            continue;
        }
        hbs_at_exit unlock([&] { (void)fclose(stream); });
        if (static_address_of(stream, mac, address))
            return 0;
    }
    return -1;
}

namespace {

// Lease seconds of the MAC in one group's file, or -1.
int64_t dynamic_lease_in_group(int group, const uint8_t mac[6], char host[64], uint8_t address[4]) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_DYNAMIC, path) != 0)
        return -1;
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::shared);
    if (stream == nullptr)
        return -1;
    hbs_at_exit unlock([&] { (void)fclose(stream); });
    const hbs_lease_search search = {mac, nullptr, false};
    hbs_lease_record record;
    uint8_t read[4];
    while (hbs_lease_record_find(stream, &search, &record)) {
        if (!hbs_lease_address(record.address, read))
            continue;
        hbs_copy_text(host, 64, record.host);
        memcpy(address, read, sizeof read);
        return record.seconds;
    }
    return -1;
}

} // namespace

int64_t hbs_check_lease_get_ipv4_dynamic_lease(const uint8_t mac[6], char host[64], uint8_t address[4]) {
    for (int group = 0; group < HBS_LEASE_GROUPS; ++group) {
        const int64_t seconds = dynamic_lease_in_group(group, mac, host, address);
        if (seconds >= 0)
            return seconds;
    }
    return -1;
}
