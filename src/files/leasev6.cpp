#include "files/leasev6.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/log.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "base/scope.h"
#include "store/client_dates.h"
#include "store/clients.h"

namespace {

constexpr int LINE_SIZE = 1024;
constexpr size_t ADDRESS_SIZE = 47; // at most 46 characters

// Text between the next `open` and the following `close` into out; cut to its size. Returns what follows
// `close`, or null when either is missing.
const char *take_between(const char *text, char open, char close, char *out, size_t size) {
    const char *begin = strchr(text, open);
    if (begin == nullptr)
        return nullptr;
    ++begin;
    const char *end = strchr(begin, close);
    if (end == nullptr)
        return nullptr;
    const size_t length = static_cast<size_t>(end - begin);
    const size_t kept = length < size - 1 ? length : size - 1;
    memcpy(out, begin, kept);
    out[kept] = '\0';
    return end + 1;
}

// Quoted value of an attribute that follows. Returns what follows it, or null.
const char *take_attribute(const char *text, const char *name, char *value, size_t size) {
    const char *at = strstr(text, name);
    return at != nullptr ? take_between(at, '"', '"', value, size) : nullptr;
}

struct lease_element {
    long timestamp; // seconds since the epoch
    int valid;      // seconds
    char address[ADDRESS_SIZE];
};

// The pieces must stand in the order timestamp, valid, address; a line that misses one is skipped.
bool parse_element(const char *line, lease_element *element) {
    char timestamp[32];
    char valid[32];
    const char *rest = strstr(line, "<AddrAddr");
    if (rest != nullptr)
        rest = take_attribute(rest, "timestamp", timestamp, sizeof timestamp);
    if (rest != nullptr)
        rest = take_attribute(rest, "valid", valid, sizeof valid);
    if (rest != nullptr)
        rest = take_between(rest, '>', '<', element->address, sizeof element->address);
    if (rest == nullptr)
        return false;
    element->timestamp = atol(timestamp);
    element->valid = atoi(valid);
    return true;
}

// Kept inside what a time_t can tell.
time_t lease_end(const lease_element *element) {
    time_t end = 0;
    if (!__builtin_add_overflow(element->timestamp, element->valid, &end))
        return end;
    return element->valid < 0 ? std::numeric_limits<time_t>::min() : std::numeric_limits<time_t>::max();
}

void apply_element(hbs_client *client, const lease_element *element) {
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_leasev6_find fgets: timestamp:%ld; valid:%d, ipv6_str:%s",
            element->timestamp, element->valid, element->address);
    uint8_t address[16];
    if (inet_pton(AF_INET6, element->address, address) != 1 ||
        memcmp(address, client->ipv6, sizeof address) != 0)
        return;
    const time_t end = lease_end(element);
    HBS_LOG(HBS_INFO, "HOSTBASE: Found IPv6 lease %d for %s", static_cast<int>(end), element->address);
    hbs_leasev6_set(client, end);
    hbs_set_flags(client, 0, HBS_FLAG_DYNIP6);
}

} // namespace

void hbs_leasev6_find(hbs_client *client) {
    FILE *file = hbs_plain_stream(HBS_LEASEV6_DATABASE, "r");
    if (file == nullptr) { // a router whose server keeps none is asked again and again: no error there
        if (errno == ENOENT)
            HBS_LOG(HBS_INFO, "HOSTBASE: Could not found %s", HBS_LEASEV6_DATABASE);
        else
            HBS_LOG(HBS_ERROR, "HOSTBASE: Could not found %s", HBS_LEASEV6_DATABASE);
        return;
    }
    hbs_at_exit close([file] { (void)fclose(file); });
    char line[LINE_SIZE];
    while (fgets(line, sizeof line, file) != nullptr) {
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_leasev6_find fgets: %s", line);
        lease_element element;
        if (parse_element(line, &element))
            apply_element(client, &element);
    }
}
