// The published database, written to the log. Entries counted and counts kept are printed side by side on
// purpose: a difference shows a lost entry.
#include "store/dump.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/scope.h"
#include "store/client_text.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/rule_index.h"
#include "store/segment.h"
#include "store/slots.h"

namespace {

constexpr size_t LINE_SIZE = 512;

// Elements of a shared list for a range-based loop.
template <typename Entry> struct listed {
    hbs_pool pool;
    struct iterator {
        hbs_pool pool;
        const Entry *entry;
        const Entry &operator*() const { return *entry; }
        void operator++() { entry = static_cast<const Entry *>(hbs_list_next(pool, entry)); }
        bool operator!=(const iterator &other) const { return entry != other.entry; }
    };
    iterator begin() const { return {pool, static_cast<const Entry *>(hbs_list_first(pool))}; }
    iterator end() const { return {pool, nullptr}; }
};

void dump_clients() {
    char line[LINE_SIZE];
    int count = 0;
    for (const hbs_slot *slot = hbs_slot_first(); slot != nullptr; slot = hbs_slot_after(slot)) {
        count++;
        HBS_LOG(HBS_INFO, "HOSTBASE: CLIENT # %04d is %s", count,
                hbs_client_to_str(&slot->record, line, sizeof line));
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: ****** Total %d clients ******", count);
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

void dump_ip_index() {
    char line[LINE_SIZE];
    int count = 0;
    for (const hbs_ip_entry &entry : listed<hbs_ip_entry>{hbs_pool::ip}) {
        count++;
        HBS_LOG(HBS_INFO, "HOSTBASE: IPIDX # %04d %s", count, hbs_ip_entry_to_str(&entry, line, sizeof line));
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: ****** Total %d ip indices ******", count);
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

void dump_if_index() {
    char line[LINE_SIZE];
    int count = 0;
    for (const hbs_if_entry &entry : listed<hbs_if_entry>{hbs_pool::interface}) {
        count++;
        HBS_LOG(HBS_INFO, "HOSTBASE: IFIDX # %04d  %s", count,
                hbs_if_entry_to_str(&entry, line, sizeof line));
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: ****** Total %d if indices ******", count);
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

int count_clients_of(int network) {
    int count = 0;
    for (const hbs_if_entry &entry : listed<hbs_if_entry>{hbs_pool::interface})
        count += entry.key[0] == hbs_network_key(network) ? 1 : 0;
    return count;
}

void dump_networks() {
    for (int network = 0; network < HBS_NETWORKS; network++) {
        hbs_instance_map map = hbs_rnd_map(network);
        HBS_LOG(HBS_INFO, "HOSTBASE: RND # %02d client count: %d  map: %08x %08x %08x %08x", network + 1,
                count_clients_of(network), map.word[3], map.word[2], map.word[1], map.word[0]);
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

void dump_pri_index() {
    char line[LINE_SIZE];
    int count = 0;
    for (const hbs_pri_entry &entry : listed<hbs_pri_entry>{hbs_pool::primary}) {
        count++;
        HBS_LOG(HBS_INFO, "HOSTBASE: PRIIDX # %04d %s", count,
                hbs_pri_entry_to_str(&entry, line, sizeof line));
    }
    hbs_instance_map map = hbs_pri_map();
    HBS_LOG(HBS_INFO, "HOSTBASE: PRIIDX map: %08x %08x %08x %08x", map.word[3], map.word[2], map.word[1],
            map.word[0]);
    HBS_LOG(HBS_INFO, "HOSTBASE: ****** Total %d/%d primary indices ******", count,
            static_cast<int>(hbs_pri_count()));
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

void dump_dhcp_option_index() {
    char line[LINE_SIZE];
    int count = 0;
    for (const hbs_ip_entry &entry : listed<hbs_ip_entry>{hbs_pool::dhcp}) {
        count++;
        HBS_LOG(HBS_INFO, "HOSTBASE: DHCP_OPTION_IPIDX # %04d  %s", count,
                hbs_dhcp_entry_to_str(&entry, line, sizeof line));
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: ****** Total %d DHCP option ip indices ******", count);
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

void dump_rule_index() {
    char line[LINE_SIZE];
    int count = 0;
    for (const hbs_rule_entry &entry : listed<hbs_rule_entry>{hbs_pool::rule}) {
        count++;
        HBS_LOG(HBS_INFO, "HOSTBASE: RULEIDX # %04d %s", count,
                hbs_rule_entry_to_str(&entry, line, sizeof line));
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: ****** Total %d/%d rule indices ******", count,
            static_cast<int>(hbs_rule_count()));
    HBS_LOG(HBS_INFO, "HOSTBASE: \n");
}

} // namespace

void hbs_db_dump() {
    const hbs_shm_hold hold;
    dump_clients();
    dump_ip_index();
    dump_if_index();
    dump_networks();
    dump_pri_index();
    dump_dhcp_option_index();
    dump_rule_index();
}

// A line longer than the buffer is logged in several pieces.
void hbs_log_file(const char *path) {
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return;
    hbs_at_exit close_file([file] { (void)fclose(file); });
    char line[256];
    while (fgets(line, sizeof line, file) != nullptr) {
        line[strcspn(line, "\n")] = '\0';
        HBS_LOG(HBS_INFO, "HOSTBASE: %s : %s", path, line);
    }
}
