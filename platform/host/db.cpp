// Gateway configuration items by number, from the file of values.
#include <cstring>

#include <db.h>

#include "host_values.h"

namespace {

// "hex:" and twelve hex digits, or a MAC address.
bool text_to_six_bytes(const char *text, uint8_t bytes[6]) {
    static constexpr char prefix[] = "hex:";
    if (text == nullptr || strncmp(text, prefix, strlen(prefix)) != 0)
        return common_text_to_mac(text, bytes);
    const char *digits = text + strlen(prefix);
    if (strlen(digits) != 12)
        return false;
    char mac_text[18];
    for (size_t i = 0; i < 6; i++) {
        memcpy(mac_text + 3 * i, digits + 2 * i, 2);
        mac_text[3 * i + 2] = i < 5 ? ':' : '\0';
    }
    return common_text_to_mac(mac_text, bytes);
}

} // namespace

int DB_RetrieveAccess(void) {
    int result = 0;
    return host_call_fails("DB_RetrieveAccess", &result) ? result : 0;
}

// Only the items whose size the header gives: any other could run over the caller's buffer.
int DB_GetArray(int id, uint8_t *buffer) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("DB_GetArray", &result))
        return result;
    if (buffer == nullptr || (id != DB_ITEM_BASE_MAC && id != DB_ITEM_EROUTER_MAC && id != DB_ITEM_MTA_MAC))
        return -1;
    return text_to_six_bytes(host_value_with("db.array.%d", id), buffer) ? 0 : -1;
}

uint8_t DB_GetByte(int id) {
    host_values_hold hold;
    uint8_t value = 0;
    (void)common_text_to_byte(host_value_with("db.byte.%d", id), &value);
    return value;
}
