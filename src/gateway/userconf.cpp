// The persistent user configuration: lines of key, "=", value, ";".
#include "gateway/userconf.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/line_read.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "base/scope.h"
#include "base/text.h"

namespace {

constexpr size_t LINE_SIZE = 512;

// Cuts the value out of a line: what stands between its first "=" and its first ";".
bool copy_value(const char *line, char *value, size_t size) {
    const char *equals = strchr(line, '=');
    const char *end = strchr(line, ';');
    if (equals == nullptr || end == nullptr || end < equals)
        return false;
    const size_t length = std::min(static_cast<size_t>(end - equals - 1), size - 1);
    memcpy(value, equals + 1, length);
    value[length] = 0;
    return true;
}

} // namespace

int hbs_getPersistentUserSettings(const char *key, const char *file, char *value, size_t size) {
    FILE *stream = hbs_plain_stream(file, "r");
    if (stream == nullptr)
        return 0;
    hbs_at_exit close_file([&] { (void)fclose(stream); });
    char line[LINE_SIZE];
    while (hbs_line_read(stream, line, sizeof line))
        if (strstr(line, key) != nullptr)
            return copy_value(line, value, size) ? 1 : 0;
    return 0;
}

bool hbs_userconf_is_there() {
    return access(HBS_USERCONF, F_OK) == 0;
}

int hbs_userconf_address(const char *key, int instance, char text[16]) {
    char full_key[128];
    (void)snprintf(full_key, sizeof full_key, "%s.%d", key, instance);
    char value[LINE_SIZE];
    if (hbs_getPersistentUserSettings(full_key, HBS_USERCONF, value, sizeof value) == 0 || value[0] == 0)
        return 0;
    unsigned number = 0;
    if (sscanf(value + 1, "%x", &number) != 1) // the first character tells the kind of the value
        return 0;
    uint8_t address[4];
    hbs_ipv4_from_number(number, address);
    hbs_copy_text(text, 16, hbs_ipv4_to_text(address).text);
    return 1;
}
