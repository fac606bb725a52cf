// What the gateway has the daemon do to the database as a whole.
#include <string>

#include "events/maintenance.h"
#include "support/management.h"

namespace maintenance_test {

using Maintenance = ManagementTest;

TEST_F(Maintenance, Reset_LeavesTheClientsInMemoryAsTheyAre) {
    EXPECT_EQ(0, trust(LAPTOP, "mine"));
    EXPECT_EQ(0, hbs_handle_reset_defaults());
    EXPECT_EQ(" version 1\n", client_file());
    EXPECT_STREQ("mine", seen(LAPTOP)->comment);
    reload();
    EXPECT_EQ(0u, clients_seen());
}

TEST_F(Maintenance, Dump_LogsThePublishedClients) {
    (void)published_client(LAPTOP, "192.168.0.11", HBS_FLAG_DYNIP4);
    clear_log();
    hbs_handle_dump();
    EXPECT_EQ(1u, logged_containing("HOSTBASE: CLIENT # 0001 is [02:aa:00:00:00:11] "));
    EXPECT_TRUE(logged("HOSTBASE: ****** Total 1 clients ******"));
}

TEST_F(Maintenance, StaticLeasesFollowTheirNetworkFromTheOldAddressToTheNew) {
    write_file(STATIC_LEASES, "02:aa:00:00:00:11 192.168.0.50\n");
    EXPECT_EQ(0, hbs_handle_subnet_change(1, 0xc0a80001, 0xc0a80501, 24));
    EXPECT_FALSE(file_exists(STATIC_LEASES));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.5.50\n",
              read_file("/nvram/8/dhcpd/udhcpd.192.168.5.1.static_leases"));
}

} // namespace maintenance_test
