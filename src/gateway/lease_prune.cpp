// Pruning of the dynamic-lease and static-lease files.
#include "gateway/lease_prune.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <commonutils.h>

#include "base/line_read.h"
#include "base/locked_file.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/scope.h"
#include "base/scratch_file.h"
#include "base/text.h"
#include "gateway/lease_files.h"

namespace {

// Kept: of each complete 1024-byte block only the first byte is copied, and a last partial block not at
// all, so that a prune in effect empties the lease file and the server's clients ask anew.
bool copy_blocks(FILE *from, FILE *to) {
    char block[1024];
    for (size_t count; (count = fread(block, sizeof block, 1, from)) == 1;)
        if (fwrite(block, count, 1, to) != 1)
            return false;
    return ferror(from) == 0 && fflush(to) == 0;
}

bool in_range(const hbs_static_line *line, uint32_t start, uint32_t end) {
    uint8_t address[4];
    if (!hbs_lease_address(line->address, address))
        return false;
    const uint32_t number = hbs_ipv4_to_number(address);
    return number >= start && number <= end;
}

// Writes the lines of the copy that lie in the range to the lease file. Returns whether that worked.
bool write_back(FILE *copy, FILE *leases, uint32_t start, uint32_t end) {
    char line[HBS_LEASE_LINE_SIZE];
    hbs_static_line words; // MAC and address lead the line, as in a static-lease file
    bool written = true;
    while (hbs_line_read(copy, line, sizeof line)) {
        if (hbs_static_line_parse(line, &words) && in_range(&words, start, end)) {
            HBS_LOG(HBS_INFO, "HOSTBASE: hbs_lease_prune_host4: keeping %s", line);
            written = fprintf(leases, "%s\n", line) > 0 && written;
        } else {
            HBS_LOG(HBS_INFO, "HOSTBASE: hbs_lease_prune_host4: discarding %s", line);
        }
    }
    return fflush(leases) == 0 && written;
}

} // namespace

// The server keeps its lease file open, so it is rewritten in place and not replaced.
void hbs_lease_prune_host4(int group, uint32_t start, uint32_t end) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_DYNAMIC, path) != 0)
        return;
    FILE *leases = hbs_locked_open(path, "r+", hbs_lock::exclusive);
    if (leases == nullptr)
        return;
    hbs_at_exit unlock([&] { (void)fclose(leases); });
    FILE *copy = hbs_scratch_open(HBS_DYNAMIC_LEASES_COPY);
    if (copy == nullptr)
        return;
    hbs_at_exit drop_copy([&] {
        (void)fclose(copy);
        (void)unlink(HBS_DYNAMIC_LEASES_COPY);
    });
    if (!copy_blocks(leases, copy)) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't copy %s (error %d)", path, errno);
        return;
    }
    rewind(leases);
    rewind(copy);
    if (ftruncate(fileno(leases), 0) != 0 || !write_back(copy, leases, start, end))
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't write %s (error %d)", path, errno);
}

namespace {

// Whether an address is one of a subnet's hosts other than the gateway.
bool is_lan_host(const hbs_static_line *line, uint32_t lan_address, uint32_t netmask) {
    uint8_t address[4];
    if (!hbs_lease_address(line->address, address))
        return false;
    const uint32_t number = hbs_ipv4_to_number(address);
    return (number & netmask) == (lan_address & netmask) && number != lan_address &&
           number != (lan_address & netmask) && number != (lan_address | ~netmask);
}

bool is_placeholder(const hbs_static_line *line) {
    return strcmp(line->mac, "00:00:00:00:00:00") == 0 || strcmp(line->address, "0.0.0.0") == 0;
}

// Whether a line stays in the static-lease file. Both messages name the dynamic prune, and a placeholder
// stays although it is logged as discarded; both are kept.
bool static_line_stays(const char *line, uint32_t lan_address, uint32_t netmask) {
    hbs_static_line lease;
    const bool parsed = hbs_static_line_parse(line, &lease);
    if (parsed && is_lan_host(&lease, lan_address, netmask)) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_lease_prune_host4: keeping %s", line);
        return true;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_lease_prune_host4: discarding %s", line);
    return parsed && is_placeholder(&lease);
}

bool copy_static_lines(FILE *leases, uint32_t lan_address, uint32_t netmask) {
    FILE *copy = hbs_scratch_open(HBS_STATIC_LEASES_COPY);
    if (copy == nullptr)
        return false;
    char line[HBS_LEASE_LINE_SIZE];
    bool written = true;
    while (hbs_line_read(leases, line, sizeof line))
        if (static_line_stays(line, lan_address, netmask))
            written = fprintf(copy, "%s\n", line) > 0 && written;
    return fclose(copy) == 0 && written && ferror(leases) == 0;
}

} // namespace

void hbs_lease_prune_static4(int group, uint32_t address, uint32_t netmask) {
    char path[HBS_LEASE_PATH_SIZE];
    if (hbs_lease_filename(group, HBS_LEASE_STATIC, path) != 0)
        return;
    FILE *leases = hbs_locked_open(path, "r", hbs_lock::exclusive);
    if (leases == nullptr)
        return;
    hbs_at_exit unlock([&] { (void)fclose(leases); });
    if (!copy_static_lines(leases, address, netmask) ||
        COMMONUTILS_file_copy(HBS_STATIC_LEASES_COPY, path) != 0)
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't write %s", path);
    (void)unlink(HBS_STATIC_LEASES_COPY);
}
