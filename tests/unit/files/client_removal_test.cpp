// Deleting one client for good.
#include "base/paths.h"
#include "files/client_removal.h"
#include "files/rule_files.h"
#include "store/client_fields.h"
#include "store/client_timers.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/rule_index.h"
#include "support/working_clients.h"

namespace client_removal_test {

class RemoveClient : public ClientsTest {};

TEST_F(RemoveClient, DeletesTheWorkingCopyAndItsFiles) {
    write_file("/var/tmp/lease_a", "x");
    write_file("/var/tmp/lease_b", "x");
    write_file("/var/tmp/lease_c", "x");
    hbs_client *client = add_client(1);
    hbs_set_lease_file(client, "lease_a");
    hbs_set_lease_file6(client, "lease_b");
    hbs_publish(client);
    hbs_client *other = add_client(2);
    hbs_set_lease_file(other, "lease_c");
    hbs_remove_client(client);
    EXPECT_FALSE(hbs_is_working_copy(client));
    EXPECT_EQ(std::vector{other}, working_clients());
    EXPECT_FALSE(file_exists("/var/tmp/lease_a"));
    EXPECT_FALSE(file_exists("/var/tmp/lease_b"));
    EXPECT_TRUE(file_exists("/var/tmp/lease_c"));
}

TEST_F(RemoveClient, DropsItsLinesFromTheLeaseFiles) {
    const std::string path = "/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases";
    write_file(path, "02:aa:00:00:00:01 192.168.1.50\n02:aa:00:00:00:02 192.168.1.51\n");
    hbs_client *client = add_published(1);
    add_published(2);
    hbs_remove_client(client);
    EXPECT_EQ("02:aa:00:00:00:02 192.168.1.51\n", read_file(path));
}

TEST_F(RemoveClient, PublishesEveryOtherClientAnew_MarkedAndIndexed) {
    hbs_client *first = add_client(1);
    hbs_client *second = add_client(2);
    hbs_client *third = add_client(3);
    hbs_client *unpublished = add_client(4);
    for (hbs_client *client : {first, second, third}) {
        memcpy(client->ipv4, ipv4_number(client->client_id).data(), 4);
        client->flags = HBS_FLAG_DYNIP4;
        hbs_publish(client);
    }
    unpublished->flags = 0;
    clear_log();
    hbs_remove_client(second);
    EXPECT_TRUE(logged("HOSTBASE: flush client list database"));
    const auto slots = published_clients();
    ASSERT_EQ(3U, slots.size());
    EXPECT_EQ(first->dbpos, slots[0]->dbpos);
    EXPECT_EQ(third->dbpos, slots[1]->dbpos);
    EXPECT_EQ(unpublished->dbpos, slots[2]->dbpos);
    EXPECT_EQ(HBS_FLAG_DYNIP4 | HBS_CHANGED_ADDRESS, slots[0]->flags);
    EXPECT_EQ(HBS_CHANGED_ADDRESS, slots[2]->flags);
    EXPECT_EQ(2U, ip_entries().size());
    EXPECT_EQ(2U, dhcp_entries().size());
    EXPECT_EQ(3U, if_entries().size());
    EXPECT_EQ(3U, hbs_pri_count());
    EXPECT_EQ(7U, hbs_rnd_map(0).word[0]) << "instances are dense again";
}

TEST_F(RemoveClient, LeavesTheCounterAsItIs) {
    add_client(1);
    hbs_remove_client(add_client(2));
    EXPECT_EQ(2U, hbs_client_counter());
    EXPECT_EQ(3U, add_client(3)->client_id);
    EXPECT_EQ(0U, logged_containing("hbs_delete_client:"));
}

TEST_F(RemoveClient, LoadsTheRulesAgain) {
    const uint32_t p[7] = {1, 2, 3, 4, 5, 6, 7};
    hbs_file_update_rule_idx(1, mac_number(9).data(), p);
    const hbs_rule rule = {{0x14, 2, 3, 4, 5, 6}};
    ASSERT_EQ(0, hbs_nv_update_client_white_rules(HBS_WHITE_RULES, mac_number(2).data(), &rule));
    hbs_client *client = add_published(1);
    add_published(2);
    hbs_remove_client(client);
    const auto rules = rule_entries();
    ASSERT_EQ(1U, rules.size()) << "what was in the index only is gone, what is in the file is there";
    EXPECT_EQ(mac_number(2), std::to_array(rules[0]->mac));
    EXPECT_EQ(1U, hbs_rule_count());
}

TEST_F(RemoveClient, DeletesItsTimers) {
    hbs_lease_timers_register([](hbs_client *) {}, [](hbs_client *) {}, [](hbs_client *) {});
    hbs_client *client = add_client(1);
    hbs_lease_timer_start(client, HBS_TIMER_LEASE, 3600);
    const hbs_timer_slot *slot = hbs_client_timer_slot(client, HBS_TIMER_LEASE);
    ASSERT_TRUE(slot->exists);
    hbs_remove_client(client);
    EXPECT_FALSE(slot->exists);
}

TEST_F(RemoveClient, NomacClientsAreNotPublishedAnew_AndGetAFreshSlotLater) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_publish(nomac);
    hbs_client *client = add_published(1);
    hbs_client *other = add_published(2);
    hbs_remove_client(client);
    EXPECT_EQ(1U, published_clients().size());
    EXPECT_EQ(nullptr, hbs_slot_of(nomac));
    hbs_publish(nomac);
    EXPECT_EQ(2U, published_clients().size());
    EXPECT_NE(other->dbpos, nomac->dbpos);
}

TEST_F(RemoveClient, OfANomacClient_RebuildsTheRestToo) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_publish(nomac);
    hbs_client *other = add_published(1);
    hbs_remove_client(nomac);
    EXPECT_TRUE(nomac_clients().empty());
    ASSERT_EQ(1U, published_clients().size());
    EXPECT_EQ(other->dbpos, published_clients()[0]->dbpos);
}

// Lines of six zero bytes are placeholders, and the leases of internal devices.
TEST_F(RemoveClient, OfANomacClient_LeavesTheLinesOfSixZeroBytes) {
    const std::string path = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
    write_file(path, "00:00:00:00:00:00 192.168.0.50\n");
    hbs_remove_client(hbs_add(nullptr));
    EXPECT_EQ("00:00:00:00:00:00 192.168.0.50\n", read_file(path));
}

TEST_F(RemoveClient, OfTheOnlyClient_LeavesAnEmptyDatabase) {
    hbs_remove_client(add_published(1));
    EXPECT_TRUE(published_clients().empty());
    EXPECT_TRUE(if_entries().empty());
    EXPECT_EQ(0U, hbs_pri_count());
}

// Publishing the rest reclaims slots, which deletes working copies while the list is walked.
TEST_F(RemoveClient, WithMoreClientsThanSlots_EndsWithAConsistentDatabase) {
    hbs_client *victim = add_client(1);
    for (unsigned n = 2; n <= 300; ++n) {
        hbs_client *client = add_client(n);
        client->flags = 0;
        client->online_time = 1000 - n;
    }
    hbs_remove_client(victim);
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), published_clients().size());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), working_clients().size());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), if_entries().size());
    for (const hbs_client *client : working_clients())
        EXPECT_NE(nullptr, hbs_slot_of(client));
}

TEST_F(RemoveClient, OfAStranger_DoesNothing) {
    hbs_client stranger{};
    add_published(1);
    clear_log();
    hbs_remove_client(&stranger);
    hbs_remove_client(nullptr);
    EXPECT_EQ(1U, published_clients().size());
    EXPECT_TRUE(log_lines().empty());
}

class DropFiles : public ClientsTest {
  protected:
    void SetUp() override {
        ClientsTest::SetUp();
        write_file("/var/tmp/lease_a", "x");
        write_file("/var/tmp/lease_b", "x");
        write_file("/nvram/8/outside", "x");
    }
    static hbs_client_remains remains_of(const std::string &file, const std::string &file6) {
        hbs_client_remains remains{};
        remains.exist = true;
        memcpy(remains.mac, mac_number(1).data(), 6);
        memcpy(remains.lease_file, file.data(), file.size());
        memcpy(remains.lease_file6, file6.data(), file6.size());
        return remains;
    }
    const std::string path_ = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
};

TEST_F(DropFiles, DropsTheLinesOfTheMacAndBothFiles) {
    write_file(path_, "02:aa:00:00:00:01 192.168.0.50\n02:aa:00:00:00:02 192.168.0.51\n");
    const hbs_client_remains remains = remains_of("lease_a", "lease_b");
    hbs_client_drop_files(&remains);
    EXPECT_EQ("02:aa:00:00:00:02 192.168.0.51\n", read_file(path_));
    EXPECT_FALSE(file_exists("/var/tmp/lease_a"));
    EXPECT_FALSE(file_exists("/var/tmp/lease_b"));
}

// They are placeholders and leases of internal devices, none of which is the client's.
TEST_F(DropFiles, OfAClientWithoutAMac_LeavesTheLinesOfSixZeroBytes) {
    write_file(path_, "00:00:00:00:00:00 192.168.0.50\n");
    hbs_client_remains remains = remains_of("lease_a", "");
    memset(remains.mac, 0, 6);
    hbs_client_drop_files(&remains);
    EXPECT_EQ("00:00:00:00:00:00 192.168.0.50\n", read_file(path_));
    EXPECT_FALSE(file_exists("/var/tmp/lease_a"));
}

struct NameCase {
    const char *name;
    const char *file;
};

class LeaseFileName : public DropFiles, public testing::WithParamInterface<NameCase> {};

INSTANTIATE_TEST_SUITE_P(Hostile, LeaseFileName,
                         testing::Values(NameCase{"Empty", ""}, NameCase{"Dot", "."},
                                         NameCase{"DotDot", ".."}, NameCase{"Up", "../../nvram/8/outside"},
                                         NameCase{"Absolute", "/nvram/8/outside"},
                                         NameCase{"Below", "directory/file"},
                                         NameCase{"Directory", "directory"},
                                         NameCase{"ShellWords", "lease_a; rm lease_b"},
                                         NameCase{"Pattern", "lease_*"}, NameCase{"Format", "%s%n"}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(LeaseFileName, DeletesNothing) {
    write_file("/var/tmp/directory/file", "x");
    const hbs_client_remains remains = remains_of(GetParam().file, GetParam().file);
    hbs_client_drop_files(&remains);
    EXPECT_TRUE(file_exists("/var/tmp/lease_a"));
    EXPECT_TRUE(file_exists("/var/tmp/lease_b"));
    EXPECT_TRUE(file_exists("/var/tmp/directory/file"));
    EXPECT_TRUE(file_exists("/nvram/8/outside"));
}

// A text that fills its field has no end: what stands behind the field is no part of the name.
TEST_F(DropFiles, FileNameThatDoesNotEndInItsFieldDeletesNothing) {
    const std::string name(sizeof(hbs_client::lease_file), 'n');
    write_file("/var/tmp/" + name, "x");
    const hbs_client_remains remains = remains_of(name, "");
    hbs_client_drop_files(&remains);
    EXPECT_TRUE(file_exists("/var/tmp/" + name));
}

TEST_F(DropFiles, LongestFileNameIsDeletedToo) {
    const std::string name(sizeof(hbs_client::lease_file) - 1, 'n');
    write_file("/var/tmp/" + name, "x");
    const hbs_client_remains remains = remains_of("", name);
    hbs_client_drop_files(&remains);
    EXPECT_FALSE(file_exists("/var/tmp/" + name));
}

} // namespace client_removal_test
