#include "hook/static_lease.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

#include <hbs_db.h>

#include "base/settings_line.h"

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

namespace {

// The daemon's own limit: what it refuses in its settings leaves what stood before.
constexpr size_t LONGEST_PLACE = 107;

// Takes a line "dhcp.hosts = PLACE"; empty = there is no such file.
void take_place(char *line, char place[LONGEST_PLACE + 1]) {
    hbs_cut_comment(line);
    char *equals = strchr(line, '=');
    if (equals == nullptr)
        return;
    *equals = '\0';
    const char *value = hbs_without_blanks(equals + 1);
    if (strcmp(value, "none") == 0)
        value = "";
    if (strcmp(hbs_without_blanks(line), "dhcp.hosts") == 0 && (*value == '\0' || *value == '/') &&
        strlen(value) <= LONGEST_PLACE)
        memcpy(place, value, strlen(value) + 1);
}

void read_place(FILE *settings, char place[LONGEST_PLACE + 1]) {
    char line[HBS_SETTINGS_LINE_SIZE];
    bool begins = true; // a line
    while (fgets(line, sizeof line, settings) != nullptr) {
        const bool ends = strchr(line, '\n') != nullptr || feof(settings) != 0;
        if (begins && ends)
            take_place(line, place);
        begins = ends;
    }
}

} // namespace

bool hbs_is_static_lease(const char *settings, const uint8_t mac[6], const uint8_t ipv4[4]) {
    char place[LONGEST_PLACE + 1];
    (void)snprintf(place, sizeof place, "%s", USUAL_PLACE);
    FILE *file = fopen(settings, "re");
    if (file != nullptr) {
        read_place(file, place);
        (void)fclose(file);
    }
    return place[0] != '\0' && hbs_hosts_have(place, mac, ipv4);
}
