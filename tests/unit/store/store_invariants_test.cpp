// The invariant checker itself: each kind of damage makes it fail; and it holds through a long run of
// operations in any order.
#include <gtest/gtest-spi.h>
#include <random>
#include <string>
#include <vector>

#include "store/rule_index.h"
#include "support/store.h"
#include "support/store_invariants.h"

namespace store_invariants_test {

class StoreInvariants : public StoreTest {
  protected:
    void SetUp() override {
        StoreTest::SetUp();
        for (const char *address : {"192.168.0.10", "192.168.0.11"}) {
            clients_.push_back(publish(make(0, address)));
            clients_.back()->flags = HBS_FLAG_DYNIP4;
            hostbase_update_ip_indicies(clients_.back());
        }
        expect_store_sound();
    }

    // Whether the checker objects, with this among its words.
    static void expect_objection(const std::string &words) {
        testing::TestPartResultArray results;
        {
            testing::ScopedFakeTestPartResultReporter reporter(
                testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
            expect_store_sound();
        }
        bool found = false;
        for (int i = 0; i < results.size(); i++)
            found =
                found || std::string(results.GetTestPartResult(i).message()).find(words) != std::string::npos;
        EXPECT_TRUE(found) << "no objection of " << results.size() << " says: " << words;
    }

    // The image, to be written to past all that keeps it sound.
    static hbs_db *own() { return static_cast<hbs_db *>(hbs_segment_edit(0, HBS_SHM_SIZE)); }

    // Makes the segment sound again for the check at the end.
    void TearDown() override {
        hbs_shm_init();
        StoreTest::TearDown();
    }

    std::vector<hbs_client *> clients_;
};

TEST_F(StoreInvariants, ScribbledLinksAreSeen) {
    own()->ip_pool[0].next = 167477;
    expect_objection("IP index: the link 167477 leads out of the pool");
    own()->pri_pool[0].next = 219316;
    expect_objection("primary index: the link 219316 leads out of the pool or in a circle");
    own()->if_index.prev = 20;
    expect_objection("interface index: last element in the head");
    own()->client_pool[1].prev = 4;
    expect_objection("clients: link back of 1796");
    own()->dhcp_index.next = 28;
    expect_objection("DHCP-option index: elements were lost");
}

TEST_F(StoreInvariants, LostElementsAreSeen) {
    (void)hbs_pool_take(hbs_pool::ip);
    expect_objection("IP index: elements were lost");
}

TEST_F(StoreInvariants, ReferencesOfFreeElementsAreSeen) {
    own()->client_pool[95].dbpos = 7;
    expect_objection("clients: reference in free element");
}

TEST_F(StoreInvariants, EntriesOfUnpublishedSlotsAreSeen) {
    unpublish(clients_[0]);
    expect_objection("IP index: reference to unpublished 52");
    expect_objection("DHCP-option index: reference to unpublished 52");
    expect_objection("interface index: reference to unpublished 52");
    expect_objection("primary index: reference to unpublished 52");
}

TEST_F(StoreInvariants, TwoEntriesOfOneClientAreSeen) {
    own()->if_pool[1].dbpos = 52;
    own()->pri_pool[1].dbpos = 52;
    expect_objection("interface index: two entries of 52");
    expect_objection("primary index: two entries of 52");
}

TEST_F(StoreInvariants, SlotsSharedOrMisnumberedAreSeen) {
    hbs_slot_set_owner(hbs_slot_of(clients_[1]), clients_[0]);
    expect_objection("two slots of one working copy");
    expect_objection("dbpos of the working copy of slot 1796");
    own()->client_pool[0].dbpos = 53;
    expect_objection("dbpos of slot 52");
}

TEST_F(StoreInvariants, DisorderIsSeen) {
    own()->ip_pool[0].key[6] = 12;
    expect_objection("IP index: out of order");
    own()->dhcp_pool[0].key[5] = 12;
    expect_objection("DHCP-option index: out of order");
}

TEST_F(StoreInvariants, MapsAndCountsAtOddsAreSeen) {
    own()->if_pool[1].key[1] = 5;
    expect_objection("instance map of network 0");
    own()->pri_pool[1].key[0] = 5;
    expect_objection("hbs_pri_map");
    hbs_list_unlink(hbs_pool::primary, hbs_list_first(hbs_pool::primary));
    expect_objection("hbs_pri_count");
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const uint32_t p[7] = {};
    hbs_file_update_rule_idx(1, mac, p);
    hbs_list_unlink(hbs_pool::rule, hbs_list_first(hbs_pool::rule));
    expect_objection("hbs_rule_count");
}

// One client after another comes, moves, changes its address or goes, in any order.
class StoreWalk : public StoreTest {
  protected:
    uint32_t roll(uint32_t below) { return static_cast<uint32_t>(random_()) % below; }

    void change(hbs_client *client) {
        const uint8_t ipv4[4] = {192, 168, static_cast<uint8_t>(roll(2)), static_cast<uint8_t>(roll(40))};
        switch (roll(6)) {
        case 0:
            if (hbs_slot_of(client) == nullptr && hbs_pool_free_count(hbs_pool::clients) > 0)
                publish(client);
            break;
        case 1:
            hbs_file_remove_if_idx_locked(client);
            if (hbs_slot_of(client) != nullptr)
                unpublish(client);
            break;
        case 2:
            hbs_file_remove_if_idx_locked(client);
            memcpy(client->ipv4, ipv4, sizeof ipv4);
            break;
        case 3:
            hbs_file_remove_ll_entries(client);
            client->ll[15] = static_cast<uint8_t>(roll(40));
            break;
        case 4:
            client->nwidx = static_cast<uint8_t>(roll(16));
            client->flags = roll(2) * HBS_FLAG_DYNIP4 + roll(2) * HBS_FLAG_DYNIP6;
            break;
        default:
            hostbase_update_ip_indicies(client);
        }
    }

    void change_rules() {
        const uint8_t mac[6] = {2, 0, 0, 0, 0, static_cast<uint8_t>(roll(3))};
        const uint32_t p[7] = {roll(8), 0, 0, 0, roll(2), 0, 0};
        switch (roll(4)) {
        case 0:
            hbs_file_remove_rule_idx(1, mac, p[0], 0, 0);
            break;
        case 1:
            hbs_file_update_rule_tr69_tod(1, mac, p, 1 + roll(8));
            break;
        case 2:
            hbs_file_update_rule_tr69_idx(1, mac, p, 1 + roll(8));
            break;
        default:
            hbs_file_update_rule_idx(1, mac, p);
        }
    }

  private:
    std::minstd_rand random_{20};
};

TEST_F(StoreWalk, AnyOrderOfOperationsLeavesTheStoreSound) {
    std::vector<hbs_client *> clients;
    for (int i = 0; i < 120; i++)
        clients.push_back(make(0));
    for (int i = 0; i < 6000 && !HasFailure(); i++) {
        change(clients[roll(120)]);
        change_rules();
        if (i % 2000 == 1999) {
            hbs_index_clear();
            hbs_rule_index_clear();
            EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::rule));
        }
        expect_store_sound();
    }
}

} // namespace store_invariants_test
