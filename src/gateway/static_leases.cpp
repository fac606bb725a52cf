// Edits of the static-lease and host-record files. What the `sed` commands in the messages would leave is
// what is left, except that a text is matched as it stands, never as a pattern.
#include "gateway/static_leases.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <sys/types.h>

#include <commonutils.h>

#include "base/line_edit.h"
#include "base/locked_file.h"
#include "base/log.h"
#include "base/scope.h"
#include "base/text.h"
#include "gateway/lease_files.h"

namespace {

constexpr mode_t STATIC_FILE_MODE = 0755;
constexpr size_t FIELDS_SIZE = 6 * HBS_LEASE_LINE_SIZE + 32; // six words and two numbers of a record

// A text as one word of a host record.
struct record_word {
    char text[200];
};

// The line that carries an index, and what it becomes.
struct index_edit {
    char index[16];  // blank and number, as they follow the address
    char lease[128]; // "MAC address"
    char edited[128 + HBS_LEASE_LINE_SIZE];
};

// A blank or a newline in a host name would end its field or its line, and with it the record's shape.
record_word word_of(const char *text) {
    record_word word{};
    hbs_copy_text(word.text, sizeof word.text, text[0] != 0 ? text : "null");
    for (char *c = word.text; *c != 0; ++c)
        if (isspace(static_cast<unsigned char>(*c)))
            *c = '_';
    return word;
}

int write_host_record(int group, const hbs_static_lease *lease) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_HOST, path) != 0)
        return -1;
    char record[HBS_LEASE_LINE_SIZE];
    (void)snprintf(record, sizeof record, "%s %s 0 %s %d %s %s %s\n", lease->mac, lease->address,
                   word_of(lease->host).text, lease->number, word_of(lease->text[0]).text,
                   word_of(lease->text[1]).text, word_of(lease->text[2]).text);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_lease_add_ipv4_static: add %s to file %s", record, path);
    const int tail = hbs_file_tail(path);
    if (tail < 0 || (tail > 0 && COMMONUTILS_file_write(path, "\n") != 0))
        return -1;
    return COMMONUTILS_file_write(path, record) == 0 ? 0 : -1;
}

} // namespace

int hbs_lease_add_ipv4_static(int group, const hbs_static_lease *lease) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_STATIC, path) != 0)
        return -1;
    char line[128];
    if (lease->index != 0)
        (void)snprintf(line, sizeof line, "%s %s %u", lease->mac, lease->address, lease->index);
    else
        (void)snprintf(line, sizeof line, "%s %s", lease->mac, lease->address);
    // In place: a server that waits for the lock meanwhile goes on with the file that stays.
    if (hbs_line_append_in_place(path, line, STATIC_FILE_MODE) != 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't write %s", path);
        return -1;
    }
    return write_host_record(group, lease);
}

namespace {

// First lease that matches, as the text that its line holds. Returns whether there is one.
bool find_static_line(const char *path, const hbs_lease_search *search, char text[FIELDS_SIZE]) {
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::exclusive);
    if (stream == nullptr)
        return false;
    hbs_at_exit unlock([&] { (void)fclose(stream); }); // the edit takes the lock itself
    hbs_static_line lease;
    if (!hbs_static_line_find(stream, search, &lease))
        return false;
    (void)snprintf(text, FIELDS_SIZE, "%s %s", lease.mac, lease.address);
    return true;
}

// First record that matches, as the text that its line holds. Returns whether there is one.
bool find_host_record(const char *path, const hbs_lease_search *search, char text[FIELDS_SIZE]) {
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::exclusive);
    if (stream == nullptr)
        return false;
    hbs_at_exit unlock([&] { (void)fclose(stream); });
    hbs_lease_record record;
    if (!hbs_lease_record_find(stream, search, &record))
        return false;
    (void)snprintf(text, FIELDS_SIZE, "%s %s %u %s %u %s %s %s", record.mac, record.address, record.seconds,
                   record.host, record.number, record.text[0], record.text[1], record.text[2]);
    return true;
}

using line_finder = bool (*)(const char *path, const hbs_lease_search *search, char text[FIELDS_SIZE]);

// The two files that hold static leases, and how their lines are looked for.
constexpr struct {
    hbs_lease_kind kind;
    line_finder find;
} EDITED_FILES[] = {{HBS_LEASE_STATIC, find_static_line}, {HBS_LEASE_HOST, find_host_record}};

// Returns whether a line is gone now.
bool delete_first(const char *path, line_finder find, const hbs_lease_search *search) {
    char text[FIELDS_SIZE];
    if (!find(path, search, text))
        return false;
    char command[FIELDS_SIZE + HBS_LEASE_PATH_SIZE + 16];
    (void)snprintf(command, sizeof command, "sed -i '/%s/d' %s", text, path);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_lease_delete_ipv4_static: execute cmd : %s", command);
    size_t deleted = 0;
    return hbs_lines_delete_containing(path, text, &deleted) == 0 && deleted > 0;
}

void delete_in_all_groups(const hbs_lease_search *search, bool every) {
    for (int group = 0; group < HBS_LEASE_GROUPS; ++group) {
        for (const auto &file : EDITED_FILES) {
            char path[HBS_LEASE_PATH_SIZE];
            if (hbs_lease_filename(group, file.kind, path) != 0)
                continue;
            while (delete_first(path, file.find, search) && every) {}
        }
    }
}

} // namespace

void hbs_lease_clear_leftovers() {
    for (int group = 0; group < HBS_LEASE_GROUPS; ++group) {
        for (const auto &file : EDITED_FILES) {
            char path[HBS_LEASE_PATH_SIZE];
            if (hbs_lease_filename(group, file.kind, path) == 0)
                hbs_file_clear_leftover(path);
        }
    }
}

namespace {

void delete_by_mac(const char *mac_text, bool every) {
    uint8_t mac[6];
    const hbs_lease_search search = {mac, nullptr, false};
    if (hbs_text_to_mac(mac_text, mac) == 6)
        delete_in_all_groups(&search, every);
}

void delete_by_address(const char *address_text, bool every) {
    uint8_t address[4];
    const hbs_lease_search search = {nullptr, address, false};
    if (hbs_lease_address(address_text, address))
        delete_in_all_groups(&search, every);
}

} // namespace

int hbs_lease_delete_ipv4_static(const char *mac_text) {
    delete_by_mac(mac_text, false);
    return 0;
}

int hbs_lease_delete_ipv4_static_by_ip(const char *address_text) {
    delete_by_address(address_text, false);
    return 0;
}

void hbs_lease_delete_all_ipv4_static(const char *mac_text) {
    delete_by_mac(mac_text, true);
}

void hbs_lease_delete_all_ipv4_static_by_ip(const char *address_text) {
    delete_by_address(address_text, true);
}

namespace {

// What 's/.* .* N/MAC ADDRESS N/g' does to a line: everything up to the last blank that N follows, with
// another blank somewhere before it, becomes the lease; what comes after the number stays. So a line whose
// index only begins with N is rewritten too, which is kept.
hbs_line_action rewrite_index(const char *line, size_t length, const char **replacement, void *context) {
    auto *edit = static_cast<index_edit *>(context);
    const size_t digits = strlen(edit->index);
    const char *first_blank = static_cast<const char *>(memchr(line, ' ', length));
    // A line too long for a lease, or with a NUL in it, is not the server's.
    if (first_blank == nullptr || length < digits || length >= HBS_LEASE_LINE_SIZE ||
        memchr(line, 0, length) != nullptr)
        return hbs_line_action::keep;
    const char *at = line + length - digits;
    while (at > first_blank && memcmp(at, edit->index, digits) != 0)
        --at;
    if (at <= first_blank)
        return hbs_line_action::keep;
    (void)snprintf(edit->edited, sizeof edit->edited, "%s%.*s", edit->lease,
                   static_cast<int>(line + length - at), at);
    *replacement = edit->edited;
    return hbs_line_action::replace;
}

// Returns -1 when there is no such file. What becomes of the line is not asked for.
int update_static_line(int group, const hbs_static_lease *lease) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_STATIC, path) != 0)
        return -1;
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::exclusive);
    if (stream == nullptr)
        return -1;
    (void)fclose(stream); // the edit takes the lock itself
    index_edit edit;
    (void)snprintf(edit.index, sizeof edit.index, " %d", static_cast<int>(lease->index));
    (void)snprintf(edit.lease, sizeof edit.lease, "%s %s", lease->mac, lease->address);
    (void)hbs_lines_edit(path, rewrite_index, &edit);
    return 0;
}

void delete_updated_host(int group, const hbs_static_lease *lease) {
    uint8_t mac[6];
    uint8_t address[4];
    char path[HBS_LEASE_PATH_SIZE];
    char text[FIELDS_SIZE];
    const hbs_lease_search search = {mac, address, true};
    if (hbs_text_to_mac(lease->mac, mac) != 6 || !hbs_lease_address(lease->address, address) ||
        hbs_lease_filename(group, HBS_LEASE_HOST, path) != 0 || !find_host_record(path, &search, text))
        return;
    (void)hbs_lines_delete_containing(path, text, nullptr);
}

} // namespace

int hbs_lease_update_ipv4_static(int group, const hbs_static_lease *lease) {
    if (update_static_line(group, lease) != 0)
        return -1;
    delete_updated_host(group, lease);
    return write_host_record(group, lease);
}

namespace {

// Looks the pair up in one group's file; returns whether it is there.
bool find_pair(int group, const hbs_lease_search *search, hbs_static_line *lease) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_STATIC, path) != 0)
        return false;
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::shared);
    if (stream == nullptr)
        return false;
    hbs_at_exit unlock([&] { (void)fclose(stream); });
    return hbs_static_line_find(stream, search, lease);
}

} // namespace

int hbs_lease_get_static_index(int group, const char *mac_text, const char *address_text, uint32_t *index,
                               bool *found) {
    uint8_t mac[6];
    uint8_t address[4];
    const hbs_lease_search search = {mac, address, false};
    hbs_static_line lease;
    const bool there = hbs_text_to_mac(mac_text, mac) == 6 && hbs_lease_address(address_text, address) &&
                       find_pair(group, &search, &lease);
    *index = there ? lease.index : 0;
    if (found != nullptr)
        *found = there;
    return 0;
}
