// The rule index.
#include <array>
#include <cstring>
#include <semaphore.h>
#include <string>
#include <vector>

#include "store/rule_index.h"
#include "support/store.h"

namespace rule_index_test {

using Parameters = std::array<uint32_t, 7>;
using Mac = std::array<uint8_t, 6>;
using Numbers = std::vector<uint32_t>;

constexpr Mac MAC_A = {0x02, 0, 0, 0, 0, 0xA};
constexpr Mac MAC_B = {0x02, 0, 0, 0, 0, 0xB};
constexpr uint8_t WHITE = 1;
constexpr uint8_t BLACK = 2;

class RuleIndex : public StoreTest {
  protected:
    // Every operation leaves the semaphore as it found it.
    void TearDown() override {
        sem_t *semaphore = sem_open(HBS_SEMAPHORE_NAME, 0);
        int value = -1;
        (void)sem_getvalue(semaphore, &value);
        (void)sem_close(semaphore);
        EXPECT_EQ(1, value);
        StoreTest::TearDown();
    }

    static void add(uint8_t type, const Mac &mac, const Parameters &p) {
        hbs_file_update_rule_idx(type, mac.data(), p.data());
    }

    // Rules of one device, told apart by their first parameter.
    static void add_many(uint32_t count) {
        for (uint32_t i = 1; i <= count; i++)
            add(WHITE, MAC_A, {i, 0, 0, 0, 0, 0, 0});
    }

    Numbers instances() {
        Numbers numbers;
        for (const hbs_rule_entry &entry : entries<hbs_rule_entry>(hbs_pool::rule))
            numbers.push_back(entry.key[1]);
        return numbers;
    }

    Numbers first_parameters() {
        Numbers numbers;
        for (const hbs_rule_entry &entry : entries<hbs_rule_entry>(hbs_pool::rule))
            numbers.push_back(entry.p[0]);
        return numbers;
    }

    hbs_rule_entry *entry(int number) {
        const void *at = hbs_list_first(hbs_pool::rule);
        for (int i = 0; i < number; i++)
            at = hbs_list_next(hbs_pool::rule, at);
        return static_cast<hbs_rule_entry *>(hbs_pool_edit(hbs_pool::rule, at));
    }
};

TEST_F(RuleIndex, Update_StoresTheWholeRule) {
    add(BLACK, MAC_B, {11, 12, 13, 14, 15, 16, 17});
    ASSERT_NE(nullptr, entry(0));
    const hbs_rule_entry &rule = *entry(0);
    EXPECT_EQ(2u, rule.count);
    EXPECT_EQ(200u, rule.key[0]);
    EXPECT_EQ(1u, rule.key[1]);
    EXPECT_EQ(0, memcmp(rule.mac, MAC_B.data(), 6));
    EXPECT_EQ(BLACK, rule.type);
    EXPECT_EQ(0, rule.zero);
    for (uint32_t i = 0; i < 7; i++)
        EXPECT_EQ(11 + i, rule.p[i]);
    EXPECT_EQ(1u, hbs_rule_count());
}

TEST_F(RuleIndex, Update_AppendsWithTheNextInstance) {
    add_many(3);
    EXPECT_EQ((Numbers{1, 2, 3}), instances());
    EXPECT_EQ(3u, hbs_rule_count());
}

TEST_F(RuleIndex, Update_SameIdentityExistsAlready) {
    add(WHITE, MAC_A, {1, 2, 3, 4, 5, 6, 7});
    add(WHITE, MAC_A, {1, 2, 3, 0, 0, 0, 0});
    EXPECT_EQ(1u, hbs_rule_count());
    EXPECT_EQ(4u, entry(0)->p[3]) << "the old rule stays";
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_rule_idx : index already exists (200 1 )"));
    EXPECT_EQ(95, hbs_pool_free_count(hbs_pool::rule));
}

TEST_F(RuleIndex, Update_EachPartOfTheIdentityTellsRulesApart) {
    add(WHITE, MAC_A, {1, 2, 3, 0, 0, 0, 0});
    add(BLACK, MAC_A, {1, 2, 3, 0, 0, 0, 0});
    add(WHITE, MAC_B, {1, 2, 3, 0, 0, 0, 0});
    add(WHITE, MAC_A, {9, 2, 3, 0, 0, 0, 0});
    add(WHITE, MAC_A, {1, 9, 3, 0, 0, 0, 0});
    add(WHITE, MAC_A, {1, 2, 9, 0, 0, 0, 0});
    EXPECT_EQ(6u, hbs_rule_count());
}

TEST_F(RuleIndex, Update_WhenPoolIsFull_PrintsTheLetterBehindTheCount) {
    add_many(97);
    EXPECT_EQ(96u, hbs_rule_count());
    EXPECT_EQ(1u, logged_count(
                      "HOSTBASE: hbs_file_update_rule_idx : failed to allocate memory, current count 96l"));
}

TEST_F(RuleIndex, Update_ReplacesTheEntryWithItsInstanceAndLosesTheElementUntilAFlush) {
    add_many(3);
    entry(0)->key[1] = 4; // as renumbering after a removal of several can leave it
    add(BLACK, MAC_B, {50, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ((Numbers{4, 2, 3}), instances()) << "in the place of the old one";
    EXPECT_EQ((Numbers{50, 2, 3}), first_parameters());
    EXPECT_EQ(3u, hbs_rule_count()) << "replacing does not raise it";
    EXPECT_EQ(92, hbs_pool_free_count(hbs_pool::rule)) << "3 listed, 1 out of use";
    hbs_rule_index_clear();
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::rule));
    EXPECT_EQ(0u, hbs_rule_count());
}

TEST_F(RuleIndex, Remove_RenumbersThoseBehind) {
    add_many(4);
    hbs_file_remove_rule_idx(WHITE, MAC_A.data(), 2, 0, 0);
    EXPECT_EQ((Numbers{1, 2, 3}), instances());
    EXPECT_EQ((Numbers{1, 3, 4}), first_parameters());
    EXPECT_EQ(3u, hbs_rule_count());
    EXPECT_EQ(93, hbs_pool_free_count(hbs_pool::rule));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_remove_rule_idx : client found (200 2 )"));
}

TEST_F(RuleIndex, Remove_OfNoSuchRule_ChangesNothing) {
    add_many(2);
    clear_log();
    hbs_file_remove_rule_idx(WHITE, MAC_A.data(), 1, 0, 1);
    hbs_file_remove_rule_idx(WHITE, MAC_A.data(), 1, 1, 0);
    hbs_file_remove_rule_idx(BLACK, MAC_A.data(), 1, 0, 0);
    hbs_file_remove_rule_idx(WHITE, MAC_B.data(), 1, 0, 0);
    EXPECT_EQ((Numbers{1, 2}), instances());
    EXPECT_EQ(2u, hbs_rule_count());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(RuleIndex, Remove_OfSeveralLowersByOneAboveTheLastFreed) {
    add_many(5);
    entry(3)->p[0] = 2; // a second entry of the same rule
    hbs_file_remove_rule_idx(WHITE, MAC_A.data(), 2, 0, 0);
    EXPECT_EQ((Numbers{1, 3, 4}), instances());
    EXPECT_EQ(3u, hbs_rule_count()) << "lowered once for each";
}

TEST_F(RuleIndex, Tr69Tod_ReplacesTheEntryWhenP1ToP3Differ) {
    add_many(3);
    const Parameters p = {2, 0, 8, 4, 5, 6, 7};
    hbs_file_update_rule_tr69_tod(WHITE, MAC_A.data(), p.data(), 2);
    EXPECT_EQ((Numbers{1, 2, 3}), instances());
    EXPECT_EQ(8u, entry(1)->p[2]);
    EXPECT_EQ(7u, entry(1)->p[6]);
    EXPECT_EQ(3u, hbs_rule_count());
    EXPECT_EQ(93, hbs_pool_free_count(hbs_pool::rule)) << "the old element is given back";
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_rule_tr69_tod : index found exists (200 2 )"));
}

TEST_F(RuleIndex, Tr69Tod_WhenP1ToP3AreTheSame_ChangesNothing) {
    add(WHITE, MAC_A, {1, 2, 3, 4, 5, 6, 7});
    const Parameters p = {1, 2, 3, 9, 9, 9, 9};
    hbs_file_update_rule_tr69_tod(WHITE, MAC_A.data(), p.data(), 1);
    EXPECT_EQ(4u, entry(0)->p[3]);
    EXPECT_EQ(1u, logged_containing("index found exists"));
}

TEST_F(RuleIndex, Tr69Tod_WithoutSuchAnEntry_DoesNothing) {
    add_many(2);
    clear_log();
    const Parameters p = {9, 9, 9, 0, 0, 0, 0};
    hbs_file_update_rule_tr69_tod(BLACK, MAC_A.data(), p.data(), 1);
    hbs_file_update_rule_tr69_tod(WHITE, MAC_B.data(), p.data(), 1);
    hbs_file_update_rule_tr69_tod(WHITE, MAC_A.data(), p.data(), 3);
    EXPECT_EQ((Numbers{1, 2}), first_parameters());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(RuleIndex, Tr69Tod_NumbersTheNewEntryByPosition) {
    add_many(3);
    entry(1)->key[1] = 7; // at position 2
    const Parameters p = {9, 9, 9, 0, 0, 0, 0};
    hbs_file_update_rule_tr69_tod(WHITE, MAC_A.data(), p.data(), 7);
    EXPECT_EQ((Numbers{1, 7, 3, 2}), instances()) << "no entry had that key: appended";
    EXPECT_EQ(4u, hbs_rule_count());
}

TEST_F(RuleIndex, Tr69Tod_WhenPoolIsFull_KeepsTheOldEntry) {
    add_many(96);
    const Parameters p = {500, 0, 0, 0, 0, 0, 0};
    hbs_file_update_rule_tr69_tod(WHITE, MAC_A.data(), p.data(), 3);
    EXPECT_EQ(3u, entry(2)->p[0]);
    EXPECT_EQ(1u,
              logged_count(
                  "HOSTBASE: hbs_file_update_rule_tr69_tod : failed to allocate memory, current count 96l"));
}

TEST_F(RuleIndex, Tr69Idx_ReplacesTheEntryWhenP5ToP7Differ) {
    add(WHITE, MAC_A, {1, 0, 0, 0, 0, 0, 0});
    add(WHITE, MAC_A, {2, 0, 0, 4, 5, 6, 7});
    const Parameters p = {2, 0, 0, 4, 5, 6, 70};
    hbs_file_update_rule_tr69_idx(WHITE, MAC_A.data(), p.data(), 2);
    EXPECT_EQ(70u, entry(1)->p[6]);
    EXPECT_EQ((Numbers{1, 2}), instances());
    EXPECT_EQ(2u, hbs_rule_count());
    EXPECT_EQ(94, hbs_pool_free_count(hbs_pool::rule));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_rule_tr69_idx : index found exists (200 2 )"));
}

TEST_F(RuleIndex, Tr69Idx_WhenP5ToP7AreTheSame_ChangesNothing) {
    add(WHITE, MAC_A, {1, 2, 3, 4, 5, 6, 7});
    const Parameters p = {1, 2, 3, 99, 5, 6, 7};
    hbs_file_update_rule_tr69_idx(WHITE, MAC_A.data(), p.data(), 1);
    EXPECT_EQ(4u, entry(0)->p[3]) << "p4 does not count";
}

TEST_F(RuleIndex, Tr69Idx_WithoutMatch_AppendsTheNextInstance) {
    add_many(2);
    clear_log();
    const Parameters p = {1, 0, 0, 0, 0, 0, 0};
    hbs_file_update_rule_tr69_idx(WHITE, MAC_A.data(), p.data(), 2); // the rule has instance 1
    EXPECT_EQ((Numbers{1, 2, 3}), instances());
    EXPECT_EQ((Numbers{1, 2, 1}), first_parameters());
    EXPECT_EQ(3u, hbs_rule_count());
    EXPECT_EQ(0u, logged_containing("index found exists"));
}

TEST_F(RuleIndex, Tr69Idx_WithoutMatch_ReplacesAnEntryWithTheNextInstance) {
    add_many(2);
    entry(0)->key[1] = 3;
    const Parameters p = {9, 0, 0, 0, 0, 0, 0};
    hbs_file_update_rule_tr69_idx(BLACK, MAC_B.data(), p.data(), 1);
    EXPECT_EQ((Numbers{3, 2}), instances());
    EXPECT_EQ((Numbers{9, 2}), first_parameters());
    EXPECT_EQ(2u, hbs_rule_count());
    EXPECT_EQ(94, hbs_pool_free_count(hbs_pool::rule)) << "the old element is given back";
}

TEST_F(RuleIndex, Tr69Idx_WhenPoolIsFull_Logs) {
    add_many(96);
    const Parameters p = {500, 0, 0, 0, 0, 0, 0};
    hbs_file_update_rule_tr69_idx(WHITE, MAC_A.data(), p.data(), 1);
    EXPECT_EQ(96u, hbs_rule_count());
    EXPECT_EQ(1u,
              logged_count(
                  "HOSTBASE: hbs_file_update_rule_tr69_idx : failed to allocate memory, current count 96l"));
}

TEST_F(RuleIndex, Clear_ReturnsEveryElement) {
    add_many(96);
    hbs_rule_index_clear();
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::rule));
    add_many(96);
    EXPECT_EQ(96u, hbs_rule_count());
}

} // namespace rule_index_test
