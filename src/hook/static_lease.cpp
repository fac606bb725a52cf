#include "hook/static_lease.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

#include <hbs_db.h>

namespace {

constexpr const char *USUAL_PLACE = HBS_PERSISTENT_DIR "/dhcp-hosts";

bool is_line_of(const char *line, const uint8_t mac[6], const uint8_t ipv4[4]) {
    uint8_t bytes[6];
    char address_text[INET_ADDRSTRLEN];
    uint8_t address[4];
    return sscanf(line, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx,%15s", &bytes[0], &bytes[1], &bytes[2],
                  &bytes[3], &bytes[4], &bytes[5], address_text) == 7 &&
           inet_pton(AF_INET, address_text, address) == 1 && memcmp(bytes, mac, sizeof bytes) == 0 &&
           memcmp(address, ipv4, sizeof address) == 0;
}

} // namespace

bool hbs_hosts_have(const char *path, const uint8_t mac[6], const uint8_t ipv4[4]) {
    FILE *file = fopen(path, "re");
    char line[256];
    bool found = false;
    while (file != nullptr && !found && fgets(line, sizeof line, file) != nullptr)
        found = is_line_of(line, mac, ipv4);
    if (file != nullptr)
        (void)fclose(file);
    return found;
}

bool hbs_is_static_lease(const char *settings, const uint8_t mac[6], const uint8_t ipv4[4]) {
    char line[256];
    char place[128];
    (void)snprintf(place, sizeof place, "%s", USUAL_PLACE);
    FILE *file = fopen(settings, "re");
    while (file != nullptr && fgets(line, sizeof line, file) != nullptr)
        (void)sscanf(line, " dhcp.hosts = %127s", place);
    if (file != nullptr)
        (void)fclose(file);
    return hbs_hosts_have(place, mac, ipv4);
}
