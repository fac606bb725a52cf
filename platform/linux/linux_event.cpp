#include "linux_event.h"

#include <cstdio>
#include <cstring>

#include "common_tr69.h"

namespace {

void add_json(common_line *line, const char *text, size_t length) {
    for (size_t i = 0; i < length; i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '"' || byte == '\\')
            common_line_add(line, "\\%c", byte);
        else if (byte >= ' ' && byte <= '~')
            common_line_add(line, "%c", byte);
        else
            common_line_add(line, "\\u%04x", byte);
    }
}

void add_text(common_line *line, const uint8_t *payload, const common_tr69_field &field) {
    const auto *text = reinterpret_cast<const char *>(payload + common_tr69_body_at + field.at);
    common_line_add(line, ",\"%s\":\"", field.name);
    add_json(line, text, strnlen(text, field.size));
    common_line_add(line, "\"");
}

// The numbers of the body are in native order and not aligned.
void add_number(common_line *line, const char *name, const uint8_t *payload, size_t at) {
    int32_t number = 0;
    memcpy(&number, payload + common_tr69_body_at + at, sizeof number);
    common_line_add(line, ",\"%s\":%d", name, number);
}

} // namespace

void linux_event_write(common_line *line, const uint8_t *payload, uint64_t number) {
    common_line_add(line, "{\"number\":%llu,\"code\":%u", static_cast<unsigned long long>(number),
                    payload[common_tr69_code_at]);
    add_text(line, payload, common_tr69_mac);
    add_number(line, "network", payload, 20);
    add_number(line, "adapter", payload, 24);
    for (const common_tr69_field &field : common_tr69_addresses)
        add_text(line, payload, field);
    common_line_add(line, ",\"flag\":%u", payload[common_tr69_flag_at]);
    for (const common_tr69_field &field : common_tr69_identity)
        add_text(line, payload, field);
    common_line_add(line, "}");
}
