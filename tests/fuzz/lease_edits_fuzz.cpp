// Edits of the DHCPv4 server's files whatever stands in them: the first byte says which, a byte of 0xff ends
// the static leases, and the host records follow. Who deletes or prunes leaves each other line as it was.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "base/paths.h"
#include "fuzz_daemon.h"
#include "fuzz_text.h"
#include "gateway/lease_prune.h"
#include "gateway/static_leases.h"
#include "gateway/subnet_change.h"

namespace {

constexpr const char *leases = HBS_STATIC_LEASES_BEFORE "192.168.0.1" HBS_STATIC_LEASES_AFTER;
constexpr const char *hosts = HBS_STATIC_LEASES_BEFORE "192.168.0.1" HBS_HOST_RECORDS_AFTER;
constexpr const char *mac = "02:aa:00:00:00:01";
constexpr const char *address = "192.168.0.20";
constexpr uint32_t lan = 0xc0a80001;

std::string content_of(const char *path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Whether each line of `after` is one of `before`, in their order; empty ones aside.
bool is_part_of(const std::string &after, const std::string &before) {
    const std::vector<std::string> all = fuzz_parts(before, '\n');
    auto at = all.begin();
    for (const std::string &line : fuzz_parts(after, '\n')) {
        if (line.empty())
            continue;
        at = std::find(at, all.end(), line);
        if (at == all.end())
            return false;
        ++at;
    }
    return true;
}

const hbs_static_lease lease = {mac, address, "host", 1, {"001122", "serial", "class"}, 7};

void add() {
    (void)hbs_lease_add_ipv4_static(0, &lease);
}
void update() {
    (void)hbs_lease_update_ipv4_static(0, &lease);
}
void move() {
    (void)hbs_lease_subnet4_changed(1, lan, lan + 0x100, 24);
}
void delete_first() {
    (void)hbs_lease_delete_ipv4_static(mac);
}
void delete_first_by_ip() {
    (void)hbs_lease_delete_ipv4_static_by_ip(address);
}
void delete_all() {
    hbs_lease_delete_all_ipv4_static(mac);
}
void delete_all_by_ip() {
    hbs_lease_delete_all_ipv4_static_by_ip(address);
}
void prune() {
    hbs_lease_prune_static4(0, lan, 0xffffff00);
}

constexpr struct {
    void (*edit)();
    bool takes_away; // and does nothing else
} edits[] = {{add, false},
             {update, false},
             {move, false},
             {delete_first, true},
             {delete_first_by_ip, true},
             {delete_all, true},
             {delete_all_by_ip, true},
             {prune, true}};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const auto &chosen = edits[data[0] % std::size(edits)];
    const std::vector<std::string> files = fuzz_parts(fuzz_text(data + 1, size - 1), '\xff');
    const std::string records = files.size() > 1 ? files[1] : "";
    fuzz_write_file(leases, files[0].data(), files[0].size());
    fuzz_write_file(hosts, records.data(), records.size());
    const hbs_list_hold hold;
    chosen.edit();
    uint32_t index = 0;
    (void)hbs_lease_get_static_index(0, mac, address, &index, nullptr);
    if (chosen.takes_away)
        fuzz_expect(is_part_of(content_of(leases), files[0]) && is_part_of(content_of(hosts), records));
    return 0;
}
