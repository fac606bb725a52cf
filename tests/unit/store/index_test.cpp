// All index entries of a client together.
#include <semaphore.h>
#include <string>
#include <vector>

#include "base/log.h"
#include "store/index.h"
#include "support/store.h"

namespace index_test {

using Keys = std::vector<std::string>;

class Index : public StoreTest {
  protected:
    void SetUp() override {
        StoreTest::SetUp();
        semaphore_ = sem_open(HBS_SEMAPHORE_NAME, 0);
        ASSERT_NE(SEM_FAILED, semaphore_);
    }

    // Every operation that waits posts once, those that run under a caller's hold do neither.
    void TearDown() override {
        int value = -1;
        (void)sem_getvalue(semaphore_, &value);
        EXPECT_EQ(1, value);
        StoreTest::TearDown();
    }

    hbs_client *full_client(uint8_t nwidx) {
        hbs_client *client = publish(make(nwidx, "192.168.0.10"));
        set_ipv6(client->ipv6, "2001:db8::1");
        set_ipv6(client->ll, "fe80::1");
        client->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6;
        return client;
    }

    void expect_empty() {
        EXPECT_TRUE(ip_keys().empty());
        EXPECT_TRUE(dhcp_keys().empty());
        EXPECT_TRUE(if_keys().empty());
        EXPECT_TRUE(pri_keys().empty());
        EXPECT_EQ(288, hbs_pool_free_count(hbs_pool::ip));
        EXPECT_EQ(192, hbs_pool_free_count(hbs_pool::dhcp));
    }

    sem_t *semaphore_ = SEM_FAILED;
};

TEST_F(Index, Update_MakesEveryEntryOfAClient) {
    hbs_client *client = full_client(0);
    hostbase_update_ip_indicies(client);
    EXPECT_EQ((Keys{"200 1 4 192 168 0 10 ", "200 2 16 20 1 d b8 0 0 0 0 0 0 0 0 0 0 0 1 ",
                    "200 2 16 fe 80 0 0 0 0 0 0 0 0 0 0 0 0 0 1 "}),
              ip_keys());
    EXPECT_EQ((Keys{"200 1 192 168 0 10 0 : " + pos(client),
                    "200 2 fe 80 0 0 0 0 0 0 0 0 0 0 0 0 0 1 0 : " + pos(client)}),
              dhcp_keys());
    EXPECT_EQ(Keys{"200 1 "}, if_keys());
    EXPECT_EQ(Keys{"1 "}, pri_keys());
    EXPECT_EQ(
        1u, logged_count("HOSTBASE: hostbase_update_ip_indicies : created IPV4 index 200 1 4 192 168 0 10 "));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_dhcp_option_update_ip_indicies : created IPV4 index "
                               "200 1 192 168 0 10 0 : " +
                               pos(client)));
    EXPECT_EQ(2u, logged_containing("created IPV4 index"));
}

TEST_F(Index, Update_DhcpOptionEntriesNeedAddressAndFlag) {
    hbs_client *client = full_client(0);
    client->flags = HBS_FLAG_STIP4 | HBS_FLAG_STIP6;
    hostbase_update_ip_indicies(client);
    EXPECT_TRUE(dhcp_keys().empty());
    hbs_client *bare = publish(make(0));
    bare->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6;
    set_ipv6(bare->ipv6, "2001:db8::9");
    hostbase_update_ip_indicies(bare);
    EXPECT_TRUE(dhcp_keys().empty()) << "a global address makes no entry";
}

TEST_F(Index, Update_ClientWithoutAddresses_HasInterfaceEntryOnly) {
    hostbase_update_ip_indicies(publish(make(3)));
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_EQ(Keys{"203 1 "}, if_keys());
    EXPECT_TRUE(pri_keys().empty()) << "a client of network 3 has no primary entry";
}

TEST_F(Index, Update_Twice_ChangesNothing) {
    hbs_client *client = full_client(0);
    hostbase_update_ip_indicies(client);
    Keys before = ip_keys();
    hostbase_update_ip_indicies(client);
    EXPECT_EQ(before, ip_keys());
    EXPECT_EQ(2u, dhcp_keys().size());
    EXPECT_EQ(1u, if_keys().size());
    EXPECT_EQ(1u, pri_keys().size());
}

TEST_F(Index, Update_OfAnUnpublishedClientDoesNothing) {
    hbs_client *client = full_client(0);
    unpublish(client);
    clear_log();
    hostbase_update_ip_indicies(client);
    hostbase_update_ip_indicies(nullptr);
    for (uint32_t dbpos : {0u, 0xFFFFFFFFu, 221236u}) {
        client->dbpos = dbpos;
        hostbase_update_ip_indicies(client);
    }
    expect_empty();
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Index, Remove_TakesEveryEntryOfTheClient) {
    hbs_client *client = full_client(0);
    hbs_client *other = publish(make(0, "192.168.0.11"));
    hostbase_update_ip_indicies(client);
    hostbase_update_ip_indicies(other);
    hbs_file_remove_if_idx_locked(client);
    EXPECT_EQ(Keys{"200 1 4 192 168 0 11 "}, ip_keys());
    EXPECT_TRUE(dhcp_keys().empty());
    EXPECT_EQ(Keys{"200 2 "}, if_keys());
    EXPECT_EQ(Keys{"2 "}, pri_keys());
}

TEST_F(Index, Remove_UnderACallersHold_WaitsForNothing) {
    hbs_client *client = full_client(0);
    hostbase_update_ip_indicies(client);
    {
        hbs_shm_hold hold;
        hbs_file_remove_if_idx(hbs_slot_of(client));
    }
    expect_empty();
    EXPECT_EQ(0u, logged_containing("taken over"));
}

TEST_F(Index, Remove_AfterANetworkChange_LeavesNoBitNoEntryNoReference) {
    hbs_client *client = full_client(0);
    hostbase_update_ip_indicies(client);
    client->nwidx = 5;
    hostbase_update_ip_indicies(client); // entries under both networks now
    hbs_file_remove_if_idx_locked(client);
    expect_empty();
    for (int network = 0; network < 8; network++)
        EXPECT_EQ(0u, hbs_rnd_map(network).word[0]) << "network " << network;
    EXPECT_EQ(0u, hbs_pri_count());
    EXPECT_EQ(0u, hbs_pri_map().word[0]);
}

TEST_F(Index, Remove_OfASlotWhoseOwnerIsUnknown_FreesItsEntries) {
    hbs_client *client = full_client(0);
    hostbase_update_ip_indicies(client);
    const hbs_slot *slot = hbs_slot_of(client);
    hbs_slot_set_owner(slot, nullptr);
    hbs_file_remove_if_idx(slot);
    expect_empty();
}

TEST_F(Index, Remove_WithAStaleDbposTouchesNoOtherClient) {
    hbs_client *fresh = full_client(0);
    hostbase_update_ip_indicies(fresh);
    hbs_client *stale = make(0, "192.168.0.77");
    stale->dbpos = fresh->dbpos;
    hbs_file_remove_if_idx_locked(stale);
    hostbase_update_ip_indicies(stale);
    EXPECT_EQ(3u, ip_keys().size());
    EXPECT_EQ(1u, if_keys().size());
    EXPECT_EQ(1u, pri_keys().size());
}

TEST_F(Index, Clear_EmptiesTheFourLists) {
    hostbase_update_ip_indicies(full_client(0));
    hostbase_update_ip_indicies(publish(make(4, "192.168.4.1")));
    hbs_index_clear();
    expect_empty();
    EXPECT_EQ(2u, entries<hbs_client>(hbs_pool::clients).size()) << "clients stay";
}

// Nobody takes what is logged of an entry that is there already.
class QuietIndex : public Index {
  protected:
    void SetUp() override {
        Index::SetUp();
        hbs_log_init();
        set("log.level", "error");
        HBS_LOG(HBS_ERROR, "HOSTBASE: finds the level");
        ASSERT_FALSE(hbs_log_takes(HBS_INFO));
    }

    void expect_entries(const hbs_client *client, size_t ip, size_t dhcp) {
        hostbase_update_ip_indicies(client);
        EXPECT_EQ(ip, ip_keys().size());
        EXPECT_EQ(dhcp, dhcp_keys().size());
    }
};

TEST_F(QuietIndex, Update_Twice_ChangesNothing) {
    hbs_client *client = full_client(0);
    expect_entries(client, 3, 2);
    expect_entries(client, 3, 2);
    EXPECT_EQ(1u, if_keys().size());
    EXPECT_EQ(1u, pri_keys().size());
}

TEST_F(QuietIndex, Update_OfTheFirstClientWithoutAddresses_MakesItsEntries) {
    expect_entries(publish(make(0)), 0, 0);
    EXPECT_EQ(Keys{"200 1 "}, if_keys());
    EXPECT_EQ(Keys{"1 "}, pri_keys());
}

TEST_F(QuietIndex, Update_MakesTheEntriesOfWhatHasChanged) {
    hbs_client *client = full_client(3);
    client->flags = 0;
    expect_entries(client, 3, 0);
    client->flags = HBS_FLAG_DYNIP4;
    expect_entries(client, 3, 1);
    client->ipv4[3]++;
    expect_entries(client, 4, 2);
    set_ipv6(client->ipv6, "2001:db8::2");
    expect_entries(client, 5, 2);
    set_ipv6(client->ll, "fe80::2");
    client->flags |= HBS_FLAG_DYNIP6;
    expect_entries(client, 6, 3);
    EXPECT_TRUE(pri_keys().empty());
    client->nwidx = 0;
    expect_entries(client, 9, 5);
    EXPECT_EQ(1u, pri_keys().size());
}

TEST_F(QuietIndex, Update_MakesEntriesAgainThatWereRemoved) {
    hbs_client *client = full_client(0);
    expect_entries(client, 3, 2);
    hbs_file_remove_ipv6_entry(client);
    expect_entries(client, 3, 2);
    hbs_file_remove_if_idx_locked(client);
    expect_entries(client, 3, 2);
    hbs_index_clear();
    expect_entries(client, 3, 2);
}

TEST_F(QuietIndex, Update_MakesTheEntryOfAnAddressThatItsHolderGaveUp) {
    hbs_client *holder = publish(make(0, "192.168.0.10"));
    hbs_client *other = publish(make(0, "192.168.0.10"));
    expect_entries(holder, 1, 0);
    expect_entries(other, 1, 0);
    hbs_file_remove_if_idx_locked(holder);
    expect_entries(other, 1, 0);
    EXPECT_EQ(other->dbpos, entries<hbs_ip_entry>(hbs_pool::ip)[0].dbpos);
}

TEST_F(QuietIndex, Update_TriesAgainWhatThePoolHadNoElementFor) {
    hbs_client *client = full_client(0);
    std::vector<void *> taken;
    while (void *element = hbs_pool_take(hbs_pool::dhcp))
        taken.push_back(element);
    expect_entries(client, 3, 0);
    for (const void *element : taken)
        hbs_pool_give(hbs_pool::dhcp, element);
    expect_entries(client, 3, 2);
}

TEST_F(QuietIndex, Update_OfASlotsNextClientMakesItsEntries) {
    hbs_client *client = publish(make(3, "192.168.0.10"));
    expect_entries(client, 1, 0);
    hbs_file_remove_if_idx_locked(client);
    const hbs_slot *slot = hbs_slot_of(client);
    hbs_slot_unlink(slot);
    hbs_client *next = make(3, "192.168.0.10");
    hbs_slot_give_to(slot, next);
    expect_entries(next, 1, 0);
    EXPECT_EQ(Keys{"203 1 "}, if_keys());
}

} // namespace index_test
