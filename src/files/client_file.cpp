#include "files/client_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <unistd.h>

#include "base/file_text.h"
#include "base/hex.h"
#include "base/line_edit.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "files/client_leases.h"
#include "files/client_line.h"
#include "gateway/own_macs.h"
#include "store/client_add.h"
#include "store/client_fields.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

constexpr int FILE_VERSION = 1;
constexpr const char *VERSION_LINE = " version 1\n";

// "%8s %d": a word of at most eight characters, then the version. 0 when the number is absent;
// `is_version` tells whether the word is exactly "version".
int parse_version(const char *line, bool *is_version) {
    char word[9] = "";
    int version = 0;
    (void)sscanf(line, "%8s %d", word, &version);
    *is_version = strcmp(word, "version") == 0;
    return version;
}

// Decodes a text into its record field; a placeholder makes it empty. Returns whether there is a text.
bool decode(const char *hex, const char *placeholder, char *field, size_t size) {
    hbs_hex_to_str(hex, field, size);
    const bool is_text = strcmp(field, placeholder) != 0;
    const size_t length = is_text ? strlen(field) : 0;
    memset(field + length, 0, size - length); // readers count on it; damaged hex may hold a NUL
    return is_text;
}

void load_host(hbs_client *client, const char *hex) {
    if (decode(hex, HBS_NO_HOST, client->host, sizeof client->host))
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: has host %s", client->host);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: NOHOST - set null string");
}

void load_comment(hbs_client *client, const char *hex) {
    if (decode(hex, HBS_NO_COMMENT, client->comment, sizeof client->comment))
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: has comment %s", client->comment);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: NOCOMMENT - set null string");
}

void load_keyword_list(hbs_client *client, const char *hex) {
    if (decode(hex, HBS_NO_KEYWORD_LIST, client->keyword_list, sizeof client->keyword_list))
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: has keyword_list %s", client->keyword_list);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: NOKEYWORD_LIST - set null string");
}

void load_description(hbs_client *client, const char *hex) {
    if (decode(hex, HBS_NO_DESCRIPTION, client->description, sizeof client->description))
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: has description %s", client->description);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: NODESCRIPTION - set null string");
}

void load_domain_list(hbs_client *client, const char *hex) {
    if (decode(hex, HBS_NO_DOMAIN_LIST, client->domain_list, sizeof client->domain_list))
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: has domain_list %s", client->domain_list);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_load_clients: NODOMAIN_LIST - set null string");
}

// Fills what the line provided, in the order of its fields.
void fill_client(hbs_client *client, const hbs_client_line *line) {
    if (line->fields >= 2)
        hbs_set_nwidx(client, static_cast<uint8_t>(line->nwidx));
    if (line->fields >= 3)
        load_host(client, line->host);
    if (line->fields >= 4)
        load_comment(client, line->comment);
    if (line->fields >= 5) {
        client->trust = line->trust;
        client->flags = 0; // a loaded client starts without state and without change marks
    }
    if (line->fields >= 6)
        load_keyword_list(client, line->keyword_list);
    if (line->fields >= 7)
        load_description(client, line->description);
    if (line->fields >= 8)
        client->mac_filter = line->mac_filter;
    if (line->fields >= 9)
        load_domain_list(client, line->domain_list);
}

void load_line(char *text) {
    hbs_client_line line;
    hbs_client_line_parse(text, &line);
    if (!line.mac_valid || hbs_mac_is_zero(line.mac) || !hbs_mac_is_lan_client(line.mac))
        return;
    hbs_client *client = hbs_add(line.mac);
    if (client == nullptr)
        return;
    fill_client(client, &line);
    if (hbs_check_static_ip(client) == 0)
        (void)hbs_check_find_static_ip(client);
    hbs_publish(client);
}

// The first line of the file into *line, "" when it is empty. Returns the version, with the word checked.
int read_version(hbs_file_text *file, const char **line, bool *is_version) {
    const char *first = hbs_file_text_line(file);
    *line = first != nullptr ? first : "";
    return parse_version(*line, is_version);
}

// Lines are read to their end whatever their length: what the per-client update writes loads back whole.
// Returns 0, or -1 when there was a line of an unknown version.
int load_lines(hbs_file_text *file, int version) {
    int result = 0;
    while (char *line = hbs_file_text_line(file)) {
        if (version == FILE_VERSION) {
            load_line(line);
            continue;
        }
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_nv_load_clients: UNKNOWN FILE FORMAT %d", version);
        result = -1;
    }
    return result;
}

void save_client(FILE *content, const hbs_client *client) {
    char line[HBS_CLIENT_LINE_SIZE];
    char hex[2 * HBS_COMMENT_SIZE];
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: save %p", static_cast<const void *>(client));
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: mac %s", hbs_mac_to_text(client->mac).text);
    (void)hbs_str_to_hex(client->host[0] != '\0' ? client->host : HBS_NO_HOST, hex, sizeof hex);
    if (client->host[0] != '\0')
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: convert host str %s", hex);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: convert NOHOST %s", hex);
    (void)hbs_str_to_hex(client->comment[0] != '\0' ? client->comment : HBS_NO_COMMENT, hex, sizeof hex);
    if (client->comment[0] != '\0')
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: convert comment str %s", hex);
    else
        HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: convert NOCOMMENT %s", hex);
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: write file");
    hbs_client_line_format(client, line);
    (void)fprintf(content, "%s\n", line);
    HBS_LOG(HBS_DEBUG, "HOSTBASE: hbs_nv_save_clients: done");
}

void log_encoded(const char *text, const char *of_one, const char *of_none) {
    HBS_LOG(HBS_DEBUG, "%s", text[0] != '\0' ? of_one : of_none);
}

void log_encoding(const hbs_client *client) {
    log_encoded(client->host, "HOSTBASE: hosttohex", "HOSTBASE: NOHOSTtohex");
    log_encoded(client->comment, "HOSTBASE: commenttohex", "HOSTBASE: NOCOMMENTtohex");
    log_encoded(client->domain_list, "HOSTBASE: domain_listtohex", "HOSTBASE: NODOMAIN_LISTtohex");
    log_encoded(client->description, "HOSTBASE: descriptiontohex", "HOSTBASE: DESCRIPTIONtohex");
    log_encoded(client->keyword_list, "HOSTBASE: keyword_listtohex", "HOSTBASE: NOKEYWORD_LISTtohex");
}

// Finds the line that begins with the MAC text: *line, without newline, or null when there is none. Returns
// -1 when the file is missing, cannot be read or is of another version.
int find_line(const char *mac_text, hbs_file_text *file, char **line) {
    *line = nullptr;
    if (hbs_file_text_read(HBS_CLIENT_FILE, SIZE_MAX - 1, file) != hbs_file_read::done)
        return -1;
    bool is_version = false;
    const char *first = "";
    const int version = read_version(file, &first, &is_version);
    HBS_LOG(HBS_DEBUG, "HOSTBASE: opened file version %d", version);
    if (version != FILE_VERSION) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_nv_update_client: file is wrong version %s", HBS_CLIENT_FILE);
        return -1;
    }
    do
        *line = hbs_file_text_line(file);
    while (*line != nullptr && strncmp(*line, mac_text, strlen(mac_text)) != 0);
    if (*line != nullptr) {
        (*line)[strcspn(*line, "\n")] = '\0';
        HBS_LOG(HBS_DEBUG, "HOSTBASE: found old entry %s", *line);
    }
    return 0;
}

// The log names the command whose effect the edit has.
using command_text = char[5040];

void log_execute(const char *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_update_client: execute: %s", command);
}

void append_line(const char *line) {
    command_text command;
    (void)snprintf(command, sizeof command, "echo '%s' >> %s", line, HBS_CLIENT_FILE);
    HBS_LOG(HBS_INFO, "HOSTBASE: execute append cmd");
    HBS_LOG(HBS_INFO, "HOSTBASE:  : %s", command);
    log_execute(command);
    (void)hbs_lines_append(HBS_CLIENT_FILE, line);
}

void replace_line(const char *old_line, const char *new_line) {
    command_text command;
    (void)snprintf(command, sizeof command, "sed -i 's/%s/%s/g' %s", old_line, new_line, HBS_CLIENT_FILE);
    log_execute(command);
    (void)hbs_lines_replace(HBS_CLIENT_FILE, old_line, new_line);
}

// The log names no command for it.
void delete_line(const char *old_line) {
    (void)hbs_lines_delete_prefix(HBS_CLIENT_FILE, old_line);
}

} // namespace

int hbs_nv_load_clients() {
    hbs_file_text file;
    switch (hbs_file_text_read(HBS_CLIENT_FILE, SIZE_MAX - 1, &file)) {
    case hbs_file_read::failed: // what stands in it must not be replaced by what is known without it
        return 0;
    case hbs_file_read::missing:
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_nv_load_clients: NO NV file %s", HBS_CLIENT_FILE);
        return -1;
    case hbs_file_read::done:
        break;
    }
    bool is_version = false;
    const char *line = "";
    int version = read_version(&file, &line, &is_version);
    int result = -1;
    if (is_version) {
        result = load_lines(&file, version);
    } else {
        HBS_LOG(HBS_ERROR,
                "HOSTBASE: hbs_nv_load_clients: %s File format error, first line:%s. it should be like "
                "'version *'.",
                HBS_CLIENT_FILE, line);
        version = 0;
    }
    if (version < FILE_VERSION)
        hbs_nv_save_clients();
    return result;
}

void hbs_nv_save_clients() {
    if (access(HBS_PERSISTENT_DIR, F_OK) != 0) { // no client is said to be saved then
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't replace %s (error %d)", HBS_CLIENT_FILE, errno);
        return;
    }
    char *content = nullptr;
    size_t length = 0;
    FILE *stream = open_memstream(&content, &length);
    if (stream == nullptr) {
        (void)hbs_file_replace(HBS_CLIENT_FILE, nullptr, 0);
        return;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_nv_save_clients: version %d", FILE_VERSION);
    (void)fputs(VERSION_LINE, stream);
    for (const hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
        save_client(stream, client);
    // No memory, also for the last piece alone (null): the old file is better than a part of the new one.
    const bool written = ferror(stream) == 0;
    const char *whole = fclose(stream) == 0 && written ? content : nullptr;
    (void)hbs_file_replace(HBS_CLIENT_FILE, whole, length);
    free(content);
}

void hbs_nv_update_client(const hbs_client *client) {
    HBS_LOG(HBS_DEBUG, "HOSTBASE:  - generate macstr");
    log_encoding(client);
    char new_line[HBS_CLIENT_LINE_SIZE];
    hbs_client_line_format(client, new_line);
    hbs_file_text file;
    char *old_line = nullptr;
    if (find_line(hbs_mac_to_text(client->mac).text, &file, &old_line) != 0)
        return;
    if (old_line == nullptr)
        append_line(new_line); // whatever the trust bits: the next update of an untrusted client removes it
    else if (client->trust != 0)
        replace_line(old_line, new_line);
    else
        delete_line(old_line);
}

void hbs_nv_forget_clients() {
    if (hbs_file_replace(HBS_CLIENT_FILE, VERSION_LINE, strlen(VERSION_LINE)) == 0)
        return;
    // No room for a second file beside it: what is to be forgotten goes first.
    (void)unlink(HBS_CLIENT_FILE);
    (void)hbs_file_replace(HBS_CLIENT_FILE, VERSION_LINE, strlen(VERSION_LINE));
}
