#include "daemon/neighbour_tables.h"

#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/netlink.h"
#include "base/scope.h"
#include "base/state.h"
#include "daemon/neighbour_message.h"
#include "events/neighbour_news.h"

namespace {

// More than the kernel's own default limits of both tables together. Beyond it the oldest changes are lost.
constexpr size_t MOST_ROWS = 2048;

// A notification may set out a moment after its entry changed, and the kernel's ages are cut to ticks.
constexpr int64_t SLACK_MS = 1000;

struct row {
    int64_t changed_ms;
    ndmsg header;
    uint8_t address[16];
    uint8_t mac[6];
    bool has_mac;
};

struct collection {
    row *rows;
    size_t count;
    int64_t since_ms;
    const uint8_t *only; // MAC of the device that is asked for, null = all
};

// An entry without its ages counts as one that has just changed enough to be looked at.
int64_t changed_at(const hbs_neighbour *entry, int64_t since_ms) {
    const hbs_netlink_bytes bytes = entry->attributes[NDA_CACHEINFO];
    nda_cacheinfo ages;
    if (bytes.size < sizeof ages)
        return since_ms;
    memcpy(&ages, bytes.data, sizeof ages);
    return hbs_monotonic_milliseconds() - int64_t{ages.ndm_updated} * 1000 / sysconf(_SC_CLK_TCK);
}

hbs_neigh_entry entry_of(const row *from) {
    return {from->header.ndm_family, from->header.ndm_state, from->has_mac ? from->mac : nullptr,
            from->address, from->changed_ms};
}

bool is_news(const row *from) {
    const hbs_neigh_entry entry = entry_of(from);
    return hbs_neigh_is_news(&entry);
}

row row_of(const hbs_neighbour *entry, int64_t changed_ms) {
    const hbs_netlink_bytes address = entry->attributes[NDA_DST];
    const hbs_netlink_bytes lladdr = entry->attributes[NDA_LLADDR];
    row made{};
    made.changed_ms = changed_ms;
    made.header = entry->header;
    memcpy(made.address, address.data, address.size);
    made.has_mac = lladdr.data != nullptr;
    if (made.has_mac)
        memcpy(made.mac, lladdr.data, sizeof made.mac);
    return made;
}

bool is_link_local(const row *one) {
    return one->header.ndm_family == AF_INET6 && one->address[0] == 0xFE;
}

// Whether only the later one of the two can stand in a record.
bool compete(const row *a, const row *b) {
    return a->has_mac && b->has_mac && memcmp(a->mac, b->mac, sizeof a->mac) == 0 &&
           a->header.ndm_family == b->header.ndm_family && is_link_local(a) == is_link_local(b);
}

row *oldest_of(collection *all) {
    row *oldest = &all->rows[0];
    for (size_t i = 1; i < all->count; ++i)
        if (all->rows[i].changed_ms < oldest->changed_ms)
            oldest = &all->rows[i];
    return oldest;
}

// The row that a new one competes with, a fresh one (as old as can be), or the oldest when all are taken.
row *place_for(collection *all, const row *made) {
    for (size_t i = 0; i < all->count; ++i)
        if (compete(&all->rows[i], made))
            return &all->rows[i];
    if (all->count == MOST_ROWS)
        return oldest_of(all);
    row *fresh = &all->rows[all->count++];
    fresh->changed_ms = INT64_MIN;
    return fresh;
}

bool is_asked_for(const collection *all, const row *made) {
    return all->only == nullptr || (made->has_mac && memcmp(made->mac, all->only, sizeof made->mac) == 0);
}

void collect(hbs_netlink_bytes message, void *context) {
    auto *all = static_cast<collection *>(context);
    hbs_neighbour entry;
    if (!hbs_netlink_neighbour(message, &entry) || !hbs_neighbour_is_sound(&entry))
        return;
    const row made = row_of(&entry, changed_at(&entry, all->since_ms));
    if (made.changed_ms < all->since_ms - SLACK_MS || !is_asked_for(all, &made))
        return;
    const hbs_list_hold hold;
    if (!made.has_mac && !is_news(&made)) // a failed address that nobody holds
        return;
    row *place = place_for(all, &made);
    if (made.changed_ms >= place->changed_ms)
        *place = made;
}

int by_age(const void *a, const void *b) {
    const int64_t one = static_cast<const row *>(a)->changed_ms;
    const int64_t other = static_cast<const row *>(b)->changed_ms;
    return one < other ? -1 : one > other;
}

// One hold for the question and the telling: in between nobody leaves. Of a device that is asked for nothing
// counts as told when its rows are read: what is, the monitor told meanwhile, and it knows more.
void tell(const row *one, bool asked_for) {
    const hbs_list_hold hold;
    const hbs_neigh_entry entry = entry_of(one);
    if (asked_for && hbs_neigh_was_told(&entry))
        return;
    if (is_news(one))
        hbs_tell_neighbour(&one->header, one->has_mac ? one->mac : nullptr, one->address);
}

bool read_tables(int64_t since_ms, const uint8_t *only) {
    collection all = {static_cast<row *>(calloc(MOST_ROWS, sizeof(row))), 0, since_ms, only};
    if (all.rows == nullptr)
        return false;
    hbs_at_exit end([&all] { free(all.rows); });
    if (!hbs_netlink_dump_neighbours(AF_INET, collect, &all) ||
        !hbs_netlink_dump_neighbours(AF_INET6, collect, &all))
        return false;
    qsort(all.rows, all.count, sizeof(row), by_age);
    for (size_t i = 0; i < all.count; ++i)
        tell(&all.rows[i], only != nullptr);
    return true;
}

} // namespace

bool hbs_read_neighbour_tables(int64_t since_ms) {
    return read_tables(since_ms, nullptr);
}

bool hbs_read_neighbours_of(const uint8_t mac[6], int64_t since_ms) {
    return read_tables(since_ms, mac);
}
