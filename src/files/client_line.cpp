#include "files/client_line.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/hex.h"
#include "base/text.h"

namespace {

constexpr const char *BLANKS = " \t\r\n\v\f";

// Hex of a field: two digits for each byte; the field's own NUL leaves room for that of the hex.
template <size_t size> struct field_hex {
    char text[2 * size];
    field_hex(const char (&field)[size], const char *placeholder) {
        (void)hbs_str_to_hex(field[0] != '\0' ? field : placeholder, text, sizeof text);
    }
};

// The conversions of the line's format, each from where the one before it stopped: what a word holds
// behind its number is the next field's.

bool next_int(char **rest, int *value) {
    char *end = nullptr;
    *value = static_cast<int>(strtoll(*rest, &end, 10));
    const bool converted = end != *rest;
    *rest = end;
    return converted;
}

bool next_hex(char **rest, uint32_t *value) {
    constexpr size_t DIGITS = 8;
    *rest += strspn(*rest, BLANKS);
    char word[DIGITS + 1] = "";
    memcpy(word, *rest, strnlen(*rest, DIGITS));
    char *end = nullptr;
    *value = static_cast<uint32_t>(strtoull(word, &end, 16));
    *rest += end - word;
    return end != word;
}

bool next_text(char **rest, const char **text) {
    char *word = *rest + strspn(*rest, BLANKS);
    char *end = word + strcspn(word, BLANKS);
    *rest = *end != '\0' ? end + 1 : end;
    *end = '\0';
    *text = word;
    return *word != '\0';
}

} // namespace

void hbs_client_line_format(const hbs_client *client, char line[HBS_CLIENT_LINE_SIZE]) {
    const field_hex host(client->host, HBS_NO_HOST);
    const field_hex comment(client->comment, HBS_NO_COMMENT);
    const field_hex keywords(client->keyword_list, HBS_NO_KEYWORD_LIST);
    const field_hex description(client->description, HBS_NO_DESCRIPTION);
    const field_hex domains(client->domain_list, HBS_NO_DOMAIN_LIST);
    (void)snprintf(line, HBS_CLIENT_LINE_SIZE, "%s %d %s %s %08lx %s %s %d %s",
                   hbs_mac_to_text(client->mac).text, client->nwidx, host.text, comment.text,
                   static_cast<unsigned long>(client->trust), keywords.text, description.text,
                   client->mac_filter, domains.text);
}

void hbs_client_line_parse(char *text, hbs_client_line *line) {
    *line = {};
    char *rest = text;
    const char *mac = nullptr;
    if (!next_text(&rest, &mac))
        return;
    // A longer word would give bytes that it does not spell: "...:112" ends in 0x12.
    line->mac_valid = strlen(mac) < sizeof(hbs_mac_text) && hbs_text_to_mac(mac, line->mac) == HBS_MAC_SIZE;
    // Fields count up to the first one that is missing or no number.
    line->fields = 1;
    line->fields += next_int(&rest, &line->nwidx);
    if (line->fields == 2)
        line->fields += next_text(&rest, &line->host);
    if (line->fields == 3)
        line->fields += next_text(&rest, &line->comment);
    if (line->fields == 4)
        line->fields += next_hex(&rest, &line->trust);
    if (line->fields == 5)
        line->fields += next_text(&rest, &line->keyword_list);
    if (line->fields == 6)
        line->fields += next_text(&rest, &line->description);
    if (line->fields == 7)
        line->fields += next_int(&rest, &line->mac_filter);
    if (line->fields == 8)
        line->fields += next_text(&rest, &line->domain_list);
}
