// The interface index and the primary index.
#include <string>
#include <vector>

#include "store/instance_index.h"
#include "support/store.h"

namespace instance_index_test {

using Keys = std::vector<std::string>;

class InstanceIndex : public StoreTest {
  protected:
    // Loses the only entry of a list behind the index's back: its instance stays in use.
    static void lose_first(hbs_pool pool) {
        const void *entry = hbs_list_first(pool);
        hbs_list_unlink(pool, entry);
        hbs_pool_give(pool, entry);
    }

    // For tests that leave maps and lists at odds on purpose.
    static void forget_all() { hbs_instance_index_clear(); }
};

TEST_F(InstanceIndex, Interface_InstancesRunFromOnePerNetwork) {
    for (uint8_t nwidx : {1, 0, 1, 0, 7})
        hbs_file_update_if_idx(publish(make(nwidx)));
    EXPECT_EQ((Keys{"200 1 ", "200 2 ", "201 1 ", "201 2 ", "207 1 "}), if_keys());
    EXPECT_EQ(0x3u, hbs_rnd_map(0).word[0]);
    EXPECT_EQ(0x3u, hbs_rnd_map(1).word[0]);
    EXPECT_EQ(0x1u, hbs_rnd_map(7).word[0]);
    EXPECT_EQ(1u, logged_count("HOSTBASE: insert new if index 201 2 "));
}

TEST_F(InstanceIndex, Interface_Networks8To15ShareKeyAndMap) {
    hbs_file_update_if_idx(publish(make(2)));
    hbs_file_update_if_idx(publish(make(10)));
    EXPECT_EQ((Keys{"202 1 ", "202 2 "}), if_keys());
    EXPECT_EQ(0x3u, hbs_rnd_map(2).word[0]);
}

TEST_F(InstanceIndex, Interface_FreedInstanceIsGivenAgain) {
    hbs_client *first = publish(make(0));
    hbs_file_update_if_idx(first);
    hbs_file_update_if_idx(publish(make(0)));
    hbs_file_remove_if_entry(hbs_slot_of(first));
    EXPECT_EQ(0x2u, hbs_rnd_map(0).word[0]);
    hbs_client *third = publish(make(0));
    hbs_file_update_if_idx(third);
    EXPECT_EQ((Keys{"200 1 ", "200 2 "}), if_keys());
    EXPECT_EQ(third->dbpos, entries<hbs_if_entry>(hbs_pool::interface)[0].dbpos);
}

TEST_F(InstanceIndex, Interface_SecondCallForAClientIsAlreadyHandled) {
    hbs_client *client = publish(make(0));
    hbs_file_update_if_idx(client);
    hbs_file_update_if_idx(client);
    EXPECT_EQ(Keys{"200 1 "}, if_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_if_idx : index already handled (200 1 )"));
}

TEST_F(InstanceIndex, Interface_AfterANetworkChangeStillOneEntry) {
    hbs_client *down = publish(make(3));
    hbs_client *up = publish(make(3));
    hbs_file_update_if_idx(down);
    hbs_file_update_if_idx(up);
    down->nwidx = 0;
    up->nwidx = 5;
    hbs_file_update_if_idx(down);
    hbs_file_update_if_idx(up);
    EXPECT_EQ((Keys{"203 1 ", "203 2 "}), if_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_if_idx : index already handled (203 1 )"));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_if_idx : index already handled (203 2 )"));
}

TEST_F(InstanceIndex, Interface_RemovalAfterANetworkChangeClearsTheBitOfTheEntrysNetwork) {
    hbs_client *client = publish(make(3));
    hbs_file_update_if_idx(client);
    hbs_file_update_if_idx(publish(make(0)));
    client->nwidx = 0;
    hbs_file_remove_if_entry(hbs_slot_of(client));
    EXPECT_EQ(0u, hbs_rnd_map(3).word[0]);
    EXPECT_EQ(1u, hbs_rnd_map(0).word[0]);
    EXPECT_EQ(Keys{"200 1 "}, if_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_remove_if_idx : client found (pos:" + pos(client) +
                               ") (203 1 )"));
}

TEST_F(InstanceIndex, Interface_WithAll128InstancesInUse_Gives127AndRejectsItWhenTaken) {
    for (int i = 0; i < 128; i++) {
        hbs_client *client = publish(make(1));
        hbs_file_update_if_idx(client);
        lose_first(hbs_pool::interface);
        unpublish(client);
    }
    hbs_instance_map map = hbs_rnd_map(1);
    ASSERT_EQ(0xFFFFFFFFu, map.word[0] & map.word[1] & map.word[2] & map.word[3]);
    clear_log();
    hbs_client *first = publish(make(1));
    hbs_client *second = publish(make(1));
    hbs_file_update_if_idx(first);
    hbs_file_update_if_idx(second);
    EXPECT_EQ(Keys{"201 127 "}, if_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: insert new if index 201 127 "));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_if_idx : index already exists (201 127 )"));
    hbs_file_remove_if_entry(hbs_slot_of(first));
    EXPECT_EQ(0xBFFFFFFFu, hbs_rnd_map(1).word[3]);
    forget_all();
}

TEST_F(InstanceIndex, Interface_WhenPoolIsFull_LogsAndMarksNoInstance) {
    for (int i = 0; i < 95; i++)
        hbs_file_update_if_idx(publish(make(static_cast<uint8_t>(i % 8))));
    ASSERT_NE(nullptr, hbs_pool_take(hbs_pool::interface));
    hbs_file_update_if_idx(publish(make(0)));
    EXPECT_EQ(95u, if_keys().size());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_if_idx : failed to allocate memory\n"));
    EXPECT_EQ(0xFFFu, hbs_rnd_map(0).word[0]);
    forget_all();
}

TEST_F(InstanceIndex, ClientWithoutSlot_GetsNoEntry) {
    hbs_client *client = make(0);
    for (uint32_t dbpos : {0u, 0xFFFFFFFFu, 52u, 60u}) {
        client->dbpos = dbpos;
        hbs_file_update_if_idx(client);
        hbs_file_update_pri_idx(client);
        hbs_file_remove_if_entry(hbs_slot_of(client));
        hbs_file_remove_pri_idx(hbs_slot_of(client));
    }
    hbs_file_update_if_idx(nullptr);
    hbs_file_update_pri_idx(nullptr);
    EXPECT_TRUE(if_keys().empty());
    EXPECT_TRUE(pri_keys().empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(InstanceIndex, Primary_OnlyClientsOfNetwork0) {
    for (int nwidx = 0; nwidx < 16; nwidx++)
        hbs_file_update_pri_idx(publish(make(static_cast<uint8_t>(nwidx))));
    EXPECT_EQ((Keys{"1 ", "2 "}), pri_keys()) << "networks 0 and 8";
    EXPECT_EQ(2u, hbs_pri_count());
    EXPECT_EQ(0x3u, hbs_pri_map().word[0]);
    EXPECT_EQ(1u, logged_count("HOSTBASE: insert new pri index 2 "));
}

TEST_F(InstanceIndex, Primary_ListIsInOrderOfCreation) {
    hbs_client *first = publish(make(0));
    hbs_file_update_pri_idx(first);
    hbs_file_update_pri_idx(publish(make(0)));
    hbs_file_update_pri_idx(publish(make(0)));
    hbs_file_remove_pri_idx(hbs_slot_of(first));
    hbs_file_update_pri_idx(publish(make(0)));
    EXPECT_EQ((Keys{"2 ", "3 ", "1 "}), pri_keys());
}

TEST_F(InstanceIndex, Primary_SecondCallForAClientExistsAlready) {
    hbs_client *client = publish(make(0));
    hbs_file_update_pri_idx(client);
    hbs_file_update_pri_idx(client);
    EXPECT_EQ(Keys{"1 "}, pri_keys());
    EXPECT_EQ(1u, hbs_pri_count());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_update_pri_idx : index already exists (1 )"));
}

TEST_F(InstanceIndex, Primary_RemovalClearsBitAndCountWhateverTheNetworkByThen) {
    hbs_client *client = publish(make(8));
    hbs_file_update_pri_idx(client);
    client->nwidx = 4;
    hbs_file_remove_pri_idx(hbs_slot_of(client));
    EXPECT_TRUE(pri_keys().empty());
    EXPECT_EQ(0u, hbs_pri_map().word[0]);
    EXPECT_EQ(0u, hbs_pri_count());
    EXPECT_EQ(
        1u, logged_count("HOSTBASE: hbs_file_remove_pri_idx : client found (pos:" + pos(client) + ") (1 )"));
}

TEST_F(InstanceIndex, Primary_WhenPoolIsFull_NamesTheCount) {
    for (int i = 0; i < 95; i++)
        hbs_file_update_pri_idx(publish(make(0)));
    ASSERT_NE(nullptr, hbs_pool_take(hbs_pool::primary));
    hbs_file_update_pri_idx(publish(make(0)));
    EXPECT_EQ(95u, pri_keys().size());
    EXPECT_EQ(
        1u, logged_count("HOSTBASE: hbs_file_update_pri_idx : failed to allocate memory, current count 95"));
    EXPECT_EQ(95u, hbs_pri_count());
    forget_all();
}

TEST_F(InstanceIndex, Primary_Instance127GivenTwice_StaysInUseUntilBothAreGone) {
    for (int i = 0; i < 128; i++) {
        hbs_client *client = publish(make(0));
        hbs_file_update_pri_idx(client);
        lose_first(hbs_pool::primary);
        unpublish(client);
    }
    hbs_client *first = publish(make(0));
    hbs_client *second = publish(make(0));
    hbs_file_update_pri_idx(first);
    hbs_file_update_pri_idx(second);
    EXPECT_EQ((Keys{"127 ", "127 "}), pri_keys());
    hbs_file_remove_pri_idx(hbs_slot_of(first));
    EXPECT_EQ(0xFFFFFFFFu, hbs_pri_map().word[3]);
    hbs_file_remove_pri_idx(hbs_slot_of(second));
    EXPECT_EQ(0xBFFFFFFFu, hbs_pri_map().word[3]);
    forget_all();
}

TEST_F(InstanceIndex, StaleDbpos_RemovesNothingOfTheSlotsNewClient) {
    hbs_client *old = publish(make(0));
    hbs_client *fresh = make(0);
    hbs_slot_set_owner(hbs_slot_of(old), fresh);
    fresh->dbpos = old->dbpos;
    hbs_file_update_if_idx(fresh);
    hbs_file_update_pri_idx(fresh);
    hbs_file_remove_if_entry(hbs_slot_of(old));
    hbs_file_remove_pri_idx(hbs_slot_of(old));
    hbs_file_update_if_idx(old);
    EXPECT_EQ(Keys{"200 1 "}, if_keys());
    EXPECT_EQ(Keys{"1 "}, pri_keys());
}

TEST_F(InstanceIndex, ClearEmptiesListsMapsAndCount) {
    for (uint8_t nwidx = 0; nwidx < 8; nwidx++) {
        hbs_client *client = publish(make(nwidx));
        hbs_file_update_if_idx(client);
        hbs_file_update_pri_idx(client);
    }
    hbs_instance_index_clear();
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::interface));
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::primary));
    for (int network = 0; network < 8; network++)
        EXPECT_EQ(0u, hbs_rnd_map(network).word[0]);
    EXPECT_EQ(0u, hbs_pri_map().word[0]);
    EXPECT_EQ(0u, hbs_pri_count());
}

} // namespace instance_index_test
