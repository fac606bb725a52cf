// TR-069 agent: each event goes to the journal, every field in words.
#include <cstring>

#include <tr69.h>

#include "host_journal.h"
#include "host_values.h"

namespace {

// Offsets in the payload; the body starts at 10.
constexpr size_t format_at = 8;
constexpr size_t code_at = 9;
constexpr size_t body_at = 10;
constexpr size_t flag_at = body_at + 200;
constexpr size_t tail_at = body_at + 338; // the body's last two bytes and what follows the body

struct field {
    const char *name;
    size_t at; // in the body
    size_t size;
};

constexpr field address_fields[] = {{"ipv4", 28, 16}, {"ipv6", 44, 46}, {"ll", 90, 46}, {"host", 136, 64}};
constexpr field identity_fields[] = {{"oui", 201, 7}, {"serial", 208, 65}, {"class", 273, 65}};

// A text that does not end inside its field is marked, so that nobody takes it for a good one.
void add_text(host_line *line, const uint8_t *payload, const field &field) {
    char text[65];
    memcpy(text, payload + body_at + field.at, field.size);
    size_t length = strnlen(text, field.size);
    host_line_add(line, " %s=%s\"", field.name, length == field.size ? "unterminated:" : "");
    host_line_add_escaped(line, text, length, host_quotes::escaped);
    host_line_add(line, "\"");
}

// The two numbers of the body are in native order and not aligned.
void add_number(host_line *line, const char *name, const uint8_t *payload, size_t at) {
    int32_t number = 0;
    memcpy(&number, payload + body_at + at, sizeof number);
    host_line_add(line, " %s=%d", name, number);
}

void add_reserved(host_line *line, const char *name, const uint8_t *start, size_t size) {
    bool zero = true;
    for (size_t i = 0; i < size; i++)
        zero = zero && start[i] == 0;
    host_line_add(line, " %s=%s", name, zero ? "zero" : "set");
}

} // namespace

int quarn_tr69SendEvent(const uint8_t payload[TR69_EVENT_SIZE]) {
    int result = 0;
    if (host_call_fails("quarn_tr69SendEvent", &result))
        return result;
    if (payload == nullptr)
        return -1;
    host_line line;
    host_line_add(&line, "tr69 event %u", payload[code_at]);
    add_text(&line, payload, {"mac", 0, 20});
    add_number(&line, "number", payload, 20);
    add_number(&line, "adapter", payload, 24);
    for (const field &field : address_fields)
        add_text(&line, payload, field);
    host_line_add(&line, " flag=%u", payload[flag_at]);
    for (const field &field : identity_fields)
        add_text(&line, payload, field);
    host_line_add(&line, " format=%u", payload[format_at]);
    add_reserved(&line, "head", payload, format_at);
    add_reserved(&line, "tail", payload + tail_at, TR69_EVENT_SIZE - tail_at);
    host_journal_write(&line);
    return 0;
}
