// Commit, removal from the segment, flush, hotspot marking.
#include <set>

#include "store/client_fields.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/publish.h"
#include "store/rule_index.h"
#include "support/working_clients.h"

namespace publish_test {

class Commit : public PublishTest {};

TEST_F(Commit, FirstTime_TakesASlotAtTheTail) {
    hbs_client *first = add_client(1);
    hbs_client *second = add_client(2);
    memcpy(first->host, "laptop", 7);
    first->word1740 = 77;
    hbs_shm_commit(first);
    hbs_shm_commit(second);
    const auto slots = published_clients();
    ASSERT_EQ(2U, slots.size());
    EXPECT_EQ(slot_at(first->dbpos), slots[0]);
    EXPECT_EQ(slot_at(second->dbpos), slots[1]);
    EXPECT_EQ(first->dbpos, slots[0]->dbpos);
    EXPECT_TRUE(same_record(first, slots[0]));
    EXPECT_TRUE(same_record(second, slots[1]));
    EXPECT_EQ(52U, first->dbpos);
    EXPECT_EQ(52U + 1744U, second->dbpos);
}

TEST_F(Commit, Again_CopiesOverTheSameSlot) {
    hbs_client *client = add_published(1);
    add_published(2);
    const uint32_t dbpos = client->dbpos;
    const hbs_client *slot = slot_at(dbpos);
    const uint32_t next = slot->next;
    const uint32_t prev = slot->prev;
    memcpy(client->host, "laptop", 7);
    client->online_time = 5;
    hbs_shm_commit(client);
    EXPECT_EQ(dbpos, client->dbpos);
    EXPECT_TRUE(same_record(client, slot));
    EXPECT_EQ(next, slot->next) << "the slot keeps its own links";
    EXPECT_EQ(prev, slot->prev);
    EXPECT_EQ(2U, published_clients().size());
}

TEST_F(Commit, DbposOfAllOnes_CountsAsNotPublished) {
    hbs_client *client = add_client(1);
    client->dbpos = HBS_DBPOS_INVALID;
    hbs_shm_commit(client);
    EXPECT_EQ(52U, client->dbpos);
    EXPECT_EQ(1U, published_clients().size());
}

TEST_F(Commit, DbposThatIsNoSlot_CountsAsNotPublished) {
    const uint32_t wild[] = {1, 53, 52 + 96 * 1744, HBS_SHM_SIZE, 0x80000000, 0xFFFFFFFE};
    unsigned n = 0;
    for (uint32_t dbpos : wild) {
        hbs_client *client = add_client(n);
        client->dbpos = dbpos;
        hbs_shm_commit(client);
        EXPECT_EQ(52U + n * 1744U, client->dbpos);
        EXPECT_EQ(++n, published_clients().size());
    }
}

TEST_F(Commit, AfterAFlush_TakesAFreshSlotAndLeavesTheNewOwnersAlone) {
    hbs_client *old = add_published(1);
    const uint32_t stale = old->dbpos;
    hbs_shm_flush();
    std::vector<hbs_client *> others;
    for (unsigned n = 2; n <= HBS_MAX_CLIENTS; ++n)
        others.push_back(add_published(n));
    hbs_client *last = add_client(97);
    hbs_publish(last); // the old slot is at the free list's end
    ASSERT_EQ(stale, last->dbpos);
    for (hbs_client *client : others)
        EXPECT_NE(stale, client->dbpos);
    EXPECT_EQ(stale, old->dbpos);
    hbs_shm_remove(others[0]);
    hbs_shm_commit(old);
    EXPECT_NE(stale, old->dbpos);
    EXPECT_TRUE(same_record(old, slot_at(old->dbpos)));
    EXPECT_TRUE(same_record(last, slot_at(stale)));
}

TEST_F(Commit, NullClientDoesNothing) {
    hbs_shm_commit(nullptr);
    hbs_publish(nullptr);
    hbs_shm_remove(nullptr);
    EXPECT_TRUE(published_clients().empty());
}

TEST_F(Commit, PublishAlsoMakesTheIndexEntries) {
    hbs_client *client = add_client(1);
    hbs_set_ipv4(client, ipv4_number(1).data());
    hbs_publish(client);
    ASSERT_EQ(1U, ip_entries().size());
    EXPECT_EQ(client->dbpos, ip_entries()[0]->dbpos);
    ASSERT_EQ(1U, if_entries().size());
    EXPECT_EQ(client->dbpos, if_entries()[0]->dbpos);
    EXPECT_EQ(1U, pri_entries().size());
}

struct KeptCase {
    const char *name;
    uint32_t trust, flags;
};

class CommitFull : public PublishTest, public testing::WithParamInterface<KeptCase> {};

INSTANTIATE_TEST_SUITE_P(
    Kept, CommitFull,
    testing::Values(KeptCase{"OnLine", 0, HBS_FLAG_ONLINE}, KeptCase{"StaticIpv4", 0, HBS_FLAG_STIP4},
                    KeptCase{"StaticIpv6", 0, HBS_FLAG_STIP6}, KeptCase{"TrustedForSites", HBS_TRUST_SITE, 0},
                    KeptCase{"TrustedForServices", HBS_TRUST_SERV, 0},
                    KeptCase{"WhiteList", HBS_TRUST_WHITE, 0}, KeptCase{"BlackList", HBS_TRUST_BLACK, 0},
                    KeptCase{"NamedByTheUser", HBS_TRUST_USER, 0}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_P(CommitFull, The97thClient_ChangesNothingInTheSegment) {
    for (hbs_client *client : fill()) {
        client->trust = GetParam().trust;
        client->flags = GetParam().flags;
        hbs_shm_commit(client);
    }
    hbs_client *late = add_client(97);
    hbs_set_ipv4(late, ipv4_number(97).data());
    clear_log();
    const std::string before = segment_bytes();
    hbs_publish(late);
    EXPECT_EQ(std::vector<std::string>{NO_SLOT}, log_lines());
    EXPECT_TRUE(before == segment_bytes());
    EXPECT_EQ(0U, late->dbpos);
    EXPECT_EQ(late, hbs_find_by_mac(late->mac)) << "its working copy is kept";
}

TEST_F(Commit, StaleClientThatFindsNoSlot_MakesNoEntriesForAnothersSlot) {
    hbs_client *stale = add_published(200);
    memcpy(stale->ipv4, ipv4_number(200).data(), 4);
    hbs_shm_flush();
    fill();
    ASSERT_NE(HBS_DBPOS_NONE, stale->dbpos);
    const std::string before = segment_bytes();
    hbs_publish(stale);
    EXPECT_TRUE(logged(NO_SLOT));
    EXPECT_EQ(HBS_DBPOS_NONE, stale->dbpos);
    EXPECT_TRUE(before == segment_bytes());
}

class Remove : public PublishTest {};

TEST_F(Remove, UnlinksTheSlotAndFreesIt) {
    hbs_client *client = add_client(1);
    hbs_set_ipv4(client, ipv4_number(1).data());
    client->flags |= HBS_FLAG_DYNIP4;
    hbs_publish(client);
    hbs_client *other = add_published(2);
    const uint32_t dbpos = client->dbpos;
    hbs_shm_remove(client);
    EXPECT_EQ(std::vector{slot_at(other->dbpos)}, published_clients());
    EXPECT_EQ(0U, slot_at(dbpos)->dbpos);
    EXPECT_EQ(dbpos, client->dbpos) << "the working copy's is left as it was";
    EXPECT_TRUE(ip_entries().empty());
    EXPECT_TRUE(dhcp_entries().empty());
    EXPECT_EQ(1U, if_entries().size());
    EXPECT_EQ(1U, pri_entries().size());
    EXPECT_EQ(HBS_MAX_CLIENTS - 1, hbs_pool_free_count(hbs_pool::clients));
}

TEST_F(Remove, LaterCommit_TakesAFreshSlot) {
    hbs_client *client = add_published(1);
    const uint32_t stale = client->dbpos;
    hbs_shm_remove(client);
    hbs_shm_commit(client);
    EXPECT_NE(stale, client->dbpos) << "freed slots go to the end of the free list";
    EXPECT_EQ(1U, published_clients().size());
}

TEST_F(Remove, Twice_DoesNothingToTheNewOwner) {
    hbs_client *client = add_published(1);
    hbs_shm_remove(client);
    fill(); // takes every slot, the client's old one too
    const std::string before = segment_bytes();
    hbs_shm_remove(client);
    EXPECT_TRUE(before == segment_bytes());
}

class RemoveUnpublished : public PublishTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(RemoveUnpublished, DoesNothing) {
    add_published(1);
    hbs_client *client = add_client(2);
    client->dbpos = GetParam();
    const std::string before = segment_bytes();
    hbs_shm_remove(client);
    EXPECT_TRUE(before == segment_bytes());
}

INSTANTIATE_TEST_SUITE_P(Dbpos, RemoveUnpublished, testing::Values(0U, 0xFFFFFFFFU, 52U, 1000U, 0x80000000U));

class Flush : public PublishTest {};

TEST_F(Flush, EmptiesEveryList) {
    fill();
    const uint32_t p[7] = {1, 2, 3, 4, 5, 6, 7};
    hbs_file_update_rule_idx(1, mac_number(1).data(), p);
    hbs_client *client = hbs_client_first();
    memcpy(client->ipv4, ipv4_number(1).data(), 4);
    client->flags |= HBS_FLAG_DYNIP4;
    hbs_publish(client);
    ASSERT_EQ(1U, rule_entries().size());
    ASSERT_EQ(1U, dhcp_entries().size());
    clear_log();
    hbs_shm_flush();
    EXPECT_EQ("HOSTBASE: flush client list database", log_lines().at(0));
    EXPECT_TRUE(published_clients().empty());
    EXPECT_TRUE(ip_entries().empty());
    EXPECT_TRUE(dhcp_entries().empty());
    EXPECT_TRUE(if_entries().empty());
    EXPECT_TRUE(pri_entries().empty());
    EXPECT_TRUE(rule_entries().empty());
    EXPECT_EQ(0U, hbs_pri_count());
    EXPECT_EQ(0U, hbs_rule_count());
    EXPECT_EQ(0U, hbs_rnd_map(0).word[0]);
    EXPECT_EQ(0U, hbs_pri_map().word[0]);
    for (const hbs_client &slot : hbs_segment()->client_pool)
        EXPECT_EQ(0U, slot.dbpos);
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), working_clients().size()) << "working copies stay";
}

TEST_F(Flush, GivesEveryElementBack) {
    fill();
    hbs_shm_flush();
    EXPECT_EQ(HBS_MAX_CLIENTS, hbs_pool_free_count(hbs_pool::clients));
    EXPECT_EQ(HBS_MAX_IP_ENTRIES, hbs_pool_free_count(hbs_pool::ip));
    EXPECT_EQ(HBS_MAX_IF_ENTRIES, hbs_pool_free_count(hbs_pool::interface));
    EXPECT_EQ(HBS_MAX_DHCP_ENTRIES, hbs_pool_free_count(hbs_pool::dhcp));
    EXPECT_EQ(HBS_MAX_RULE_ENTRIES, hbs_pool_free_count(hbs_pool::rule));
    EXPECT_EQ(HBS_MAX_PRI_ENTRIES, hbs_pool_free_count(hbs_pool::primary));
}

TEST_F(Flush, EveryClientCanBePublishedAgain) {
    const auto clients = fill();
    hbs_shm_flush();
    for (auto client = clients.rbegin(); client != clients.rend(); ++client)
        hbs_publish(*client);
    std::set<uint32_t> positions;
    for (const hbs_client *client : clients) {
        positions.insert(client->dbpos);
        EXPECT_TRUE(same_record(client, slot_at(client->dbpos)));
    }
    EXPECT_EQ(clients.size(), positions.size());
    EXPECT_EQ(0U, logged_containing("Failed"));
}

class MarkHotspot : public PublishTest {};

TEST_F(MarkHotspot, MarksPublishedClientsOnEnabledInterfaces) {
    hbs_client *on = add_client(1);
    hbs_client *off = add_client(2);
    hbs_client *none = add_client(3);
    hbs_set_interface(on, 7, "wlan0.4");
    hbs_set_interface(off, 8, "l2sd0.2");
    for (hbs_client *client : {on, off, none})
        hbs_publish(client);
    set("xwifi.3.ifnames", "wlan1.4 wlan0.4");
    hbs_shm_mark_hotspot();
    EXPECT_EQ(1, slot_at(on->dbpos)->hotspot);
    EXPECT_EQ(0, slot_at(off->dbpos)->hotspot);
    EXPECT_EQ(0, slot_at(none->dbpos)->hotspot);
    EXPECT_EQ(0, on->hotspot) << "working copies are not touched";
}

TEST_F(MarkHotspot, ClearsNothing) {
    hbs_client *client = add_client(1);
    set("xwifi.0.ifnames", "wlan0.4");
    hbs_set_interface(client, 7, "wlan0.4");
    hbs_publish(client);
    unset("xwifi.0.ifnames");
    hbs_shm_mark_hotspot();
    EXPECT_EQ(1, slot_at(client->dbpos)->hotspot);
}

// The mark is the published copy's alone until the interface is set again.
TEST_F(MarkHotspot, IsGoneWithTheNextCommit) {
    hbs_client *client = add_client(1);
    hbs_set_interface(client, 7, "wlan0.4");
    hbs_publish(client);
    set("xwifi.0.ifnames", "wlan0.4");
    hbs_shm_mark_hotspot();
    ASSERT_EQ(1, slot_at(client->dbpos)->hotspot);
    hbs_shm_commit(client);
    EXPECT_EQ(0, slot_at(client->dbpos)->hotspot);
}

TEST_F(MarkHotspot, MarksClientsWithoutAMacToo) {
    hbs_client *client = hbs_add(nullptr);
    hbs_set_interface(client, 7, "wlan0.4");
    hbs_publish(client);
    set("xwifi.2.ifnames", "wlan0.4");
    hbs_shm_mark_hotspot();
    EXPECT_EQ(1, slot_at(client->dbpos)->hotspot);
    EXPECT_EQ(0, client->hotspot);
}

// Without a segment everything is refused, and nothing breaks.
class Unattached : public GatewayTest {};

TEST_F(Unattached, EveryOperationIsHarmless) {
    if (hbs_segment() != nullptr)
        GTEST_SKIP() << "an earlier test of this process attached it";
    hbs_client client{};
    hbs_publish(&client);
    EXPECT_TRUE(logged(NO_SLOT));
    EXPECT_EQ(0U, client.dbpos);
    hbs_shm_remove(&client);
    hbs_shm_flush();
    hbs_shm_mark_hotspot();
    hbs_client_remains remains{};
    EXPECT_EQ(nullptr, hbs_shm_reclaim(&remains));
}

} // namespace publish_test
