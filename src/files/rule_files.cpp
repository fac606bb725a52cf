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

// A line of one MAC taken apart. Fields that are no rules are carried along as they stand.
struct rule_line {
    char text[HBS_RULE_LINE_MAX + 1]; // the whole line, without newline
    char fields[HBS_RULE_LINE_MAX + 1];
    int rules;   // valid ones among the first HBS_RULES_PER_LINE
    char *match; // field in `fields` that is the rule looked for, or null
    size_t match_length;
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

// Finds the rule among the first thirty rules of the line, and counts those.
void scan_rules(rule_line *line, const hbs_rule *wanted) {
    char *field = line->fields + strcspn(line->fields, ";");
    while (*field == ';' && line->rules < HBS_RULES_PER_LINE) {
        ++field;
        const size_t length = strcspn(field, ";");
        hbs_rule rule;
        char text[HBS_RULE_LINE_MAX + 1];
        memcpy(text, field, length);
        text[length] = '\0';
        const int count = parse_rule(text, &rule);
        if (count == 3 || count >= 6) {
            ++line->rules;
            if (line->match == nullptr && is_same_rule(&rule, wanted)) {
                line->match = field;
                line->match_length = length;
            }
        }
        field += length;
    }
}

// Finds the line of a MAC. When there is one its rules are scanned for `wanted`.
hbs_file_read find_rule_line(const char *path, const char *mac_text, const hbs_rule *wanted,
                             rule_line *line) {
    hbs_file_text file;
    const hbs_file_read result = hbs_file_text_read(path, SIZE_MAX - 1, &file);
    *line = {};
    while (read_rule_line(&file, line->text)) {
        if (!is_line_of(line->text, mac_text))
            continue;
        memcpy(line->fields, line->text, sizeof line->fields);
        scan_rules(line, wanted);
        return hbs_file_read::done;
    }
    return result == hbs_file_read::done ? hbs_file_read::missing : result;
}

// The line with the matching field replaced by `rule_text`, or taken out when that is null, or with
// `rule_text` added at its end when no field matched. Returns false when it would pass the line limit.
bool rebuild_line(const rule_line *line, const char *rule_text, char out[HBS_RULE_LINE_MAX + 1]) {
    const size_t head =
        line->match != nullptr ? static_cast<size_t>(line->match - line->fields) : strlen(line->fields);
    const char *tail = line->match != nullptr ? line->match + line->match_length : "";
    const bool needs_end = head > 0 && line->fields[head - 1] != ';';
    if (*tail == ';')
        ++tail;
    const bool tail_needs_end = *tail != '\0' && tail[strlen(tail) - 1] != ';';
    const int length = snprintf(out, HBS_RULE_LINE_MAX + 1, "%.*s%s%s%s%s%s", static_cast<int>(head),
                                line->fields, needs_end ? ";" : "", rule_text != nullptr ? rule_text : "",
                                rule_text != nullptr ? ";" : "", tail, tail_needs_end ? ";" : "");
    return length >= 0 && static_cast<size_t>(length) <= HBS_RULE_LINE_MAX;
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

// Drops what begins with the line, as the command in the message does; one over the limit is left untouched.
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
    if (result ==
        hbs_file_read::missing) // the wording of the client file's loader, kept for both kinds of file
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_nv_load_clients: NO NV file %s", path);
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
    static rule_line line; // 5 KB; callers hold hbs_list_mutex
    const hbs_file_read found = find_rule_line(path, mac_text.text, rule, &line);
    if (found == hbs_file_read::failed)
        return -1;
    if (found == hbs_file_read::missing) {
        char new_line[sizeof mac_text + sizeof rule_text + 2];
        (void)snprintf(new_line, sizeof new_line, "%s;%s;", mac_text.text, rule_text);
        return append_line(path, new_line);
    }
    char new_line[HBS_RULE_LINE_MAX + 1];
    if (!rebuild_line(&line, rule_text, new_line)) {
        // A longer line would not be recognised any more, and all rules of the client would be lost.
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_nv_update_client_white_rules: no room for another rule of %s",
                mac_text.text);
        return -1;
    }
    command_text command;
    format_replace(&line, new_line, path, command);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_update_client_white_rules: execute: %s", command);
    return hbs_lines_replace(path, line.text, new_line);
}

int hbs_nv_clear_client_rules(const char *path, const uint8_t mac[6], const hbs_rule *rule,
                              bool *rules_left) {
    static rule_line line; // 5 KB; callers hold hbs_list_mutex
    const hbs_file_read found = find_rule_line(path, hbs_mac_to_text(mac).text, rule, &line);
    *rules_left = found == hbs_file_read::failed; // in doubt it stays on its list
    if (found != hbs_file_read::done)
        return *rules_left ? -1 : 0;
    if (line.match == nullptr) {
        *rules_left = line.rules > 0;
        return 0;
    }
    *rules_left = line.rules > 1;
    command_text command;
    if (!*rules_left) {
        (void)snprintf(command, sizeof command, "sed '/^%s/d' %s > %s", line.text, path, HBS_RULES_REMOVAL);
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_clear_client_rules: execute: %s", command);
        return hbs_lines_edit(path, drop_line, line.text);
    }
    char new_line[HBS_RULE_LINE_MAX + 1];
    (void)rebuild_line(&line, nullptr, new_line); // shorter than the line it replaces
    format_replace(&line, new_line, path, command);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_clear_client_rules: execute: %s", command);
    return hbs_lines_replace(path, line.text, new_line);
}
