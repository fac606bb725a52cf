#include "linux_lans.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/line_read.h"
#include "base/paths.h"
#include "common_text.h"
#include "linux_log.h"

namespace {

constexpr uint32_t first_lan = 2; // LAN number of network 1
constexpr uint8_t prefix_bits = 64;

int number_of(const linux_lan_numbers *numbers, const char *name) {
    for (int i = 0; i < RNDDB_MAX_ENTRIES; i++)
        if (strcmp(numbers->name[i], name) == 0)
            return i + 1;
    return 0;
}

// The first place that is free; the settings' places are taken from the start.
int free_number(const linux_lan_numbers *numbers) {
    return number_of(numbers, "");
}

bool has_static_leases(const linux_address *address) {
    char text[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, address->bytes, text, sizeof text);
    char path[128];
    (void)snprintf(path, sizeof path, "%s%s%s", HBS_STATIC_LEASES_BEFORE, text, HBS_STATIC_LEASES_AFTER);
    struct stat file;
    return stat(path, &file) == 0 && file.st_size > 0;
}

// The IPv4 address that a network is known by, null = it has none. Static leases are kept by it, so one that
// has some stays the network's, also when it went and came back behind the others.
const linux_address *own_address(const linux_view *view, const linux_link *link) {
    const linux_address *first = nullptr;
    for (size_t i = 0; i < view->addresses; i++) {
        const linux_address *address = &view->address[i];
        if (address->link != link->index || address->family != AF_INET)
            continue;
        if (has_static_leases(address))
            return address;
        if (first == nullptr)
            first = address;
    }
    return first;
}

bool add_other(common_router_entry *entry, const linux_address *address) {
    if (entry->others == COMMON_ROUTER_OTHERS)
        return false;
    common_router_subnet *subnet = &entry->other[entry->others++];
    subnet->family = address->family;
    subnet->length = address->length;
    memcpy(subnet->address, address->bytes, sizeof subnet->address);
    return true;
}

// The network's own IPv4 address and the first prefix of 64 bits are published; devices in the others are
// found too. Returns whether there was room.
bool add_subnet(common_router_entry *entry, const linux_address *address, const linux_address *own) {
    rnddb_params *params = &entry->params;
    if (address == own) {
        memcpy(params->ipv4, address->bytes, sizeof params->ipv4);
        params->prefix_length = address->length;
        return true;
    }
    if (address->family == AF_INET6 && address->length == prefix_bits && params->ipv6_enabled == 0) {
        memcpy(params->ipv6_prefix, address->bytes, sizeof params->ipv6_prefix);
        params->ipv6_enabled = 1;
        return true;
    }
    return add_other(entry, address);
}

// Returns whether all its subnets are in it.
bool fill_entry(const linux_view *view, const linux_conf *conf, const linux_link *link, int number,
                common_router_entry *entry) {
    entry->params.rndidx = number;
    memcpy(entry->params.ifname, link->name, sizeof entry->params.ifname);
    entry->params.lan_number = static_cast<uint32_t>(number) - 1 + first_lan;
    entry->routed = 1;
    const linux_pool *pool = &conf->pool[number - 1];
    memcpy(entry->params.pool_start, pool->first, sizeof pool->first);
    memcpy(entry->params.pool_end, pool->last, sizeof pool->last);
    entry->has_lease_time = conf->lease_time[number - 1].given;
    entry->params.lease_time = conf->lease_time[number - 1].value;
    const linux_address *own = own_address(view, link);
    bool whole = true;
    for (size_t i = 0; i < view->addresses; i++)
        if (view->address[i].link == link->index)
            whole = add_subnet(entry, &view->address[i], own) && whole;
    return whole;
}

// Said of a network once while it is so. One thread calls it.
void tell_of_subnets(int number, const char *name, bool whole) {
    static bool said[RNDDB_MAX_ENTRIES];
    if (!whole && !said[number - 1])
        linux_log(3, "%s has more subnets than can be told apart", name);
    said[number - 1] = !whole;
}

} // namespace

namespace {

// A name that stands in the settings and in the file has the settings' number.
void take_line(const char *line, linux_lan_numbers *numbers) {
    unsigned number = 0;
    char name[IFNAMSIZ];
    if (sscanf(line, "%3u %15s", &number, name) == 2 && number >= 1 && number <= RNDDB_MAX_ENTRIES &&
        numbers->name[number - 1][0] == '\0' && number_of(numbers, name) == 0)
        (void)common_copy_whole(numbers->name[number - 1], IFNAMSIZ, name);
}

} // namespace

bool linux_lan_numbers_load(const char *path, const linux_conf *conf, linux_lan_numbers *numbers) {
    memcpy(numbers->name, conf->network, sizeof numbers->name);
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return errno == ENOENT;
    char line[64];
    while (hbs_line_read(file, line, sizeof line))
        take_line(line, numbers);
    const bool whole = ferror(file) == 0;
    (void)fclose(file);
    return whole;
}

bool linux_lan_numbers_give(const linux_view *view, const linux_conf *conf, linux_lan_numbers *numbers,
                            linux_left_out *left_out) {
    bool given = false;
    left_out->count = 0;
    for (size_t i = 0; i < view->links; i++) {
        const linux_link *link = &view->link[i];
        if (!linux_is_lan(view, link, conf) || number_of(numbers, link->name) != 0)
            continue;
        const int number = free_number(numbers);
        if (number != 0)
            (void)common_copy_whole(numbers->name[number - 1], IFNAMSIZ, link->name);
        else if (left_out->count < sizeof left_out->name / sizeof left_out->name[0])
            (void)common_copy_whole(left_out->name[left_out->count++], IFNAMSIZ, link->name);
        given = given || number != 0;
    }
    return given;
}

namespace {

bool is_named(const linux_left_out *left_out, const char *name) {
    for (size_t i = 0; i < left_out->count; i++)
        if (strcmp(left_out->name[i], name) == 0)
            return true;
    return false;
}

} // namespace

void linux_left_out_log(const linux_left_out *left_out) {
    static linux_left_out last;
    for (size_t i = 0; i < left_out->count; i++)
        if (!is_named(&last, left_out->name[i]))
            linux_log(3, "%s is left out: there are %d networks already", left_out->name[i],
                      RNDDB_MAX_ENTRIES);
    last = *left_out;
}

bool linux_lan_numbers_save(const char *path, const linux_lan_numbers *numbers) {
    char beside[256];
    (void)snprintf(beside, sizeof beside, "%s.new", path);
    FILE *file = fopen(beside, "we");
    if (file == nullptr)
        return false;
    for (int i = 0; i < RNDDB_MAX_ENTRIES; i++)
        if (numbers->name[i][0] != '\0')
            (void)fprintf(file, "%d %s\n", i + 1, numbers->name[i]);
    bool written = fflush(file) == 0 && fsync(fileno(file)) == 0;
    written = fclose(file) == 0 && written;
    return written && rename(beside, path) == 0;
}

const linux_link *linux_lan_numbered(const linux_view *view, const linux_conf *conf,
                                     const linux_lan_numbers *numbers, unsigned number) {
    const char *name = numbers->name[number - 1];
    const linux_link *link = name[0] != '\0' ? linux_link_named(view, name) : nullptr;
    return link != nullptr && linux_is_lan(view, link, conf) ? link : nullptr;
}

void linux_lans_table(const linux_view *view, const linux_conf *conf, const linux_lan_numbers *numbers,
                      common_router_table *table) {
    *table = {};
    table->usable = true;
    for (int number = 1; number <= RNDDB_MAX_ENTRIES; number++) {
        const linux_link *link = linux_lan_numbered(view, conf, numbers, static_cast<unsigned>(number));
        const bool whole =
            link == nullptr || fill_entry(view, conf, link, number, &table->entry[table->count++]);
        tell_of_subnets(number, numbers->name[number - 1], whole);
    }
}
