// TR-069 agent: each event goes to the journal, every field in words.
#include <cstring>

#include <tr69.h>

#include "common_tr69.h"
#include "host_journal.h"
#include "host_values.h"

namespace {

// A text that does not end inside its field is marked, so that nobody takes it for a good one.
void add_text(common_line *line, const uint8_t *payload, const common_tr69_field &field) {
    const auto *text = reinterpret_cast<const char *>(payload + common_tr69_body_at + field.at);
    const size_t length = *text == '\0' ? 0 : strnlen(text, field.size);
    common_line_add_text(line, " ");
    common_line_add_bytes(line, field.name, field.name_length);
    if (length == field.size)
        common_line_add_text(line, "=unterminated:\"");
    else
        common_line_add_text(line, "=\"");
    if (length > 0)
        common_line_add_escaped(line, text, length, common_quotes::escaped);
    common_line_add_text(line, "\"");
}

// The two numbers of the body are in native order and not aligned.
void add_number(common_line *line, const uint8_t *payload, size_t at) {
    int32_t number = 0;
    memcpy(&number, payload + common_tr69_body_at + at, sizeof number);
    common_line_add_number(line, number);
}

void add_reserved(common_line *line, const uint8_t *start, size_t size) {
    const bool zero =
        start[0] == 0 && memcmp(start, start + 1, size - 1) == 0; // each is as the one before it
    if (zero)
        common_line_add_text(line, "zero");
    else
        common_line_add_text(line, "set");
}

} // namespace

int quarn_tr69SendEvent(const uint8_t payload[TR69_EVENT_SIZE]) {
    int result = 0;
    if (host_call_fails("quarn_tr69SendEvent", &result))
        return result;
    if (payload == nullptr)
        return -1;
    common_line line;
    common_line_add_text(&line, "tr69 event ");
    common_line_add_number(&line, payload[common_tr69_code_at]);
    add_text(&line, payload, common_tr69_mac);
    common_line_add_text(&line, " number=");
    add_number(&line, payload, 20);
    common_line_add_text(&line, " adapter=");
    add_number(&line, payload, 24);
    for (const common_tr69_field &field : common_tr69_addresses)
        add_text(&line, payload, field);
    common_line_add_text(&line, " flag=");
    common_line_add_number(&line, payload[common_tr69_flag_at]);
    for (const common_tr69_field &field : common_tr69_identity)
        add_text(&line, payload, field);
    common_line_add_text(&line, " format=");
    common_line_add_number(&line, payload[common_tr69_format_at]);
    common_line_add_text(&line, " head=");
    add_reserved(&line, payload, common_tr69_format_at);
    common_line_add_text(&line, " tail=");
    add_reserved(&line, payload + common_tr69_tail_at, TR69_EVENT_SIZE - common_tr69_tail_at);
    host_journal_write(&line);
    return 0;
}
