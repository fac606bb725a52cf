// LAN-side device database: a copy of the SSIDs in the file of values, made by each LSDDB_Read.
#include <cerrno>
#include <cstring>
#include <pthread.h>

#include <lsddb.h>

#include "host_values.h"

namespace {

constexpr size_t most_devices = 64;

struct device_row {
    char device[16];
    int32_t group;
    int32_t enabled;
    char bridge[16];
};

struct device_table {
    bool usable;
    size_t count;
    device_row row[most_devices];
};

pthread_mutex_t database_mutex = PTHREAD_MUTEX_INITIALIZER;
device_table database;

// Device name of an entry "ssid.DEVICE.group" into name. Returns 1, 0 for another entry, -1 for a name too
// long.
int device_name(const host_entry *entry, char *name, size_t size) {
    const char *device = host_key_after(entry, "ssid.");
    const char *dot = device != nullptr ? strchr(device, '.') : nullptr;
    if (dot == nullptr || strcmp(dot, ".group") != 0)
        return 0;
    size_t length = static_cast<size_t>(dot - device);
    if (length == 0 || length >= size)
        return -1;
    memcpy(name, device, length);
    name[length] = '\0';
    return 1;
}

bool is_listed(const device_table *table, const char *device) {
    for (size_t i = 0; i < table->count; i++)
        if (strcmp(table->row[i].device, device) == 0)
            return true;
    return false;
}

bool read_device(device_row *row) {
    int64_t group = 0;
    int64_t enabled = 1;
    const char *enabled_text = host_value_with("ssid.%s.enabled", row->device);
    const char *bridge = host_value_with("ssid.%s.bridge", row->device);
    if (!common_text_to_number(host_value_with("ssid.%s.group", row->device), -1, INT32_MAX, &group))
        return false;
    if (enabled_text != nullptr && !common_text_to_number(enabled_text, 0, 1, &enabled))
        return false;
    row->group = static_cast<int32_t>(group);
    row->enabled = static_cast<int32_t>(enabled);
    return common_copy_whole(row->bridge, sizeof row->bridge, bridge != nullptr ? bridge : "l2sd0");
}

// Returns 0, or an error number for a file whose SSIDs cannot be understood.
int read_devices(device_table *table) {
    const host_entry *entry = nullptr;
    for (size_t i = 0; (entry = host_entry_at(i)) != nullptr; i++) {
        device_row row = {};
        int named = device_name(entry, row.device, sizeof row.device);
        if (named == 0 || (named == 1 && is_listed(table, row.device)))
            continue;
        if (named < 0 || !read_device(&row))
            return EINVAL;
        if (table->count == most_devices)
            return ENOSPC;
        table->row[table->count++] = row;
    }
    table->usable = true;
    return 0;
}

} // namespace

int LSDDB_Read(int, int) {
    device_table fresh = {};
    int result = 0;
    {
        host_values_hold hold;
        if (host_told_to_fail("LSDDB_Read", &result))
            return result;
        result = read_devices(&fresh);
    }
    if (result != 0)
        return result;
    (void)pthread_mutex_lock(&database_mutex);
    database = fresh;
    (void)pthread_mutex_unlock(&database_mutex);
    return 0;
}

int LSDDB_GetDevParams(const lsddb_key *key, lsddb_params *params) {
    int result = 0;
    if (host_call_fails("LSDDB_GetDevParams", &result))
        return result;
    if (key == nullptr || params == nullptr || key->type != LSDDB_KEY_DEVICE ||
        params->type != LSDDB_RECORD_DEVICE)
        return -1;
    result = -1;
    (void)pthread_mutex_lock(&database_mutex);
    for (size_t i = 0; database.usable && i < database.count; i++) {
        const device_row *row = &database.row[i];
        if (strncmp(row->device, key->device, sizeof key->device) != 0)
            continue;
        params->group = row->group;
        params->enabled = row->enabled;
        memcpy(params->bridge, row->bridge, sizeof params->bridge);
        result = 0;
    }
    (void)pthread_mutex_unlock(&database_mutex);
    return result;
}
