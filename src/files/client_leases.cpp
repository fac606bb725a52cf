// What the lease files say of a client.
#include "files/client_leases.h"

#include <cstdio>
#include <cstring>

#include "base/line_read.h"
#include "base/locked_file.h"
#include "base/log.h"
#include "base/scope.h"
#include "base/state.h"
#include "base/text.h"
#include "files/netbios_name.h"
#include "gateway/lease_files.h"
#include "gateway/own_macs.h"
#include "store/client_add.h"
#include "store/client_dates.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

// A client without a MAC has no lease, whatever placeholder lines the files hold.
bool has_static_lease(const hbs_client *client) {
    return !hbs_mac_is_zero(client->mac) && hbs_check_lease_get_ipv4_static_lease(client->mac, nullptr) == 0;
}

// Takes a host name and an address from a dynamic lease. The setters take the entries of an old address
// out of the indices.
int64_t apply_dynamic_lease(hbs_client *client) {
    char host[HBS_HOST_SIZE];
    uint8_t address[4];
    if (hbs_mac_is_zero(client->mac))
        return -1;
    const int64_t seconds = hbs_check_lease_get_ipv4_dynamic_lease(client->mac, host, address);
    if (seconds >= 0) {
        hbs_set_host(client, host);
        hbs_set_ipv4(client, address);
    }
    return seconds;
}

// Has NetBIOS asked for the name of a client that has an address. False when there is nothing to wait for.
bool ask_for_name(const hbs_client *client) {
    if (hbs_ipv4_is_zero(client->ipv4))
        return false;
    hbs_probe probe{};
    probe.kind = HBS_PROBE_NETBIOS;
    memcpy(probe.mac, client->mac, sizeof probe.mac);
    memcpy(probe.address, client->ipv4, sizeof client->ipv4);
    if (hbs_mac_is_zero(client->mac))
        memcpy(probe.ll, probe.address, sizeof probe.ll); // tells devices without MAC apart
    return hbs_probe_post(&probe);
}

void end_without_lease(hbs_client *client) {
    HBS_LOG(HBS_INFO, "HOSTBASE: no lease for %s", hbs_client_log_text(client).text);
}

} // namespace

void hbs_check_lease(hbs_client *client) {
    const bool has_static = has_static_lease(client);
    const int64_t seconds = apply_dynamic_lease(client);
    hbs_clear_flags(client, 0, HBS_FLAGS_IP4);
    if (has_static) {
        // A static lease in a file has no seconds, so whatever the board mode there is no lease to set.
        hbs_set_flags(client, 0, HBS_FLAG_STIP4);
        HBS_LOG(HBS_INFO, "HOSTBASE: found static lease for %s", hbs_client_log_text(client).text);
    } else if (seconds <= 0) {
        hbs_set_flags(client, 0, HBS_FLAG_USRIP4);
        if (!ask_for_name(client))
            end_without_lease(client);
    } else {
        hbs_set_flags(client, 0, HBS_FLAG_DYNIP4);
        hbs_lease_set(client, static_cast<uint32_t>(seconds));
        HBS_LOG(HBS_INFO, "HOSTBASE: found dynamic lease (%d) for %s", static_cast<int>(seconds),
                hbs_client_log_text(client).text);
    }
    hbs_publish_again(client); // one that no reader sees has no entries
}

// A lease that came while the device was asked has said all that there is to say, its name too.
void hbs_probe_netbios(const hbs_probe *probe, bool in_time) {
    char name[HBS_NETBIOS_LINE_SIZE];
    const bool told = in_time && hbs_netbios_ask(probe->mac, probe->address, name, sizeof name);
    const hbs_list_hold hold;
    const bool by_mac = !hbs_mac_is_zero(probe->mac);
    hbs_client *client = by_mac ? hbs_find_by_mac(probe->mac) : hbs_find_by_ipv4(probe->address);
    if (client == nullptr || (client->flags & HBS_FLAGS_IP4) != HBS_FLAG_USRIP4)
        return;
    if (told)
        hbs_netbios_take(client, name);
    end_without_lease(client);
    hbs_publish(client);
}

namespace {

void apply_static_address(hbs_client *client, const uint8_t address[4]) {
    hbs_set_ipv4(client, address);
    hbs_clear_flags(client, 0, HBS_FLAGS_IP4);
    hbs_set_flags(client, 0, HBS_FLAG_STIP4);
}

} // namespace

int hbs_check_static_ip(hbs_client *client) {
    uint8_t address[4];
    if (hbs_check_lease_get_ipv4_static_lease(client->mac, address) != 0)
        return 0;
    apply_static_address(client, address);
    HBS_LOG(HBS_INFO, "HOSTBASE: found static lease for %s", hbs_client_log_text(client).text);
    return 1;
}

int hbs_check_find_static_ip(hbs_client *client) {
    uint8_t address[4];
    if (hbs_check_lease_get_ipv4_static_lease_from_mac(client->mac, address) != 0)
        return 0;
    apply_static_address(client, address);
    HBS_LOG(HBS_INFO, "HOSTBASE: (%s) found static lease for %s", "hbs_check_find_static_ip",
            hbs_client_log_text(client).text);
    return 1;
}

namespace {

// A client from one line of a dynamic-lease file.
void add_leased_client(int group, const uint8_t mac[6], const uint8_t address[4],
                       const hbs_lease_record *record) {
    // Lines beyond the slots would fill the working copies with devices on line that nobody has seen.
    if (!hbs_slot_available()) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to alloc new client from shared memory");
        return;
    }
    hbs_client *client = hbs_add(mac);
    if (client == nullptr)
        return;
    hbs_set_nwidx(client, static_cast<uint8_t>(group));
    hbs_clear_flags(client, 0, HBS_FLAGS_IP4);
    const bool has_static = hbs_check_lease_get_ipv4_static_lease(mac, nullptr) == 0;
    hbs_set_flags(client, 0, has_static ? HBS_FLAG_STIP4 : HBS_FLAG_DYNIP4);
    hbs_set_ipv4(client, address);
    hbs_set_host(client, record->host);
    if (record->seconds != 0) {
        hbs_set_start_time(client);
        hbs_lease_set(client, record->seconds);
        hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
    }
    hbs_publish(client);
}

void handle_dynamic_lease(int group, const char *path, const hbs_lease_record *record) {
    HBS_LOG(HBS_INFO, "HOSTBASE: handle dynamic lease from file %s : %s, %s, %s, %d, %s, %s, %s", path,
            record->mac, record->address, record->host, static_cast<int>(record->number), record->text[0],
            record->text[1], record->text[2]);
    uint8_t mac[6];
    uint8_t address[4];
    if (hbs_text_to_mac(record->mac, mac) != 6)
        return;
    if (!hbs_mac_is_lan_client(mac)) {
        HBS_LOG(HBS_INFO, "HOSTBASE:  - ignore external mac %s, %s", record->mac, record->address);
        return;
    }
    if (hbs_lease_address(record->address, address))
        add_leased_client(group, mac, address, record);
}

void handle_dynamic_leases_of_group(int group) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_DYNAMIC, path) != 0)
        return;
    FILE *stream = hbs_locked_open(path, "r", hbs_lock::shared);
    if (stream == nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: can't open %s", path);
        return;
    }
    hbs_at_exit unlock([&] { (void)fclose(stream); });
    char line[HBS_LEASE_LINE_SIZE];
    hbs_lease_record record;
    while (hbs_line_read(stream, line, sizeof line))
        if (hbs_lease_record_parse(line, &record))
            handle_dynamic_lease(group, path, &record);
}

} // namespace

void hbs_handle_dynamic_leases_from_file() {
    for (int group = 0; group < HBS_LEASE_GROUPS; ++group)
        handle_dynamic_leases_of_group(group);
}

void hbs_lease_delete_client_static(const uint8_t mac[6]) {
    if (!hbs_mac_is_zero(mac))
        (void)hbs_lease_delete_ipv4_static(hbs_mac_to_text(mac).text);
}
