// Element pools and shared lists.
#include <cstring>
#include <vector>

#include "store/pools.h"
#include "support/store.h"

namespace pools_test {

constexpr hbs_pool ALL[] = {hbs_pool::clients, hbs_pool::ip,   hbs_pool::interface,
                            hbs_pool::dhcp,    hbs_pool::rule, hbs_pool::primary};

struct Facts {
    uint32_t first, size;
    int capacity;
};
constexpr Facts FACTS[HBS_POOLS] = {{52, 1744, 96},    {167476, 92, 288}, {193972, 24, 96},
                                    {196276, 92, 192}, {213940, 56, 96},  {219316, 20, 96}};

class Pools : public StoreTest {
  protected:
    std::vector<uint32_t> listed(hbs_pool pool) {
        std::vector<uint32_t> offsets;
        for (const void *at = hbs_list_first(pool); at != nullptr; at = hbs_list_next(pool, at))
            offsets.push_back(hbs_pool_offset(at));
        return offsets;
    }

    // Elements of the primary pool, which are the shortest to look at.
    hbs_pri_entry *take() { return static_cast<hbs_pri_entry *>(hbs_pool_take(hbs_pool::primary)); }

    // Puts everything back, so that the checks at the end see no lost element.
    void TearDown() override {
        for (hbs_pool pool : ALL)
            hbs_pool_give_all(pool);
        StoreTest::TearDown();
    }
};

TEST_F(Pools, TakeGivesEveryElementInOrderThenNone) {
    for (int i = 0; i < HBS_POOLS; i++) {
        for (int n = 0; n < FACTS[i].capacity; n++) {
            void *element = hbs_pool_take(ALL[i]);
            ASSERT_NE(nullptr, element) << "pool " << i;
            EXPECT_EQ(FACTS[i].first + static_cast<uint32_t>(n) * FACTS[i].size, hbs_pool_offset(element));
            EXPECT_EQ(n, hbs_pool_number(ALL[i], element));
            EXPECT_EQ(FACTS[i].capacity - n - 1, hbs_pool_free_count(ALL[i]));
        }
        EXPECT_EQ(nullptr, hbs_pool_take(ALL[i]));
    }
}

TEST_F(Pools, TakeZeroesTheWholeElementAndNothingElse) {
    constexpr uint32_t at = offsetof(hbs_db, client_pool);
    constexpr uint32_t size = sizeof hbs_db::client_pool;
    memset(hbs_segment_edit(at, size), 0xFF, size);
    auto *slot = static_cast<uint8_t *>(hbs_pool_take(hbs_pool::clients));
    for (size_t i = 0; i < sizeof(hbs_client); i++)
        ASSERT_EQ(0, slot[i]) << "byte " << i;
    EXPECT_EQ(0xFF, slot[sizeof(hbs_client)]) << "the next element";
    memset(hbs_segment_edit(at, size), 0, size);
}

TEST_F(Pools, GivenElementIsTakenAgainAfterAllOthers) {
    hbs_pri_entry *first = take();
    hbs_pool_give(hbs_pool::primary, first);
    for (int i = 0; i < 95; i++)
        EXPECT_NE(first, take());
    EXPECT_EQ(first, take());
}

TEST_F(Pools, GiveZeroesTheReference) {
    hbs_client *slot = static_cast<hbs_client *>(hbs_pool_take(hbs_pool::clients));
    auto *ip = static_cast<hbs_ip_entry *>(hbs_pool_take(hbs_pool::ip));
    auto *interface = static_cast<hbs_if_entry *>(hbs_pool_take(hbs_pool::interface));
    auto *dhcp = static_cast<hbs_ip_entry *>(hbs_pool_take(hbs_pool::dhcp));
    hbs_pri_entry *primary = take();
    slot->dbpos = ip->dbpos = interface->dbpos = dhcp->dbpos = primary->dbpos = 77;
    hbs_pool_give(hbs_pool::clients, slot);
    hbs_pool_give(hbs_pool::ip, ip);
    hbs_pool_give(hbs_pool::interface, interface);
    hbs_pool_give(hbs_pool::dhcp, dhcp);
    hbs_pool_give(hbs_pool::primary, primary);
    EXPECT_EQ(0u, slot->dbpos | ip->dbpos | interface->dbpos | dhcp->dbpos | primary->dbpos);
}

TEST_F(Pools, GiveLeavesTheRuleOfARuleElement) {
    auto *rule = static_cast<hbs_rule_entry *>(hbs_pool_take(hbs_pool::rule));
    rule->p[6] = 9;
    rule->key[1] = 4;
    hbs_pool_give(hbs_pool::rule, rule);
    EXPECT_EQ(9u, rule->p[6]);
    EXPECT_EQ(4u, rule->key[1]);
}

TEST_F(Pools, GivingTwiceOrFromTheListDoesNothing) {
    hbs_pri_entry *element = take();
    hbs_pool_give(hbs_pool::primary, element);
    hbs_pool_give(hbs_pool::primary, element);
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::primary));
    hbs_pri_entry *listed_one = take();
    hbs_list_link(hbs_pool::primary, listed_one, nullptr);
    hbs_pool_give(hbs_pool::primary, listed_one);
    EXPECT_EQ(95, hbs_pool_free_count(hbs_pool::primary));
    EXPECT_TRUE(hbs_list_holds(hbs_pool::primary, listed_one));
}

TEST_F(Pools, GiveAllBringsBackListedAndLostElements) {
    hbs_list_link(hbs_pool::rule, hbs_pool_take(hbs_pool::rule), nullptr);
    void *lost = hbs_pool_take(hbs_pool::rule);
    hbs_list_link(hbs_pool::rule, lost, nullptr);
    hbs_list_unlink(hbs_pool::rule, lost);
    ASSERT_EQ(94, hbs_pool_free_count(hbs_pool::rule));
    hbs_pool_give_all(hbs_pool::rule);
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::rule));
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::rule));
    EXPECT_EQ(36u, hbs_segment()->rule_index.next);
    EXPECT_EQ(36u, hbs_segment()->rule_index.prev);
}

TEST_F(Pools, ElementOfAnOffsetMustBeTheStartOfAnElementOfThePool) {
    for (int i = 0; i < HBS_POOLS; i++) {
        const Facts &facts = FACTS[i];
        uint32_t end = facts.first + static_cast<uint32_t>(facts.capacity) * facts.size;
        EXPECT_NE(nullptr, hbs_pool_element(ALL[i], facts.first));
        EXPECT_NE(nullptr, hbs_pool_element(ALL[i], end - facts.size));
        for (uint32_t wrong : {0u, 4u, facts.first - facts.size, facts.first - 1, facts.first + 1,
                               facts.first + 4, end - facts.size + 4, end, 221236u, 0x7FFFFFFFu, 0xFFFFFFFFu})
            EXPECT_EQ(nullptr, hbs_pool_element(ALL[i], wrong)) << "pool " << i << " offset " << wrong;
    }
}

TEST_F(Pools, NumberOfWhatIsNoElementIsMinusOne) {
    hbs_client working{};
    EXPECT_EQ(-1, hbs_pool_number(hbs_pool::clients, &working));
    EXPECT_EQ(-1, hbs_pool_number(hbs_pool::clients, nullptr));
    EXPECT_EQ(-1, hbs_pool_number(hbs_pool::clients, hbs_segment()));
    EXPECT_EQ(-1, hbs_pool_number(hbs_pool::clients, hbs_segment()->client_pool[1].mac));
    EXPECT_EQ(-1, hbs_pool_number(hbs_pool::clients, hbs_segment()->ip_pool));
    EXPECT_EQ(95, hbs_pool_number(hbs_pool::clients, &hbs_segment()->client_pool[95]));
}

TEST_F(Pools, LinkAppendsOrInsertsBefore) {
    hbs_pri_entry *a = take();
    hbs_pri_entry *b = take();
    hbs_pri_entry *c = take();
    hbs_list_link(hbs_pool::primary, a, nullptr);
    hbs_list_link(hbs_pool::primary, b, nullptr);
    hbs_list_link(hbs_pool::primary, c, b);
    const std::vector<uint32_t> expected = {hbs_pool_offset(a), hbs_pool_offset(c), hbs_pool_offset(b)};
    EXPECT_EQ(expected, listed(hbs_pool::primary));
    EXPECT_EQ(hbs_pool_offset(a), hbs_segment()->pri_index.next);
    EXPECT_EQ(hbs_pool_offset(b), hbs_segment()->pri_index.prev);
    EXPECT_EQ(hbs_pool_offset(c), a->next);
    EXPECT_EQ(44u, a->prev);
    EXPECT_EQ(44u, b->next);
    EXPECT_EQ(hbs_pool_offset(c), b->prev);
}

TEST_F(Pools, UnlinkPutsZeroInBothLinks) {
    hbs_pri_entry *a = take();
    hbs_pri_entry *b = take();
    hbs_list_link(hbs_pool::primary, a, nullptr);
    hbs_list_link(hbs_pool::primary, b, nullptr);
    hbs_list_unlink(hbs_pool::primary, a);
    EXPECT_EQ(0u, a->next);
    EXPECT_EQ(0u, a->prev);
    EXPECT_EQ(hbs_pool_offset(b), hbs_segment()->pri_index.next);
    EXPECT_EQ(44u, b->prev);
    hbs_list_unlink(hbs_pool::primary, b);
    EXPECT_EQ(44u, hbs_segment()->pri_index.next);
    EXPECT_EQ(44u, hbs_segment()->pri_index.prev);
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::primary));
}

TEST_F(Pools, FreeElementsCannotBeLinkedAndUnlistedNotUnlinked) {
    const void *free_one = hbs_pool_element(hbs_pool::primary, 219316);
    hbs_list_link(hbs_pool::primary, free_one, nullptr);
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::primary));
    hbs_list_unlink(hbs_pool::primary, free_one);
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::primary));
    hbs_pri_entry *a = take();
    hbs_list_link(hbs_pool::primary, a, hbs_pool_element(hbs_pool::primary, 219336));
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::primary)) << "before an element that is not listed";
    hbs_list_link(hbs_pool::ip, a, nullptr);
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::ip)) << "an element of another pool";
}

TEST_F(Pools, LinkedTwice_StaysWhereItIs) {
    hbs_pri_entry *a = take();
    hbs_pri_entry *b = take();
    hbs_list_link(hbs_pool::primary, a, nullptr);
    hbs_list_link(hbs_pool::primary, b, nullptr);
    hbs_list_link(hbs_pool::primary, a, nullptr);
    EXPECT_EQ((std::vector<uint32_t>{hbs_pool_offset(a), hbs_pool_offset(b)}), listed(hbs_pool::primary));
}

TEST_F(Pools, ScribbledLinksLeadNowhere) {
    hbs_pri_entry *a = take();
    hbs_pri_entry *b = take();
    hbs_pri_entry *c = take();
    for (hbs_pri_entry *element : {a, b, c})
        hbs_list_link(hbs_pool::primary, element, nullptr);
    { const hbs_shm_hold published; }
    memset(hbs_segment_shared()->pri_pool, 0xF0, sizeof hbs_db::pri_pool);
    hbs_segment_shared()->pri_index = {0x12345679u, 3};
    EXPECT_EQ((std::vector<uint32_t>{hbs_pool_offset(a), hbs_pool_offset(b), hbs_pool_offset(c)}),
              listed(hbs_pool::primary));
    hbs_list_unlink(hbs_pool::primary, a);
    hbs_list_unlink(hbs_pool::primary, c);
    EXPECT_EQ(hbs_pool_offset(b), hbs_segment()->pri_index.next) << "set right by the next changes";
    EXPECT_EQ(hbs_pool_offset(b), hbs_segment()->pri_index.prev);
}

TEST_F(Pools, FindGivesTheFirstOfTheListWithTheseBytes) {
    const auto find = [](uint32_t wanted) {
        return hbs_list_find(hbs_pool::primary, offsetof(hbs_pri_entry, dbpos), &wanted, sizeof wanted);
    };
    EXPECT_EQ(nullptr, find(7)) << "nothing is on the list";
    hbs_pri_entry *entries[4] = {take(), take(), take(), take()};
    for (hbs_pri_entry *entry : entries)
        entry->dbpos = entry == entries[0] ? 5 : 7;
    hbs_list_link(hbs_pool::primary, entries[0], nullptr);
    hbs_list_link(hbs_pool::primary, entries[2], nullptr);
    hbs_list_link(hbs_pool::primary, entries[1], nullptr);
    EXPECT_EQ(entries[0], find(5));
    EXPECT_EQ(entries[2], find(7)) << "by the list's order; the one that is on no list does not count";
    EXPECT_EQ(nullptr, find(6));
    hbs_list_unlink(hbs_pool::primary, entries[2]);
    EXPECT_EQ(entries[1], find(7));
}

TEST_F(Pools, FindComparesAllBytes) {
    auto *slot = static_cast<hbs_client *>(hbs_pool_take(hbs_pool::clients));
    memcpy(slot->mac, "\1\2\3\4\5\6", sizeof slot->mac);
    hbs_list_link(hbs_pool::clients, slot, nullptr);
    const auto find = [](const char *mac) {
        return hbs_list_find(hbs_pool::clients, offsetof(hbs_client, mac), mac, 6);
    };
    EXPECT_EQ(slot, find("\1\2\3\4\5\6"));
    EXPECT_EQ(nullptr, find("\1\2\3\4\5\7"));
    EXPECT_EQ(nullptr, find("\0\2\3\4\5\6"));
}

TEST_F(Pools, NextOfAnElementOffTheListIsNone) {
    hbs_pri_entry *a = take();
    EXPECT_EQ(nullptr, hbs_list_next(hbs_pool::primary, a));
    EXPECT_EQ(nullptr, hbs_list_next(hbs_pool::primary, nullptr));
}

} // namespace pools_test
