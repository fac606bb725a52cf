// The reclaim of a slot from the client that is off line longest, and the deletion that goes with it.
#include <algorithm>

#include "store/client_end.h"
#include "store/client_fields.h"
#include "store/client_timers.h"
#include "store/index.h"
#include "store/pools.h"
#include "support/working_clients.h"

namespace client_end_test {

class Reclaim : public PublishTest {};

TEST_F(Reclaim, TakesTheClientThatIsOffLineLongest) {
    const auto clients = fill();
    go_offline(clients[10], 500);
    go_offline(clients[20], 400);
    go_offline(clients[30], 600);
    const uint32_t slot = clients[20]->dbpos;
    hbs_client *late = add_published(97);
    EXPECT_EQ(slot, late->dbpos);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(21).data()));
    EXPECT_EQ(nullptr, published_of(mac_number(21).data()));
    EXPECT_NE(nullptr, hbs_find_by_mac(mac_number(11).data()));
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), published_clients().size());
    EXPECT_TRUE(same_record(late, slot_at(slot)));
    EXPECT_EQ(slot_at(slot), published_clients().back()) << "the newcomer is at the tail";
}

TEST_F(Reclaim, AmongEqualTimes_TheOneNearestTheHeadGoes) {
    const auto clients = fill();
    go_offline(clients[50], 500);
    go_offline(clients[40], 500);
    add_published(97);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(41).data()));
    EXPECT_NE(nullptr, hbs_find_by_mac(mac_number(51).data()));
}

TEST_F(Reclaim, TimesAreComparedSigned) {
    const auto clients = fill();
    go_offline(clients[10], 5);
    go_offline(clients[11], 0x80000000);
    go_offline(clients[12], 0xFFFFFFFF);
    add_published(97);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(12).data()));
    clients[10]->online_time = 6;
    add_published(98);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(13).data()));
    EXPECT_NE(nullptr, hbs_find_by_mac(mac_number(11).data()));
}

TEST_F(Reclaim, TheLargestTimeIsNeverTaken) {
    const auto clients = fill();
    go_offline(clients[10], 0x7FFFFFFF);
    hbs_client *late = add_published(97);
    EXPECT_TRUE(logged(NO_SLOT));
    EXPECT_EQ(HBS_DBPOS_NONE, late->dbpos);
    EXPECT_NE(nullptr, hbs_find_by_mac(mac_number(11).data()));
    go_offline(clients[10], 0x7FFFFFFE);
    hbs_publish(late);
    EXPECT_NE(HBS_DBPOS_NONE, late->dbpos);
}

TEST_F(Reclaim, JudgesThePublishedRecord) {
    const auto clients = fill();
    clients[10]->flags = 0; // not committed: readers still see it on line
    hbs_client *late = add_published(97);
    EXPECT_EQ(HBS_DBPOS_NONE, late->dbpos);
}

// Trust beyond the five user bits does not protect.
TEST_F(Reclaim, ASixthTrustBitProtectsNobody) {
    const auto clients = fill();
    clients[10]->trust = 0x20;
    go_offline(clients[10], 1);
    add_published(97);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(11).data()));
}

TEST_F(Reclaim, LogsTheVictimThenItsDeletion) {
    const auto clients = fill();
    memcpy(clients[10]->host, "laptop", 7);
    go_offline(clients[10], 1);
    const std::string at = position_text(clients[10]->dbpos);
    hbs_client *late = add_client(97);
    clear_log();
    hbs_shm_commit(late);
    std::vector<std::string> lines = log_lines();
    std::erase_if(lines,
                  [](const std::string &line) { return line.find("client found") != std::string::npos; });
    EXPECT_EQ(
        (std::vector<std::string>{
            "HOSTBASE: reclaiming client # [02:aa:00:00:00:0b] on unknown if: index: 0 no IPv4 - no IPv6 - "
            "(no LL) - (laptop) | at " +
                at,
            "HOSTBASE: hbs_delete_client: Client at " + at + " removed 02:aa:00:00:00:0b",
        }),
        lines);
}

TEST_F(Reclaim, LeavesNoIndexEntryOfTheVictim) {
    const auto clients = fill();
    hbs_client *victim = clients[10];
    memcpy(victim->ipv4, ipv4_number(11).data(), 4);
    hbs_publish(victim);
    go_offline(victim, 1);
    ASSERT_EQ(1U, ip_entries().size());
    const uint32_t slot = victim->dbpos;
    hbs_client *late = add_client(97);
    hbs_shm_commit(late);
    EXPECT_TRUE(ip_entries().empty());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS) - 1, if_entries().size());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS) - 1, pri_entries().size());
    for (const hbs_if_entry *entry : if_entries())
        EXPECT_NE(slot, entry->dbpos);
    hostbase_update_ip_indicies(late);
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), if_entries().size());
}

TEST_F(Reclaim, LowersTheCounter) {
    const auto clients = fill();
    go_offline(clients[10], 1);
    hbs_client *late = add_client(97);
    EXPECT_EQ(97U, hbs_client_counter());
    hbs_shm_commit(late);
    EXPECT_EQ(96U, hbs_client_counter());
    EXPECT_EQ(late->client_id, add_client(98)->client_id) << "the number of a client that is there repeats";
}

TEST_F(Reclaim, NomacVictimWithAnAddress_KeepsItsWorkingCopyAndGetsAFreshSlot) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_set_ipv4(nomac, ipv4_number(200).data());
    nomac->online_time = 1;
    hbs_publish(nomac);
    std::vector<hbs_client *> clients;
    for (unsigned n = 1; n < HBS_MAX_CLIENTS; ++n) {
        clients.push_back(add_client(n));
        clients.back()->flags = HBS_FLAG_ONLINE;
        hbs_publish(clients.back());
    }
    const uint32_t stale = nomac->dbpos;
    hbs_client *late = add_client(97);
    late->flags = HBS_FLAG_ONLINE;
    hbs_publish(late);
    ASSERT_EQ(stale, late->dbpos);
    EXPECT_EQ(std::vector{nomac}, nomac_clients());
    EXPECT_EQ(97U, hbs_client_counter()) << "nobody was deleted";
    EXPECT_EQ(0U, logged_containing("hbs_delete_client"));
    hbs_shm_commit(nomac);
    EXPECT_TRUE(logged(NO_SLOT));
    hbs_shm_remove(clients[0]);
    hbs_shm_commit(nomac);
    EXPECT_NE(stale, nomac->dbpos);
    EXPECT_TRUE(same_record(nomac, slot_at(nomac->dbpos)));
    EXPECT_TRUE(same_record(late, slot_at(stale)));
}

TEST_F(Reclaim, GivesAZeroedSlotOnNoListThatIsNobodys) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_publish(nomac);
    const uint32_t dbpos = nomac->dbpos;
    const hbs_shm_hold hold;
    hbs_client_remains remains{};
    const hbs_slot *slot = hbs_shm_reclaim(&remains);
    ASSERT_NE(nullptr, slot);
    ASSERT_EQ(slot_at(dbpos), &slot->record);
    EXPECT_EQ(std::string(sizeof *slot, '\0'),
              std::string(reinterpret_cast<const char *>(slot), sizeof *slot));
    EXPECT_TRUE(published_clients().empty());
    EXPECT_EQ(nullptr, hbs_slot_owner(slot));
    EXPECT_TRUE(remains.exist);
    EXPECT_EQ(nullptr, hbs_shm_reclaim(&remains)) << "nobody is left";
    hbs_slot_give_back(slot);
}

TEST_F(Reclaim, StaleDbposOfTheSameSlot_DoesNotMakeAVictim) {
    hbs_client *stale = add_published(200);
    hbs_shm_flush();
    auto clients = fill();
    const auto same = [&](const hbs_client *client) { return client->dbpos == stale->dbpos; };
    hbs_client *owner = *std::find_if(clients.begin(), clients.end(), same);
    go_offline(owner, 1);
    const Mac mac = std::to_array(owner->mac);
    add_published(97);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac.data()));
    EXPECT_EQ(stale, hbs_find_by_mac(mac_number(200).data()));
}

TEST_F(Reclaim, ClearsTheTimersOfTheVictim) {
    hbs_lease_timers_register([](hbs_client *) {}, [](hbs_client *) {}, [](hbs_client *) {});
    const auto clients = fill();
    hbs_lease_timer_start(clients[10], HBS_TIMER_LEASE, 3600);
    go_offline(clients[10], 1);
    hbs_timer_slot *slot = hbs_client_timer_slot(clients[10], HBS_TIMER_LEASE);
    ASSERT_TRUE(slot->exists);
    add_published(97);
    EXPECT_FALSE(slot->exists);
}

TEST_F(Reclaim, HappensAsOftenAsNeeded) {
    for (hbs_client *client : fill())
        go_offline(client, client->online_time);
    for (unsigned n = 97; n <= 300; ++n) {
        hbs_client *client = add_client(n);
        client->online_time = 2000 + n;
        hbs_publish(client);
        ASSERT_NE(HBS_DBPOS_NONE, client->dbpos);
    }
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), working_clients().size());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), if_entries().size());
}
// --- what is believed -----------------------------------------------------------------------------

class PlantedInTheSegment : public PublishTest {
  protected:
    // As another process reaches it.
    static hbs_client *slot_of(const hbs_client *client) {
        return &hbs_segment_shared()->client_pool[hbs_pool_number(hbs_pool::clients, hbs_slot_of(client))];
    }
};

TEST_F(PlantedInTheSegment, ZeroedTrustAndFlags_DoNotMakeAVictim) {
    const auto clients = fill();
    clients[10]->trust = HBS_TRUST_SITE;
    hbs_publish(clients[10]);
    for (hbs_client *client : clients) {
        slot_of(client)->trust = 0;
        slot_of(client)->flags = 0;
        slot_of(client)->online_time = 1;
    }
    const hbs_client *late = add_published(97);
    EXPECT_EQ(HBS_DBPOS_NONE, late->dbpos);
    EXPECT_TRUE(logged(NO_SLOT));
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS) + 1, working_clients().size());
}

TEST_F(PlantedInTheSegment, ItsTimesDoNotChooseTheVictim) {
    const auto clients = fill();
    go_offline(clients[10], 500);
    go_offline(clients[11], 400);
    slot_of(clients[10])->online_time = 1;
    slot_of(clients[11])->trust = HBS_TRUST_SITE;
    add_published(97);
    EXPECT_NE(nullptr, hbs_find_by_mac(mac_number(11).data()));
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(12).data()));
}

TEST_F(PlantedInTheSegment, PlantedFileNameAndMac_DeleteNothing) {
    const std::string leases = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
    const std::string lines = "02:aa:00:00:00:01 192.168.0.50\n";
    write_file("/var/tmp/of_another", "x");
    write_file(leases, lines);
    const auto clients = fill();
    go_offline(clients[10], 1);
    strcpy(slot_of(clients[10])->lease_file, "of_another");
    strcpy(slot_of(clients[10])->lease_file6, "of_another");
    memcpy(slot_of(clients[10])->mac, mac_number(1).data(), 6);
    clear_log();
    add_published(97);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(11).data()));
    EXPECT_TRUE(file_exists("/var/tmp/of_another"));
    EXPECT_EQ(lines, read_file(leases));
    EXPECT_EQ(1U, logged_containing("reclaiming client # [02:aa:00:00:00:0b]"));
}

// --- who else is kept, and who goes when nobody may ---------------------------------------------------

TEST_F(Reclaim, LeaseSetByACommandProtects_UntilItIsCleared) {
    const auto clients = fill();
    go_offline(clients[10], 1);
    hbs_set_commanded_lease(clients[10], true);
    hbs_client *late = add_published(97);
    EXPECT_EQ(HBS_DBPOS_NONE, late->dbpos);
    EXPECT_EQ(0U, published_of(mac_number(11).data())->flags & HBS_FLAG_STIP4)
        << "what readers see is as ever";
    hbs_set_commanded_lease(clients[10], false);
    hbs_publish(late);
    EXPECT_NE(HBS_DBPOS_NONE, late->dbpos);
}

TEST_F(Reclaim, NoteOfACommandedLease_EndsWithTheWorkingCopy) {
    hbs_client *client = add_client(1);
    hbs_set_commanded_lease(client, true);
    hbs_client_free(client);
    EXPECT_FALSE(hbs_has_commanded_lease(client));
    ASSERT_EQ(client, add_client(2)) << "the copy that was freed last is used first";
    EXPECT_FALSE(hbs_has_commanded_lease(client));
    hbs_client stranger{};
    hbs_set_commanded_lease(&stranger, true);
    EXPECT_FALSE(hbs_has_commanded_lease(&stranger));
}

// It was published with its address and on line; a release that is not published took the address away.
TEST_F(Reclaim, RecordThatNobodyCanFind_GoesWhenNoOtherMay) {
    hbs_client *nobody = hbs_add(nullptr);
    hbs_set_ipv6(nobody, ipv6_number(1).data());
    nobody->flags = HBS_FLAG_ONLINE | HBS_FLAG_STIP6;
    hbs_publish(nobody);
    for (unsigned n = 1; n < HBS_MAX_CLIENTS; ++n) {
        hbs_client *client = add_client(n);
        client->flags = HBS_FLAG_ONLINE;
        hbs_publish(client);
    }
    hbs_client *first = add_published(96);
    EXPECT_EQ(HBS_DBPOS_NONE, first->dbpos) << "an address can be found";
    hbs_set_ipv6(nobody, Ipv6{}.data());
    hbs_publish(first);
    EXPECT_NE(HBS_DBPOS_NONE, first->dbpos);
    EXPECT_TRUE(nomac_clients().empty());
    EXPECT_FALSE(hbs_is_working_copy(nobody));
}

TEST_F(Reclaim, RecordThatNobodyCanFind_StaysWhileAnotherMayGo) {
    hbs_client *nobody = hbs_add(nullptr);
    nobody->flags = HBS_FLAG_ONLINE;
    hbs_publish(nobody);
    for (unsigned n = 1; n < HBS_MAX_CLIENTS; ++n) {
        hbs_client *client = add_client(n);
        client->flags = n == 40 ? 0 : HBS_FLAG_ONLINE;
        hbs_publish(client);
    }
    add_published(96);
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(40).data()));
    EXPECT_TRUE(hbs_is_working_copy(nobody));
}

// --- files ------------------------------------------------------------------------------------------------

TEST_F(Reclaim, DropsTheVictimsFilesAfterTheHold) {
    static int drops;
    static int value;
    static Mac mac;
    static std::string file;
    drops = 0;
    hbs_client_end_register([](const hbs_client_remains *remains) {
        ++drops;
        value = semaphore_value();
        mac = std::to_array(remains->mac);
        file = remains->lease_file;
    });
    const auto clients = fill();
    hbs_set_lease_file(clients[10], "lease_a");
    go_offline(clients[10], 1);
    hbs_client *late = add_client(97);
    late->flags = HBS_FLAG_ONLINE;
    hbs_publish(late);
    EXPECT_EQ(1, drops);
    EXPECT_EQ(1, value) << "readers may look";
    EXPECT_EQ(mac_number(11), mac);
    EXPECT_EQ("lease_a", file);
    add_published(98);
    EXPECT_EQ(1, drops) << "nobody ended";
}

TEST_F(Reclaim, DropsItsLinesAndFiles) {
    const std::string path = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
    write_file(path, "02:aa:00:00:00:0b 192.168.0.50\n02:aa:00:00:00:02 192.168.0.51\n");
    write_file("/var/tmp/lease_a", "x");
    const auto clients = fill();
    hbs_set_lease_file(clients[10], "lease_a");
    go_offline(clients[10], 1);
    add_published(97);
    EXPECT_EQ("02:aa:00:00:00:02 192.168.0.51\n", read_file(path));
    EXPECT_FALSE(file_exists("/var/tmp/lease_a"));
}

class EndNobody : public PublishTest {
  protected:
    static hbs_client *add_nomac(uint8_t address) {
        hbs_client *client = hbs_add(nullptr);
        client->ipv6[15] = address;
        hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
        hbs_publish(client);
        return client;
    }
};

TEST_F(EndNobody, EndsOneWithNeitherMacNorAddress) {
    hbs_lease_timers_register([](hbs_client *) {}, [](hbs_client *) {}, [](hbs_client *) {});
    hbs_client *found = add_nomac(1);
    hbs_client *nobody = add_nomac(2);
    hbs_client *other = add_nomac(3);
    hbs_lease_timer_start(nobody, HBS_TIMER_ONLINE, 3600);
    const hbs_timer_slot *timer = hbs_client_timer_slot(nobody, HBS_TIMER_ONLINE);
    for (hbs_client *client : {nobody, other})
        hbs_set_ipv6(client, Ipv6{}.data());
    hbs_client_end_nobody();
    EXPECT_EQ((std::vector{found, other}), nomac_clients());
    EXPECT_EQ(2U, published_clients().size());
    EXPECT_FALSE(timer->exists);
    EXPECT_EQ(3U, hbs_client_counter()) << "the next one's number is new";
    hbs_client_end_nobody();
    hbs_client_end_nobody();
    EXPECT_EQ(std::vector{found}, nomac_clients());
}

TEST_F(EndNobody, ThatWasNeverPublishedGoesToo) {
    hbs_add(nullptr);
    hbs_client_end_nobody();
    EXPECT_TRUE(nomac_clients().empty());
}

using DeleteClient = PublishTest;

TEST_F(DeleteClient, EndsItsWorkingCopyAndTellsWhatIsLeft) {
    hbs_client *client = add_client(1);
    hbs_set_lease_file(client, "lease_a");
    hbs_set_lease_file6(client, "lease_b");
    hbs_publish(client);
    clear_log();
    const hbs_client_remains remains = hbs_delete_client(hbs_slot_of(client));
    EXPECT_TRUE(remains.exist);
    EXPECT_EQ(mac_number(1), std::to_array(remains.mac));
    EXPECT_STREQ("lease_a", remains.lease_file);
    EXPECT_STREQ("lease_b", remains.lease_file6);
    EXPECT_TRUE(working_clients().empty());
    EXPECT_FALSE(hbs_is_working_copy(client));
    EXPECT_TRUE(logged("HOSTBASE: hbs_delete_client: Client at 0x34 removed 02:aa:00:00:00:01"));
}

TEST_F(DeleteClient, TwoAddsAndOneDelete_LeaveTheCounterAtOne_TheNextIdRepeats) {
    hbs_client *first = add_published(1);
    hbs_client *second = add_published(2);
    (void)hbs_delete_client(hbs_slot_of(first));
    EXPECT_EQ(1U, hbs_client_counter());
    EXPECT_EQ(second->client_id, add_client(3)->client_id);
}

TEST_F(DeleteClient, SlotThatNoWorkingCopyPointsAt_LeavesItsFilesOnly) {
    hbs_client *client = add_client(1);
    hbs_set_lease_file(client, "lease_a");
    hbs_publish(client);
    const hbs_slot *slot = hbs_slot_of(client);
    hbs_slot_set_owner(slot, nullptr);
    clear_log();
    EXPECT_STREQ("lease_a", hbs_delete_client(slot).lease_file);
    EXPECT_EQ(std::vector{client}, working_clients());
    EXPECT_EQ(1U, hbs_client_counter());
    EXPECT_EQ(0U, logged_containing("hbs_delete_client:"));
}

} // namespace client_end_test
