#include "events/neighbour_news.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <linux/neighbour.h>
#include <sys/socket.h>

#include <hbs_db.h>

#include "base/clock.h"
#include "base/state.h"
#include "store/clients.h"

namespace {

enum class presence : uint8_t { none, reachable, stale, gone };

struct told_address {
    uint8_t address[16]; // an IPv4 address in the first four
    uint8_t mac[6];      // zero = none
    uint8_t family;
    presence what; // none = free
    int64_t at_ms; // hbs_monotonic_milliseconds
};

// The kernel's ages are cut to ticks: an entry seems to have changed a little later than it did.
constexpr int64_t TICK_SLACK_MS = 50;

// An address that was pushed out may be told of twice, no worse.
constexpr size_t ROWS = 256;
constexpr size_t PLACES = 4;
told_address told[ROWS][PLACES];
uint8_t next_place[ROWS]; // to give to a new address when the row is full

presence presence_of(uint16_t state) {
    switch (state) {
    case NUD_REACHABLE:
        return presence::reachable;
    case NUD_STALE:
        return presence::stale;
    case NUD_DELAY:
    case NUD_FAILED:
        return presence::gone;
    default:
        return presence::none;
    }
}

told_address row_entry(presence what, const uint8_t *mac, int family, const uint8_t *address, int64_t at_ms) {
    told_address entry{};
    memcpy(entry.address, address, family == AF_INET ? 4 : 16);
    if (mac != nullptr && what != presence::gone) // who is gone is told with a MAC or without
        memcpy(entry.mac, mac, sizeof entry.mac);
    entry.family = static_cast<uint8_t>(family);
    entry.what = what;
    entry.at_ms = at_ms;
    return entry;
}

size_t row_of(const told_address *entry) {
    size_t number = entry->family;
    for (const uint8_t byte : entry->address)
        number = number * 31 + byte;
    return number % ROWS;
}

bool is_same_address(const told_address *a, const told_address *b) {
    return a->what != presence::none && a->family == b->family &&
           memcmp(a->address, b->address, sizeof a->address) == 0;
}

// The place of an address, a free one, or the one that is next to be given away.
told_address *place_of(const told_address *entry) {
    const size_t row = row_of(entry);
    told_address *free_place = nullptr;
    for (told_address &place : told[row]) {
        if (is_same_address(&place, entry))
            return &place;
        if (place.what == presence::none)
            free_place = &place;
    }
    return free_place != nullptr ? free_place : &told[row][next_place[row]++ % PLACES];
}

// Whether the handlers were told just that, after the entry changed to it.
bool was_told(const told_address *entry) {
    for (const told_address &place : told[row_of(entry)])
        if (is_same_address(&place, entry))
            return place.what == entry->what && memcmp(place.mac, entry->mac, sizeof entry->mac) == 0 &&
                   entry->at_ms <= place.at_ms + TICK_SLACK_MS;
    return false;
}

// A client and whether it holds the address of an entry.
struct holder {
    const hbs_client *client; // null = an unknown device
    bool holds;
};

// The client that the handlers would take.
holder holder_of(const hbs_neigh_entry *entry) {
    const bool is_ll = entry->family == AF_INET6 && entry->address[0] == 0xFE;
    const hbs_client *by_mac = hbs_find_by_mac(entry->mac);
    const hbs_client *by_address =
        entry->family == AF_INET ? hbs_find_by_ipv4(entry->address) : hbs_find_by_ipv6(entry->address);
    const bool mac_first = is_ll && by_mac != nullptr;
    const hbs_client *client = mac_first || by_address == nullptr ? by_mac : by_address;
    if (client == nullptr)
        return {nullptr, false};
    if (entry->family == AF_INET)
        return {client, memcmp(client->ipv4, entry->address, 4) == 0};
    return {client, memcmp(is_ll ? client->ll : client->ipv6, entry->address, 16) == 0};
}

// Off line, and since after the entry changed: in doubt (both clocks count whole seconds) it left.
bool left_since(const hbs_client *client, int64_t changed_ms) {
    const auto changed = static_cast<uint32_t>(changed_ms / 1000);
    return (client->flags & HBS_FLAG_ONLINE) == 0 && static_cast<int32_t>(changed - client->online_time) <= 0;
}

bool is_reachable_news(const hbs_neigh_entry *entry, holder found, bool was_told) {
    constexpr uint32_t SETTLED = HBS_FLAG_REACH | HBS_FLAG_ONLINE;
    if (found.client == nullptr)
        return !was_told;
    if (left_since(found.client, entry->changed_ms))
        return false;
    if (!found.holds)
        return true;
    return !was_told && (found.client->flags & (SETTLED | HBS_FLAG_TIMER_ONLINE)) != SETTLED;
}

bool is_stale_news(holder found, bool was_told) {
    if (found.client == nullptr)
        return !was_told;
    return !found.holds ||
           (found.client->adapter_type != HBS_ADAPTER_WIFI &&
            (found.client->flags & (HBS_FLAG_ONLINE | HBS_FLAG_TIMER_ONLINE)) == HBS_FLAG_ONLINE);
}

bool is_gone_news(holder found, bool was_told) {
    return found.holds && !was_told &&
           ((found.client->flags & (HBS_FLAG_REACH | HBS_FLAG_ONLINE)) != 0 ||
            found.client->lease_start_uptime != 0);
}

} // namespace

void hbs_neigh_note(uint16_t state, const uint8_t *mac, int family, const uint8_t *address) {
    if (family != AF_INET && family != AF_INET6)
        return;
    const told_address entry =
        row_entry(presence_of(state), mac, family, address, hbs_monotonic_milliseconds());
    *place_of(&entry) = entry;
}

void hbs_neigh_forget(const uint8_t mac[6]) {
    for (auto &row : told)
        for (told_address &place : row)
            if (memcmp(place.mac, mac, sizeof place.mac) == 0)
                place.what = presence::none;
}

bool hbs_neigh_was_told(const hbs_neigh_entry *entry) {
    const auto is_rival = [entry](const told_address &place) {
        return place.what != presence::none && place.family == entry->family &&
               (place.address[0] == 0xFE) == (entry->address[0] == 0xFE) &&
               memcmp(place.mac, entry->mac, sizeof place.mac) == 0;
    };
    for (const auto &row : told)
        if (std::any_of(std::begin(row), std::end(row), is_rival))
            return true;
    return false;
}

bool hbs_neigh_is_news(const hbs_neigh_entry *entry) {
    const presence what = presence_of(entry->state);
    if (what == presence::none || hbs_db_ready == 0)
        return false;
    const told_address as_told =
        row_entry(what, entry->mac, entry->family, entry->address, entry->changed_ms);
    const holder found = holder_of(entry);
    if (what == presence::gone)
        return is_gone_news(found, was_told(&as_told));
    if (entry->mac == nullptr)
        return false;
    return what == presence::reachable ? is_reachable_news(entry, found, was_told(&as_told))
                                       : is_stale_news(found, was_told(&as_told));
}
