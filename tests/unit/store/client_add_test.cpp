// Who ends when a client is to be added and all working copies are in use.
#include "store/client_add.h"
#include "store/client_end.h"
#include "store/client_fields.h"
#include "store/client_timers.h"
#include "support/working_clients.h"

namespace client_add_test {

class WorkingPool : public PublishTest {
  protected:
    // All other working copies are in use and on line; those that have a slot are published.
    static void crowd_in_beside_one() {
        for (unsigned n = 1; n < HBS_MAX_WORKING; ++n) {
            hbs_client *client = add_client(n);
            client->flags = HBS_FLAG_ONLINE;
            if (n < HBS_MAX_CLIENTS)
                hbs_publish(client);
        }
    }

    static constexpr unsigned FIRST_UNPUBLISHED = HBS_MAX_CLIENTS + 1;

    // 96 published clients on line, and the rest of the pool unpublished with these flags.
    static void fill_pool(uint32_t flags) {
        fill();
        for (unsigned n = FIRST_UNPUBLISHED; n <= HBS_MAX_WORKING; ++n) {
            hbs_client *client = add_client(n);
            ASSERT_NE(nullptr, client);
            client->flags = flags;
            client->online_time = 1000 + n;
        }
    }
    static hbs_client *client_number(unsigned n) { return hbs_find_by_mac(mac_number(n).data()); }
};

TEST_F(WorkingPool, OldestUnpublishedOffLineUnprotectedCopyGoesFirst) {
    fill_pool(0);
    client_number(300)->online_time = 7;
    client_number(299)->online_time = 6;
    client_number(299)->trust = HBS_TRUST_USER;
    client_number(298)->online_time = 5;
    client_number(298)->flags = HBS_FLAG_ONLINE;
    client_number(297)->online_time = 4;
    hbs_set_commanded_lease(client_number(297), true);
    client_number(296)->online_time = 3;
    client_number(296)->flags = HBS_FLAG_STIP4;
    const std::string before = segment_bytes();
    ASSERT_NE(nullptr, add_client(600));
    EXPECT_EQ(nullptr, client_number(300));
    for (unsigned n = 296; n < 300; ++n)
        EXPECT_NE(nullptr, client_number(n)) << n;
    EXPECT_TRUE(before == segment_bytes());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_WORKING), working_clients().size());
}

TEST_F(WorkingPool, AmongEqualTimesTheOneAddedFirstGoes) {
    fill_pool(0);
    for (hbs_client *client : working_clients())
        client->online_time = 0x7FFFFFFF; // an age that keeps a slot keeps no unpublished copy
    ASSERT_NE(nullptr, add_client(600));
    EXPECT_EQ(nullptr, client_number(FIRST_UNPUBLISHED));
    EXPECT_NE(nullptr, client_number(FIRST_UNPUBLISHED + 1));
}

TEST_F(WorkingPool, ThenAPublishedOneByTheRule) {
    fill_pool(HBS_FLAG_ONLINE);
    go_offline(client_number(20), 500);
    go_offline(client_number(30), 400);
    ASSERT_NE(nullptr, add_client(600));
    EXPECT_EQ(nullptr, client_number(30));
    EXPECT_EQ(nullptr, published_of(mac_number(30).data()));
    EXPECT_NE(nullptr, client_number(20));
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS) - 1, published_clients().size());
    EXPECT_EQ(1U, logged_containing("HOSTBASE: reclaiming client # [02:aa:00:00:00:1e]"));
}

TEST_F(WorkingPool, APublishedNomacClientThatIsTakenEndsWhole) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_set_ipv4(nomac, ipv4_number(200).data());
    nomac->online_time = 1;
    hbs_publish(nomac);
    crowd_in_beside_one();
    ASSERT_NE(nullptr, add_client(600));
    EXPECT_TRUE(nomac_clients().empty());
}

TEST_F(WorkingPool, ThenARecordThatNobodyCanFind) {
    fill();
    hbs_client *nobody = hbs_add(nullptr);
    nobody->flags = HBS_FLAG_ONLINE;
    for (unsigned n = FIRST_UNPUBLISHED; n < HBS_MAX_WORKING; ++n)
        add_client(n)->flags = HBS_FLAG_ONLINE;
    go_offline(client_number(20), 500);
    hbs_client *late = add_client(600);
    ASSERT_NE(nullptr, late);
    EXPECT_EQ(nullptr, client_number(20)) << "one that the rule gives goes before it";
    EXPECT_EQ(std::vector{nobody}, nomac_clients());
    late->flags = HBS_FLAG_ONLINE;
    late = add_client(601);
    ASSERT_NE(nullptr, late);
    EXPECT_TRUE(nomac_clients().empty());
    late->flags = HBS_FLAG_ONLINE;
    EXPECT_EQ(nullptr, add_client(602)) << "all are on line";
}

TEST_F(WorkingPool, APublishedRecordThatNobodyCanFindGoesLast) {
    hbs_client *nobody = hbs_add(nullptr);
    nobody->flags = HBS_FLAG_ONLINE | HBS_FLAG_STIP6;
    hbs_publish(nobody);
    crowd_in_beside_one();
    ASSERT_NE(nullptr, add_client(600));
    EXPECT_TRUE(nomac_clients().empty());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS) - 1, published_clients().size());
}

TEST_F(WorkingPool, WhenAllAreProtectedOrOnLine_TheNewcomerIsRefused) {
    fill_pool(HBS_FLAG_STIP6);
    const std::string before = segment_bytes();
    clear_log();
    EXPECT_EQ(nullptr, add_client(600));
    EXPECT_EQ(nullptr, hbs_add(nullptr));
    EXPECT_TRUE(before == segment_bytes());
    EXPECT_TRUE(log_lines().empty());
    client_number(200)->flags = 0;
    EXPECT_NE(nullptr, add_client(600));
}

TEST_F(WorkingPool, WhoGoesLeavesNoTimerAndNoFile) {
    hbs_lease_timers_register([](hbs_client *) {}, [](hbs_client *) {}, [](hbs_client *) {});
    fill_pool(0);
    const std::string path = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
    write_file(path, "02:aa:00:00:00:61 192.168.0.50\n");
    write_file("/var/tmp/lease_a", "x");
    hbs_client *victim = client_number(FIRST_UNPUBLISHED);
    hbs_set_lease_file(victim, "lease_a");
    victim->flags = 0;
    hbs_lease_timer_start(victim, HBS_TIMER_LEASE, 3600);
    const uint32_t counter = hbs_client_counter();
    ASSERT_EQ(victim, add_client(600)) << "its copy is used again";
    EXPECT_FALSE(hbs_client_timer_slot(victim, HBS_TIMER_LEASE)->exists);
    EXPECT_EQ("", read_file(path));
    EXPECT_FALSE(file_exists("/var/tmp/lease_a"));
    EXPECT_EQ(counter, hbs_client_counter()) << "one ended, one was added";
}

// A flood of strangers that come and go costs the place of strangers only.
TEST_F(WorkingPool, StrangersThatComeAndGo_NeverShutOutANewcomer) {
    fill();
    for (unsigned n = 100; n < 3000; ++n) {
        hbs_client *client = add_client(n);
        ASSERT_NE(nullptr, client) << n;
        hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
        hbs_publish(client);
        hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
        hbs_publish(client);
    }
    for (unsigned n = 1; n <= HBS_MAX_CLIENTS; ++n)
        EXPECT_NE(nullptr, client_number(n)) << n;
    hbs_clear_flags(client_number(5), 0, HBS_FLAG_ONLINE);
    hbs_publish(client_number(5));
    EXPECT_NE(HBS_DBPOS_NONE, add_published(4000)->dbpos);
}

} // namespace client_add_test
