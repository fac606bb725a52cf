// What the two DHCP servers say by arguments and environment.
#include "hook/lease_note.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned MOST_LEASES = 64; // of one call

bool read_mac(const char *text, uint8_t mac[6]) {
    if (text == nullptr)
        return false;
    uint8_t bytes[6];
    int length = 0;
    if (sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
               &bytes[4], &bytes[5], &length) != 6 ||
        text[length] != '\0')
        return false;
    memcpy(mac, bytes, sizeof bytes);
    return true;
}

// A whole number, false for a text that is none.
bool read_seconds(const char *text, uint32_t *seconds) {
    if (text == nullptr || *text < '0' || *text > '9')
        return false;
    char *end = nullptr;
    errno = 0;
    const unsigned long long number = strtoull(text, &end, 10);
    if (*end != '\0' || errno != 0)
        return false;
    *seconds = number > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(number);
    return true;
}

// Returns AF_INET, AF_INET6, or 0.
int read_address(const char *text, uint8_t address[16]) {
    if (text == nullptr)
        return 0;
    if (inet_pton(AF_INET, text, address) == 1)
        return AF_INET;
    return inet_pton(AF_INET6, text, address) == 1 ? AF_INET6 : 0;
}

// The MAC in a DUID that is made of one ("00:01:" with a time, "00:03:" without).
bool mac_of_duid(const char *duid, uint8_t mac[6]) {
    constexpr size_t by_time = 24;
    constexpr size_t plain = 12;
    if (duid == nullptr)
        return false;
    if (strncmp(duid, "00:01:00:01:", 12) == 0 && strlen(duid) > by_time)
        return read_mac(duid + by_time, mac);
    return strncmp(duid, "00:03:00:01:", 12) == 0 && read_mac(duid + plain, mac);
}

hbs_note_kind kind_of(int family, bool leased) {
    if (family == AF_INET)
        return leased ? hbs_note_kind::lease_v4 : hbs_note_kind::release_v4;
    return leased ? hbs_note_kind::lease_v6 : hbs_note_kind::release_v6;
}

// --- dnsmasq: ACTION MAC|DUID ADDRESS [HOST]

void read_dnsmasq(int count, const char *const argv[], hbs_environment get, hbs_note_visit visit,
                  void *context) {
    hbs_lease_note note = {};
    const int family = read_address(argv[3], note.address);
    if (family == 0)
        return;
    note.kind = kind_of(family, strcmp(argv[1], "del") != 0);
    note.has_mac = family == AF_INET
                       ? read_mac(argv[2], note.mac)
                       : read_mac(get("DNSMASQ_MAC"), note.mac) || mac_of_duid(argv[2], note.mac);
    if (family == AF_INET && !note.has_mac)
        return;
    note.dynamic = true;
    note.endless = !read_seconds(get("DNSMASQ_TIME_REMAINING"), &note.seconds);
    note.host = count > 4 ? argv[4] : nullptr;
    note.ifname = get("DNSMASQ_INTERFACE");
    note.oui = get("DNSMASQ_CPEWAN_OUI");
    note.serial_number = get("DNSMASQ_CPEWAN_SERIAL");
    note.product_class = get("DNSMASQ_CPEWAN_CLASS");
    visit(&note, context);
}

// --- Kea: the name of a hook point; the rest stands in the environment

struct kea_call {
    hbs_environment get;
    hbs_note_visit visit;
    void *context;
};

const char *kea_value(const kea_call *call, const char *prefix, const char *name) {
    char key[64];
    (void)snprintf(key, sizeof key, "%s%s", prefix, name);
    // cppcheck-suppress returnDanglingLifetime ; the value is the environment's
    return call->get(key);
}

void read_kea_lease(const kea_call *call, const char *prefix, bool leased) {
    hbs_lease_note note = {};
    const int family = read_address(kea_value(call, prefix, "_ADDRESS"), note.address);
    const char *type = kea_value(call, prefix, "_TYPE");
    if (family == 0 || (type != nullptr && strcmp(type, "IA_PD") == 0))
        return;
    note.kind = kind_of(family, leased);
    note.has_mac = read_mac(kea_value(call, prefix, "_HWADDR"), note.mac) ||
                   (family == AF_INET6 && mac_of_duid(kea_value(call, prefix, "_DUID"), note.mac));
    if (family == AF_INET && !note.has_mac)
        return;
    note.dynamic = true;
    note.endless = !read_seconds(kea_value(call, prefix, "_VALID_LIFETIME"), &note.seconds) ||
                   note.seconds == UINT32_MAX;
    note.host = kea_value(call, prefix, "_HOSTNAME");
    uint8_t remote[16];
    if (family == AF_INET6 && read_address(call->get("QUERY6_REMOTE_ADDR"), remote) == AF_INET6 &&
        remote[0] == 0xFE && (remote[1] & 0xC0) == 0x80)
        memcpy(note.ll, remote, sizeof note.ll);
    call->visit(&note, call->context);
}

// The numbered leases of a list.
void read_kea_list(const kea_call *call, const char *list, bool leased) {
    uint32_t count = 0;
    if (!read_seconds(kea_value(call, list, "_SIZE"), &count))
        return;
    for (uint32_t i = 0; i < count && i < MOST_LEASES; i++) {
        char prefix[40];
        (void)snprintf(prefix, sizeof prefix, "%s_AT%u", list, i);
        read_kea_lease(call, prefix, leased);
    }
}

void read_kea(const char *point, const kea_call *call) {
    if (strcmp(point, "leases4_committed") == 0 || strcmp(point, "leases6_committed") == 0) {
        const bool v6 = point[6] == '6';
        read_kea_list(call, v6 ? "DELETED_LEASES6" : "DELETED_LEASES4", false);
        read_kea_list(call, v6 ? "LEASES6" : "LEASES4", true);
        return;
    }
    static constexpr struct {
        const char *point;
        const char *prefix;
        bool leased;
    } points[] = {{"lease4_renew", "LEASE4", true},    {"lease4_release", "LEASE4", false},
                  {"lease4_expire", "LEASE4", false},  {"lease4_decline", "LEASE4", false},
                  {"lease6_renew", "LEASE6", true},    {"lease6_rebind", "LEASE6", true},
                  {"lease6_release", "LEASE6", false}, {"lease6_expire", "LEASE6", false},
                  {"lease6_decline", "LEASE6", false}};
    for (const auto &known : points)
        if (strcmp(known.point, point) == 0)
            read_kea_lease(call, known.prefix, known.leased);
}

} // namespace

void hbs_notes_read(int count, const char *const argv[], hbs_environment environment, hbs_note_visit visit,
                    void *context) {
    if (count < 2)
        return;
    const bool dnsmasq =
        strcmp(argv[1], "add") == 0 || strcmp(argv[1], "old") == 0 || strcmp(argv[1], "del") == 0;
    if (dnsmasq && count > 3)
        read_dnsmasq(count, argv, environment, visit, context);
    const kea_call call = {environment, visit, context};
    if (!dnsmasq)
        read_kea(argv[1], &call);
}
