#include "linux_conf.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fnmatch.h>
#include <iterator>
#include <pthread.h>
#include <strings.h>

#include <hbs_db.h>

#include "base/settings_line.h"
#include "common_text.h"
#include "linux_log.h"

namespace {

// Bridges that programs make for containers and virtual machines.
constexpr const char *others_bridges[] = {"docker*", "br-????????????", "virbr*", "lxcbr*", "lxdbr*",
                                          "cni*",    "podman*"};

bool add_name(linux_names *names, const char *name) {
    return names->count < LINUX_NAMES &&
           common_copy_whole(names->name[names->count], sizeof names->name[0], name) && ++names->count > 0;
}

bool read_names(const char *value, linux_names *names) {
    linux_names fresh = {};
    char word[sizeof names->name[0]];
    int more = 0;
    while ((more = common_next_word(&value, word, sizeof word)) == 1)
        if (!add_name(&fresh, word))
            return false;
    if (more == 0)
        *names = fresh;
    return more == 0;
}

bool read_path(const char *value, char path[LINUX_PATH]) {
    if (strcmp(value, "none") == 0)
        value = "";
    return (*value == '\0' || *value == '/') && common_copy_whole(path, LINUX_PATH, value);
}

bool read_truth(const char *value, bool *truth) {
    const bool yes = strcasecmp(value, "yes") == 0;
    if (yes || strcasecmp(value, "no") == 0)
        *truth = yes;
    return yes || strcasecmp(value, "no") == 0;
}

bool read_number(const char *value, linux_number *number) {
    linux_number fresh = {true, 0};
    const bool understood = common_text_to_u32(value, &fresh.value);
    if (understood)
        *number = fresh;
    return understood;
}

bool read_level(const char *value, uint32_t *level) {
    static constexpr struct {
        const char *word;
        uint32_t code;
    } levels[] = {{"fatal", 0}, {"alert", 1}, {"error", 3}, {"info", 9}, {"debug", 15}};
    for (const auto &known : levels)
        if (strcasecmp(known.word, value) == 0) {
            *level = known.code;
            return true;
        }
    return false;
}

bool read_pool(const char *value, linux_pool *pool) {
    const bool understood = common_text_to_pool(value, pool->first, pool->last);
    pool->given = pool->given || understood;
    return understood;
}

bool read_log(const char *value, bool *syslog) {
    const bool to_syslog = strcmp(value, "syslog") == 0;
    if (to_syslog || strcmp(value, "stderr") == 0)
        *syslog = to_syslog;
    return to_syslog || strcmp(value, "stderr") == 0;
}

// The number behind a prefix of a key, from 1 to `highest`, and what follows it (at most a dot and a word).
bool numbered(const char *key, const char *prefix, unsigned highest, unsigned *number, const char **rest) {
    if (strncmp(key, prefix, strlen(prefix)) != 0)
        return false;
    int length = 0;
    if (sscanf(key + strlen(prefix), "%3u%n", number, &length) != 1 || *number < 1 || *number > highest)
        return false;
    *rest = key + strlen(prefix) + length;
    return true;
}

bool take_numbered(const char *key, const char *value, linux_conf *conf) {
    unsigned number = 0;
    const char *rest = "";
    if (numbered(key, "port.", EXTSWT_PORTS, &number, &rest) && *rest == '\0')
        return common_copy_whole(conf->port[number - 1], IFNAMSIZ, value);
    if (numbered(key, "ssid.", LINUX_SSIDS, &number, &rest) && *rest == '\0')
        return common_copy_whole(conf->ssid[number - 1], IFNAMSIZ, value);
    if (!numbered(key, "network.", RNDDB_MAX_ENTRIES, &number, &rest))
        return false;
    if (*rest == '\0')
        return common_copy_whole(conf->network[number - 1], IFNAMSIZ, value);
    if (strcmp(rest, ".pool") == 0)
        return read_pool(value, &conf->pool[number - 1]);
    return strcmp(rest, ".lease_time") == 0 && read_number(value, &conf->lease_time[number - 1]);
}

bool take_word(const char *key, const char *value, linux_conf *conf) {
    if (strcmp(key, "log.to") == 0)
        return read_log(value, &conf->syslog);
    if (strcmp(key, "log.level") == 0)
        return read_level(value, &conf->level);
    return strcmp(key, "presence") == 0 && read_truth(value, &conf->presence);
}

bool take(const char *key, const char *value, linux_conf *conf) {
    const struct {
        const char *key;
        linux_names *names;
    } lists[] = {{"wan", &conf->wan}, {"ignore", &conf->ignore}, {"wifi", &conf->wifi}};
    for (const auto &known : lists)
        if (strcmp(known.key, key) == 0)
            return read_names(value, known.names);
    const struct {
        const char *key;
        char *path;
    } paths[] = {{"events", conf->events},
                 {"hostapd", conf->hostapd},
                 {"dhcp.hosts", conf->dhcp_hosts},
                 {"dhcp.pid", conf->dhcp_pid},
                 {"dhcp.leases", conf->dhcp_leases}};
    for (const auto &known : paths)
        if (strcmp(known.key, key) == 0)
            return read_path(value, known.path);
    const struct {
        const char *key;
        linux_number *number;
    } numbers[] = {{"wifi.settle", &conf->wifi_settle},
                   {"flaplist.enable", &conf->flap_enable},
                   {"flaplist.dhcp_interval", &conf->flap_dhcp_interval},
                   {"flaplist.wlan_interval", &conf->flap_wlan_interval},
                   {"flaplist.report_period", &conf->flap_report_period}};
    for (const auto &known : numbers)
        if (strcmp(known.key, key) == 0)
            return read_number(value, known.number);
    return take_numbered(key, value, conf) || take_word(key, value, conf);
}

void complain(linux_complaints *complaints, unsigned line, const char *key) {
    if (complaints->count < LINUX_COMPLAINTS) {
        auto &item = complaints->item[complaints->count];
        item.line = line;
        (void)snprintf(item.key, sizeof item.key, "%s", key);
    }
    complaints->count++;
}

void take_line(char *line, unsigned number, linux_conf *conf, linux_complaints *complaints) {
    hbs_cut_comment(line);
    char *key = hbs_without_blanks(line);
    if (*key == '\0')
        return;
    char *equals = strchr(key, '=');
    if (equals != nullptr)
        *equals = '\0';
    key = hbs_without_blanks(key);
    if (equals == nullptr || !take(key, hbs_without_blanks(equals + 1), conf))
        complain(complaints, number, key);
}

linux_conf settings;
linux_complaints settings_complaints;
pthread_once_t once = PTHREAD_ONCE_INIT;

void read_settings() {
    linux_conf_preset(&settings);
    linux_conf_parse(LINUX_CONF_FILE, &settings, &settings_complaints);
}

} // namespace

void linux_conf_preset(linux_conf *conf) {
    *conf = {};
    conf->level = 3;
    conf->presence = true;
    for (const char *pattern : others_bridges)
        (void)add_name(&conf->ignore, pattern);
    (void)common_copy_whole(conf->events, LINUX_PATH, HBS_RUNTIME_DIR "/events");
    (void)common_copy_whole(conf->hostapd, LINUX_PATH, "/run/hostapd");
    (void)common_copy_whole(conf->dhcp_hosts, LINUX_PATH, HBS_PERSISTENT_DIR "/dhcp-hosts");
    (void)common_copy_whole(conf->dhcp_pid, LINUX_PATH, "/run/dnsmasq/dnsmasq.pid");
}

void linux_conf_parse(const char *path, linux_conf *conf, linux_complaints *complaints) {
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return;
    char line[HBS_SETTINGS_LINE_SIZE];
    for (unsigned number = 1; fgets(line, sizeof line, file) != nullptr; number++) {
        const bool whole = strchr(line, '\n') != nullptr || feof(file) != 0;
        if (whole) {
            take_line(line, number, conf, complaints);
            continue;
        }
        complain(complaints, number, "a line that is too long");
        for (int c = 0; (c = fgetc(file)) != '\n' && c != EOF;) {}
    }
    (void)fclose(file);
}

const linux_conf *linux_settings() {
    (void)pthread_once(&once, read_settings);
    return &settings;
}

void linux_settings_complain() {
    (void)linux_settings();
    const size_t told = std::min(settings_complaints.count, LINUX_COMPLAINTS);
    for (size_t i = 0; i < told; i++)
        linux_log(3, "%s:%u: \"%s\" makes no sense, passed over", LINUX_CONF_FILE,
                  settings_complaints.item[i].line, settings_complaints.item[i].key);
    if (settings_complaints.count > told)
        linux_log(3, "%s: %zu more lines make no sense", LINUX_CONF_FILE, settings_complaints.count - told);
}

bool linux_names_match(const linux_names *names, const char *name) {
    for (size_t i = 0; i < names->count; i++)
        if (fnmatch(names->name[i], name, 0) == 0)
            return true;
    return false;
}
