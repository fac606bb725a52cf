// Presence by traffic, as the file of values says: off without it.
#include <arpa/inet.h>
#include <presence.h>

#include "common_hooks.h"
#include "host_values.h"

int PRESENCE_ByTraffic(void) {
    host_values_hold hold;
    uint32_t on = 0;
    return common_text_to_u32(host_value("presence.by_traffic"), &on) && on == 1 ? 1 : 0;
}

// A device that no switch has learned.
int PRESENCE_IsSilent(const uint8_t mac[6]) {
    host_values_hold hold;
    return mac != nullptr && host_value_of_mac("switch.mac.", mac) == nullptr &&
                   host_value_of_mac("l2switch.mac.", mac) == nullptr
               ? 1
               : 0;
}

int PRESENCE_IsAnswering(const uint8_t mac[6]) {
    host_values_hold hold;
    return mac != nullptr && host_value_of_mac("presence.answering.", mac) != nullptr ? 1 : 0;
}

// Nobody has to wait for a file: a switch that cannot be asked answers later when the file says so.
int PRESENCE_Await(const uint8_t mac[6]) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("PRESENCE_Await", &result))
        return result;
    uint32_t on = 0;
    return mac != nullptr && common_text_to_u32(host_value("presence.answers_late"), &on) && on == 1 ? 1 : 0;
}

// The file of values says where a device is.
void PRESENCE_Learned(const uint8_t *, int) {}

// Nobody is there to answer; the journal has it.
void PRESENCE_Ask(uint32_t network, int family, const uint8_t *address) {
    char text[INET6_ADDRSTRLEN];
    if (inet_ntop(family, address, text, sizeof text) == nullptr)
        return;
    host_values_hold hold;
    common_line line;
    common_line_add(&line, "presence ask %u %s", network, text);
    common_note_effect(&line);
}
