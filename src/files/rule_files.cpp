#include "files/rule_files.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/file_text.h"
#include "base/line_edit.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "store/clients.h"
#include "store/rule_index.h"

namespace {

// A field that is a rule, as it stands in its line.
struct rule_field {
    const char *text;
    size_t length;
};

// A line of one MAC taken apart.
struct rule_line {
    char text[HBS_RULE_LINE_MAX + 1]; // the whole line, without newline
    rule_field rule[HBS_RULES_PER_LINE];
    int rules;
    int match; // number of the rule looked for, or -1
};

// Values converted: a rule has 3 or 6, and the update path also meets 7.
int parse_rule(const char *field, hbs_rule *rule) {
    int further = 0;
    *rule = {};
    uint32_t *v = rule->value;
    int number[5] = {};
    const int count = sscanf(field, "%x %d %d %d %d %d %d", &v[0], &number[0], &number[1], &number[2],
                             &number[3], &number[4], &further);
    for (int i = 0; i < 5; ++i)
        v[i + 1] = static_cast<uint32_t>(number[i]);
    return count;
}

bool is_same_rule(const hbs_rule *a, const hbs_rule *b) {
    return memcmp(a->value, b->value, 3 * sizeof a->value[0]) == 0;
}

void format_rule(const hbs_rule *rule, char *text, size_t size) {
    const uint32_t *v = rule->value;
    (void)snprintf(text, size, "%x %d %d %d %d %d", v[0], static_cast<int>(v[1]), static_cast<int>(v[2]),
                   static_cast<int>(v[3]), static_cast<int>(v[4]), static_cast<int>(v[5]));
}

// Reads a line of at most HBS_RULE_LINE_MAX characters into `text`, without newline. Longer lines are
// passed over whole. Returns false at the end of the file.
bool read_rule_line(hbs_file_text *file, char text[HBS_RULE_LINE_MAX + 1]) {
    while (const char *line = hbs_file_text_line(file)) {
        const size_t length = strcspn(line, "\n");
        if (length > HBS_RULE_LINE_MAX)
            continue;
        memcpy(text, line, length);
        text[length] = '\0';
        return true;
    }
    return false;
}

bool is_line_of(const char *text, const char *mac_text) {
    const size_t length = strcspn(text, ";");
    return length == strlen(mac_text) && strncmp(text, mac_text, length) == 0;
}

// Takes a field of the line for one of its rules, when it is one.
void take_field(rule_line *line, const char *field, size_t length, const hbs_rule *wanted) {
    char text[HBS_RULE_LINE_MAX + 1];
    memcpy(text, field, length);
    text[length] = '\0';
    hbs_rule rule;
    const int count = parse_rule(text, &rule);
    if (count != 3 && count < 6)
        return;
    if (line->match < 0 && is_same_rule(&rule, wanted))
        line->match = line->rules;
    line->rule[line->rules++] = {field, length};
}

// The first thirty rules of the line. Further ones, and fields that are none, are not seen, and are gone
// when the line is written anew.
void scan_rules(rule_line *line, const hbs_rule *wanted) {
    const char *field = line->text + strcspn(line->text, ";");
    while (*field == ';' && line->rules < HBS_RULES_PER_LINE) {
        ++field;
        const size_t length = strcspn(field, ";");
        take_field(line, field, length, wanted);
        field += length;
    }
}

// Finds the line of a MAC. When there is one its rules are scanned for `wanted`.
hbs_file_read find_rule_line(const char *path, const char *mac_text, const hbs_rule *wanted,
                             rule_line *line) {
    hbs_file_text file;
    const hbs_file_read result = hbs_file_text_read(path, SIZE_MAX - 1, &file);
    *line = {};
    line->match = -1;
    while (read_rule_line(&file, line->text)) {
        if (!is_line_of(line->text, mac_text))
            continue;
        scan_rules(line, wanted);
        return hbs_file_read::done;
    }
    return result == hbs_file_read::done ? hbs_file_read::missing : result;
}

// A line that is built, of at most HBS_RULE_LINE_MAX characters.
struct new_rule_line {
    char text[HBS_RULE_LINE_MAX + 1];
    size_t length;
    bool fits;
};

// Adds a field with its ";".
void add_field(new_rule_line *line, const char *text, size_t length) {
    line->fits = line->fits && line->length + length + 1 <= HBS_RULE_LINE_MAX;
    if (!line->fits)
        return;
    memcpy(line->text + line->length, text, length);
    memcpy(line->text + line->length + length, ";", 2);
    line->length += length + 1;
}

// The MAC and its rules, the matching one replaced by `rule_text`, or left out when that is null, or with
// `rule_text` at the end when none matched. Returns false when it would pass the line limit.
bool rebuild_line(const rule_line *line, const char *rule_text, new_rule_line *out) {
    out->length = 0;
    out->fits = true;
    add_field(out, line->text, strcspn(line->text, ";"));
    for (int i = 0; i < line->rules; ++i)
        if (i != line->match)
            add_field(out, line->rule[i].text, line->rule[i].length);
        else if (rule_text != nullptr)
            add_field(out, rule_text, strlen(rule_text));
    if (line->match < 0 && rule_text != nullptr)
        add_field(out, rule_text, strlen(rule_text));
    return out->fits;
}

void add_to_index(int kind, const uint8_t mac[6], const hbs_client *client, const hbs_rule *rule) {
    const uint32_t *v = rule->value;
    const uint32_t p[7] = {v[0], v[1], v[2], client->dbpos, v[3], v[4], v[5]};
    hbs_file_update_rule_idx(static_cast<uint8_t>(kind), mac, p);
}

void load_line(int kind, char *text) {
    char *rest = nullptr;
    const char *mac_text = strtok_r(text, ";", &rest);
    uint8_t mac[6];
    if (mac_text == nullptr || hbs_text_to_mac(mac_text, mac) != 6)
        return;
    const hbs_client *client = hbs_find_by_mac(mac);
    if (client == nullptr)
        return;
    for (const char *field = strtok_r(nullptr, ";", &rest); field != nullptr;
         field = strtok_r(nullptr, ";", &rest)) {
        hbs_rule rule;
        const int count = parse_rule(field, &rule);
        if (count == 3 || count >= 6)
            add_to_index(kind, mac, client, &rule);
    }
}

// Drops what begins with the line, as a stream editor would; one over the limit is left untouched.
hbs_line_action drop_line(const char *line, size_t length, const char **, void *context) {
    const char *dropped = static_cast<const char *>(context);
    const size_t dropped_length = strlen(dropped);
    const bool begins = length >= dropped_length && memcmp(line, dropped, dropped_length) == 0;
    return begins && length <= HBS_RULE_LINE_MAX ? hbs_line_action::drop : hbs_line_action::keep;
}

// The command whose effect an edit has, for the log: two lines and a path at most.
using command_text = char[2 * HBS_RULE_LINE_MAX + 256];

void format_replace(const rule_line *line, const char *new_line, const char *path, command_text command) {
    (void)snprintf(command, sizeof(command_text), "sed -i 's/%s/%s/g' %s", line->text, new_line, path);
}

int append_line(const char *path, const char *line) {
    command_text command;
    (void)snprintf(command, sizeof command, "echo '%s' >> %s", line, path);
    HBS_LOG(HBS_INFO, "HOSTBASE: execute append cmd");
    HBS_LOG(HBS_INFO, "HOSTBASE:  : %s", command);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_update_client_white_rules: execute: %s", command);
    return hbs_lines_append(path, line);
}

} // namespace

int hbs_nv_load_client_rules(int kind, const char *path) {
    hbs_file_text file;
    const hbs_file_read result = hbs_file_text_read(path, SIZE_MAX - 1, &file);
    // The wording of the client file's loader, kept for both kinds of file. Who never made a rule has none.
    if (result == hbs_file_read::missing)
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_load_clients: NO NV file %s", path);
    char text[HBS_RULE_LINE_MAX + 1];
    while (read_rule_line(&file, text))
        load_line(kind, text);
    return result == hbs_file_read::done ? 0 : -1;
}

void hbs_nv_load_rules() {
    (void)hbs_nv_load_client_rules(1, HBS_WHITE_RULES);
    (void)hbs_nv_load_client_rules(2, HBS_BLACK_RULES);
}

int hbs_nv_update_client_white_rules(const char *path, const uint8_t mac[6], const hbs_rule *rule) {
    const hbs_mac_text mac_text = hbs_mac_to_text(mac);
    char rule_text[80];
    format_rule(rule, rule_text, sizeof rule_text);
    static rule_line line; // 3 KB; callers hold hbs_list_mutex
    const hbs_file_read found = find_rule_line(path, mac_text.text, rule, &line);
    if (found == hbs_file_read::failed)
        return -1;
    if (found == hbs_file_read::missing) {
        char new_line[sizeof mac_text + sizeof rule_text + 2];
        (void)snprintf(new_line, sizeof new_line, "%s;%s;", mac_text.text, rule_text);
        return append_line(path, new_line);
    }
    new_rule_line new_line;
    if (!rebuild_line(&line, rule_text, &new_line)) {
        // A longer line would not be recognised any more, and all rules of the client would be lost.
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_nv_update_client_white_rules: no room for another rule of %s",
                mac_text.text);
        return -1;
    }
    command_text command;
    format_replace(&line, new_line.text, path, command);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_update_client_white_rules: execute: %s", command);
    return hbs_lines_replace(path, line.text, new_line.text);
}

int hbs_nv_clear_client_rules(const char *path, const uint8_t mac[6], const hbs_rule *rule,
                              bool *rules_left) {
    static rule_line line; // 3 KB; callers hold hbs_list_mutex
    const hbs_file_read found = find_rule_line(path, hbs_mac_to_text(mac).text, rule, &line);
    *rules_left = found == hbs_file_read::failed; // in doubt it stays on its list
    if (found != hbs_file_read::done)
        return *rules_left ? -1 : 0;
    if (line.match < 0) {
        *rules_left = line.rules > 0;
        return 0;
    }
    *rules_left = line.rules > 1;
    if (!*rules_left) // the log names no command for it
        return hbs_lines_edit(path, drop_line, line.text);
    command_text command;
    new_rule_line new_line;
    (void)rebuild_line(&line, nullptr, &new_line); // shorter than the line it replaces
    format_replace(&line, new_line.text, path, command);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_clear_client_rules: execute: %s", command);
    return hbs_lines_replace(path, line.text, new_line.text);
}
