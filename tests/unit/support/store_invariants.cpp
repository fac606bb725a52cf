// The checks look at the segment as a reader process does: by offsets, from the heads. They run after every
// step of a fuzzer: what was seen is noted by its place in the pool.
#include "support/store_invariants.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include <hbs_db.h>

#include "store/index.h"
#include "store/pools.h"
#include "store/rule_index.h"
#include "store/segment.h"
#include "store/slots.h"

namespace {

struct PoolFacts {
    const char *name;
    hbs_pool pool;
    uint32_t head, first, size, capacity, reference;
};

constexpr PoolFacts CLIENTS = {"clients", hbs_pool::clients, 4, 52, 1744, 96, 8};
constexpr PoolFacts IP = {"IP index", hbs_pool::ip, 12, 167476, 92, 288, 88};
constexpr PoolFacts INTERFACE = {"interface index", hbs_pool::interface, 20, 193972, 24, 96, 20};
constexpr PoolFacts DHCP = {"DHCP-option index", hbs_pool::dhcp, 28, 196276, 92, 192, 88};
constexpr PoolFacts RULE = {"rule index", hbs_pool::rule, 36, 213940, 56, 96, 0};
constexpr PoolFacts PRIMARY = {"primary index", hbs_pool::primary, 44, 219316, 20, 96, 16};

uint32_t word_at(uint32_t offset) {
    uint32_t value = 0;
    memcpy(&value, reinterpret_cast<const uint8_t *>(hbs_segment()) + offset, sizeof value);
    return value;
}

template <typename Entry> Entry entry_at(uint32_t offset) {
    Entry entry;
    memcpy(&entry, reinterpret_cast<const uint8_t *>(hbs_segment()) + offset, sizeof entry);
    return entry;
}

bool is_element(const PoolFacts &pool, uint32_t offset) {
    return offset >= pool.first && (offset - pool.first) % pool.size == 0 &&
           (offset - pool.first) / pool.size < pool.capacity;
}

// The elements of a pool that were seen.
class Marks {
  public:
    explicit Marks(const PoolFacts &pool) : pool_(pool), seen_(pool.capacity) {}
    // Both take an offset; what is no element's was never seen.
    bool has(uint32_t offset) const { return is_element(pool_, offset) && seen_[index(offset)] != 0; }
    bool add(uint32_t offset) { return seen_[index(offset)]++ == 0; }

  private:
    size_t index(uint32_t offset) const { return (offset - pool_.first) / pool_.size; }
    const PoolFacts &pool_;
    std::vector<uint16_t> seen_;
};

Marks marks_of(const PoolFacts &pool, const std::vector<uint32_t> &offsets) {
    Marks marks(pool);
    for (uint32_t offset : offsets)
        EXPECT_TRUE(marks.add(offset)) << pool.name << ": an element is listed twice";
    return marks;
}

// Offsets on a list in order; checks the links on the way.
std::vector<uint32_t> walk(const PoolFacts &pool) {
    std::vector<uint32_t> offsets;
    offsets.reserve(pool.capacity);
    uint32_t before = pool.head;
    for (uint32_t at = word_at(pool.head); at != pool.head; at = word_at(at)) {
        if (!is_element(pool, at) || offsets.size() == pool.capacity) {
            ADD_FAILURE() << pool.name << ": the link " << at << " leads out of the pool or in a circle";
            return offsets;
        }
        EXPECT_EQ(before, word_at(at + 4)) << pool.name << ": link back of " << at;
        before = at;
        offsets.push_back(at);
    }
    EXPECT_EQ(before, word_at(pool.head + 4)) << pool.name << ": last element in the head";
    return offsets;
}

void check_pool(const PoolFacts &pool, const std::vector<uint32_t> &offsets) {
    for (uint32_t offset : offsets)
        EXPECT_TRUE(hbs_list_holds(pool.pool, hbs_pool_element(pool.pool, offset)))
            << pool.name << ": linked, but on no list: " << offset;
    size_t known = offsets.size() + static_cast<size_t>(hbs_pool_free_count(pool.pool));
    if (pool.pool == hbs_pool::rule)
        EXPECT_LE(known, pool.capacity) << pool.name;
    else
        EXPECT_EQ(known, pool.capacity) << pool.name << ": elements were lost";
    const Marks listed = marks_of(pool, offsets);
    for (uint32_t i = 0; pool.reference != 0 && i < pool.capacity; i++) {
        uint32_t at = pool.first + i * pool.size;
        if (!listed.has(at) && word_at(at + pool.reference) != 0)
            ADD_FAILURE() << pool.name << ": reference in free element " << at;
    }
}

std::vector<uint32_t> walk_sound(const PoolFacts &pool) {
    std::vector<uint32_t> offsets = walk(pool);
    check_pool(pool, offsets);
    return offsets;
}

void check_slots(const std::vector<uint32_t> &slots) {
    std::vector<const hbs_client *> owners;
    owners.reserve(slots.size());
    for (uint32_t slot : slots) {
        EXPECT_EQ(slot, word_at(slot + offsetof(hbs_client, dbpos))) << "dbpos of slot " << slot;
        const auto *at = static_cast<const hbs_slot *>(hbs_pool_element(hbs_pool::clients, slot));
        const hbs_client *owner = hbs_slot_owner(at);
        if (owner == nullptr)
            continue;
        EXPECT_EQ(0, std::count(owners.begin(), owners.end(), owner)) << "two slots of one working copy";
        owners.push_back(owner);
        EXPECT_EQ(slot, owner->dbpos) << "dbpos of the working copy of slot " << slot;
    }
}

void check_references(const PoolFacts &pool, const std::vector<uint32_t> &entries, const Marks &published,
                      bool once) {
    Marks seen(CLIENTS);
    for (uint32_t entry : entries) {
        uint32_t reference = word_at(entry + pool.reference);
        const bool is_published = published.has(reference);
        EXPECT_TRUE(is_published) << pool.name << ": reference to unpublished " << reference;
        const bool is_new = !is_published || seen.add(reference);
        EXPECT_TRUE(is_new || !once) << pool.name << ": two entries of " << reference;
    }
}

void check_order(const PoolFacts &pool, const std::vector<uint32_t> &entries) {
    std::vector<uint32_t> before, key;
    for (uint32_t entry : entries) {
        uint32_t count = word_at(entry + 8);
        ASSERT_LE(count, 19u) << pool.name;
        key.clear();
        for (uint32_t i = 0; i < count; i++)
            key.push_back(word_at(entry + 12 + 4 * i));
        // Not by vector's own operator: GCC 12 compares only part of it on big-endian machines.
        bool larger = before.size() < key.size() ||
                      (before.size() == key.size() &&
                       std::lexicographical_compare(before.begin(), before.end(), key.begin(), key.end()));
        EXPECT_TRUE(larger) << pool.name << ": out of order at " << entry;
        before.swap(key);
    }
}

using Words = std::array<uint32_t, 4>;

Words words_of(const hbs_instance_map &map) {
    return {map.word[0], map.word[1], map.word[2], map.word[3]};
}

void note(Words &words, uint32_t instance) {
    ASSERT_GE(instance, 1u);
    ASSERT_LE(instance, 128u);
    words[(instance - 1) / 32] |= 1u << ((instance - 1) % 32);
}

void check_interface_maps(const std::vector<uint32_t> &entries) {
    std::array<Words, 8> expected = {};
    for (uint32_t offset : entries) {
        auto entry = entry_at<hbs_if_entry>(offset);
        EXPECT_EQ(2u, entry.count);
        ASSERT_GE(entry.key[0], 200u);
        ASSERT_LE(entry.key[0], 207u);
        note(expected[entry.key[0] - 200], entry.key[1]);
    }
    for (int network = 0; network < 8; network++)
        EXPECT_EQ(expected[static_cast<size_t>(network)], words_of(hbs_rnd_map(network)))
            << "instance map of network " << network;
}

void check_primary_map(const std::vector<uint32_t> &entries) {
    Words expected = {};
    for (uint32_t offset : entries) {
        auto entry = entry_at<hbs_pri_entry>(offset);
        EXPECT_EQ(1u, entry.count);
        note(expected, entry.key[0]);
    }
    EXPECT_EQ(expected, words_of(hbs_pri_map()));
    EXPECT_EQ(entries.size(), hbs_pri_count());
}

} // namespace

void expect_store_sound() {
    if (hbs_segment() == nullptr)
        return;
    const std::vector<uint32_t> slots = walk_sound(CLIENTS);
    const std::vector<uint32_t> ips = walk_sound(IP);
    const std::vector<uint32_t> interfaces = walk_sound(INTERFACE);
    const std::vector<uint32_t> dhcps = walk_sound(DHCP);
    const std::vector<uint32_t> rules = walk_sound(RULE);
    const std::vector<uint32_t> primaries = walk_sound(PRIMARY);
    check_slots(slots);
    const Marks published = marks_of(CLIENTS, slots);
    check_references(IP, ips, published, false);
    check_references(DHCP, dhcps, published, false);
    check_references(INTERFACE, interfaces, published, true);
    check_references(PRIMARY, primaries, published, true);
    check_order(IP, ips);
    check_order(DHCP, dhcps);
    check_order(INTERFACE, interfaces);
    check_interface_maps(interfaces);
    check_primary_map(primaries);
    EXPECT_EQ(rules.size(), hbs_rule_count());
}
