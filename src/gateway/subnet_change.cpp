// The static leases of a network follow it to its new subnet.
#include "gateway/subnet_change.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include <commonutils.h>
#include <rnddb.h>

#include "base/line_read.h"
#include "base/locked_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/scope.h"
#include "base/scratch_file.h"
#include "base/text.h"
#include "gateway/lease_files.h"
#include "gateway/networks.h"
#include "gateway/userconf.h"

namespace {

constexpr size_t LINE_SIZE = 64;
constexpr uint32_t USERCONF_INSTANCE = 199; // + rndidx

// What a line is moved by. Addresses and masks in host order.
struct subnet_move {
    uint32_t rndidx;
    uint32_t new_address;
    uint32_t netmask;
    uint32_t start; // host parts of the DHCP range
    uint32_t end;
};

// Host part of an address of the network's router entry; 0 when it has none.
uint32_t host_part_of(uint32_t rndidx, const char *key, uint32_t netmask) {
    uint8_t address[4];
    if (RNDDB_inet4AddrGetWithKeyAndIndex(key, static_cast<int>(rndidx), address) != 0)
        return 0;
    return hbs_ipv4_to_number(address) & ~netmask;
}

// Whether the user configuration names either end of the network's DHCP range.
bool userconf_has_range(uint32_t rndidx) {
    if (rndidx < 1 || rndidx > HBS_LEASE_GROUPS) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: (%s)unknow nwidx:%u", "hbs_check_userconfig_get_dhcp_range", rndidx);
        return false;
    }
    const int instance = static_cast<int>(USERCONF_INSTANCE + rndidx);
    char address[16];
    return hbs_userconf_address(HBS_USERCONF_RANGE_13, instance, address) == 1 ||
           hbs_userconf_address(HBS_USERCONF_RANGE_11, instance, address) == 1;
}

// Writes one lease to the moved file, unless its host part lies outside the DHCP range and only those
// inside may move. False when it cannot be written.
bool move_line(const hbs_static_line *lease, const subnet_move *move, bool any_host_part, FILE *moved) {
    uint8_t address[4];
    if (!hbs_lease_address(lease->address, address))
        return true;
    const uint32_t host_part = hbs_ipv4_to_number(address) & ~move->netmask;
    if ((host_part < move->start || host_part > move->end) && !any_host_part) {
        HBS_LOG(HBS_INFO, "HOSTBASE: %s: " HBS_USERCONF " can't found DHCP configure",
                "hbs_lease_subnet4_changed");
        return true;
    }
    hbs_ipv4_from_number((move->new_address & move->netmask) | host_part, address);
    const hbs_addr_text text = hbs_ipv4_to_text(address);
    if (lease->index != 0)
        return fprintf(moved, "%s %s %d\n", lease->mac, text.text, static_cast<int>(lease->index)) > 0;
    return fprintf(moved, "%s %s\n", lease->mac, text.text) > 0;
}

// Fills HBS_MOVED_LEASES from the old file.
bool write_moved_leases(FILE *old_leases, const subnet_move *move) {
    FILE *moved = hbs_scratch_open(HBS_MOVED_LEASES);
    if (moved == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_lease_subnet4_changed: can't create new static lease file");
        return false;
    }
    const bool any_host_part = userconf_has_range(move->rndidx);
    char line[LINE_SIZE];
    hbs_static_line lease;
    bool written = true;
    while (hbs_line_read(old_leases, line, sizeof line))
        if (hbs_static_line_parse(line, &lease))
            written = move_line(&lease, move, any_host_part, moved) && written;
    return fclose(moved) == 0 && written && ferror(old_leases) == 0;
}

// Puts the moved leases into the file of the new address, beside what is there.
bool store_moved_leases(const char *old_path, const char *new_path) {
    HBS_LOG(HBS_INFO, "HOSTBASE: new lease filename %s\n", new_path);
    if (strcmp(old_path, new_path) == 0) // the old leases make way, and are locked already
        return COMMONUTILS_file_copy(HBS_MOVED_LEASES, new_path) == 0;
    FILE *there = hbs_locked_open(new_path, "r", hbs_lock::exclusive);
    if (there == nullptr && errno != ENOENT)
        return false;
    hbs_at_exit unlock([&] {
        if (there != nullptr)
            (void)fclose(there);
    });
    struct stat status;
    if (there == nullptr || fstat(fileno(there), &status) != 0 || status.st_size == 0)
        return COMMONUTILS_file_copy(HBS_MOVED_LEASES, new_path) == 0;
    HBS_LOG(HBS_INFO, "HOSTBASE: new lease filename already existed\n");
    return COMMONUTILS_file_append(HBS_MOVED_LEASES, new_path) == 0;
}

// From the old file to the new one. The old file goes last, so that a power cut loses no lease.
int move_leases(const char *old_path, const char *new_path, const subnet_move *move) {
    FILE *old_leases = hbs_locked_open(old_path, "r", hbs_lock::exclusive);
    if (old_leases == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_lease_subnet4_changed: no old static lease file");
        return -1;
    }
    hbs_at_exit unlock([&] { (void)fclose(old_leases); });
    hbs_at_exit drop_copy([] { (void)unlink(HBS_MOVED_LEASES); });
    if (!write_moved_leases(old_leases, move) || !store_moved_leases(old_path, new_path)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't move %s to %s", old_path, new_path);
        return -1;
    }
    if (strcmp(old_path, new_path) != 0)
        (void)unlink(old_path);
    return 0;
}

} // namespace

int hbs_lease_subnet4_changed(uint32_t rndidx, uint32_t old_address, uint32_t new_address,
                              uint32_t prefix_length) {
    HBS_LOG(HBS_INFO, "HOSTBASE: %s: rndidx %d oldip %x newip %x\n", "hbs_lease_subnet4_changed",
            static_cast<int>(rndidx), old_address, new_address);
    subnet_move move{};
    move.new_address = new_address;
    move.rndidx = rndidx;
    move.netmask = hbs_netmask_of(prefix_length);
    hbs_rnd_status = RNDDB_Read(0, 1); // the database has just changed
    if (hbs_rnd_status != 0) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_lease_subnet4_changed: can't read rnddb");
        return -1;
    }
    if (old_address == 0 || new_address == 0) { // a network without an address has no lease file
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_lease_subnet4_changed: no lease filename");
        return -1;
    }
    move.start = host_part_of(rndidx, "dhcpv4startaddress", move.netmask);
    move.end = host_part_of(rndidx, "dhcpv4endaddress", move.netmask);
    char old_path[HBS_LEASE_PATH_SIZE];
    char new_path[HBS_LEASE_PATH_SIZE];
    hbs_static_lease_filename(old_address, old_path);
    hbs_static_lease_filename(new_address, new_path);
    return move_leases(old_path, new_path, &move);
}
