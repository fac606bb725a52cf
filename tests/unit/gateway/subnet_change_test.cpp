// Static leases that follow their network to a new subnet.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/paths.h"
#include "gateway/networks.h"
#include "gateway/subnet_change.h"
#include "gateway/userconf.h"
#include "support/gateway.h"
#include "support/waiting_call.h"

namespace subnet_change_test {

const std::string OLD = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
const std::string NEW = "/nvram/8/dhcpd/udhcpd.10.0.0.1.static_leases";
const std::string MOVED = "/var/tmp/stat_lease.tmp";
constexpr uint32_t OLD_ADDRESS = 0xC0A80001;
constexpr uint32_t NEW_ADDRESS = 0x0A000001;
const std::string BEGIN = "HOSTBASE: hbs_lease_subnet4_changed: rndidx 1 oldip c0a80001 newip a000001\n";
const std::string NO_RANGE =
    "HOSTBASE: hbs_lease_subnet4_changed: /nvram/8/userconf can't found DHCP configure";

// The pool of network 1 is .10 to .200.
class SubnetChange : public GatewayTest {
  protected:
    int change(uint32_t prefix = 24) {
        return hbs_lease_subnet4_changed(1, OLD_ADDRESS, NEW_ADDRESS, prefix);
    }
};

TEST_F(SubnetChange, MovesALeaseWithItsHostPart) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:11 10.0.0.50\n", read_file(NEW));
    EXPECT_FALSE(file_exists(OLD));
    EXPECT_FALSE(file_exists(MOVED));
    EXPECT_EQ((std::vector<std::string>{BEGIN, "HOSTBASE: new lease filename " + NEW + "\n"}), log_lines());
}

TEST_F(SubnetChange, KeepsAnIndexThatIsNotZero) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50 7\n02:aa:00:00:00:12 192.168.0.51 0\n");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:11 10.0.0.50 7\n02:aa:00:00:00:12 10.0.0.51\n", read_file(NEW));
}

TEST_F(SubnetChange, DropsLeasesOutsideThePoolWithoutAConfiguredRange) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.9\n02:aa:00:00:00:12 192.168.0.10\n"
                    "02:aa:00:00:00:13 192.168.0.200\n02:aa:00:00:00:14 192.168.0.201\n");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:12 10.0.0.10\n02:aa:00:00:00:13 10.0.0.200\n", read_file(NEW));
    EXPECT_EQ(2u, logged_count(NO_RANGE));
}

TEST_F(SubnetChange, KeepsLeasesOutsideThePoolWhenEitherEndIsConfigured) {
    for (const char *key : {HBS_USERCONF_RANGE_11, HBS_USERCONF_RANGE_13}) {
        write_file(HBS_USERCONF, std::string(key) + ".200=$C0A80002;\n");
        write_file(OLD, "02:aa:00:00:00:11 192.168.0.9\n");
        unlink(NEW.c_str());
        EXPECT_EQ(0, change());
        EXPECT_EQ("02:aa:00:00:00:11 10.0.0.9\n", read_file(NEW)) << key;
    }
    EXPECT_EQ(0u, logged_count(NO_RANGE));
}

TEST_F(SubnetChange, LooksAtTheRangeOfItsOwnNetwork) {
    write_file(HBS_USERCONF, std::string(HBS_USERCONF_RANGE_11) + ".201=$C0A80102;\n");
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.9\n");
    EXPECT_EQ(0, change());
    EXPECT_EQ("", read_file(NEW));
}

struct PrefixCase {
    uint32_t prefix;
    const char *moved;
};

std::ostream &operator<<(std::ostream &out, const PrefixCase &c) {
    return out << c.prefix;
}

class SubnetPrefix : public SubnetChange, public testing::WithParamInterface<PrefixCase> {};

TEST_P(SubnetPrefix, TellsTheHostPart) {
    set("network.1.pool", "192.168.0.0 192.168.0.0");
    write_file(HBS_USERCONF, std::string(HBS_USERCONF_RANGE_11) + ".200=$C0A80002;\n");
    write_file(OLD, "02:aa:00:00:00:11 192.168.5.50\n");
    EXPECT_EQ(0, change(GetParam().prefix));
    EXPECT_EQ(GetParam().moved, read_file(NEW));
}

INSTANTIATE_TEST_SUITE_P(Prefixes, SubnetPrefix,
                         testing::Values(PrefixCase{24, "02:aa:00:00:00:11 10.0.0.50\n"},
                                         PrefixCase{16, "02:aa:00:00:00:11 10.0.5.50\n"},
                                         PrefixCase{20, "02:aa:00:00:00:11 10.0.5.50\n"},
                                         PrefixCase{0, "02:aa:00:00:00:11 192.168.5.50\n"},
                                         PrefixCase{32, "02:aa:00:00:00:11 10.0.0.1\n"},
                                         PrefixCase{99, "02:aa:00:00:00:11 10.0.0.1\n"}));

TEST_F(SubnetChange, AddsToAFileThatIsThere) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    write_file(NEW, "02:aa:00:00:00:12 10.0.0.60\n");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:12 10.0.0.60\n02:aa:00:00:00:11 10.0.0.50\n", read_file(NEW));
    EXPECT_EQ((std::vector<std::string>{BEGIN, "HOSTBASE: new lease filename " + NEW + "\n",
                                        "HOSTBASE: new lease filename already existed\n"}),
              log_lines());
}

TEST_F(SubnetChange, CopiesOverAnEmptyFile) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    write_file(NEW, "");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:11 10.0.0.50\n", read_file(NEW));
    EXPECT_FALSE(logged("HOSTBASE: new lease filename already existed\n"));
}

TEST_F(SubnetChange, MovesWithinTheSameFile) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n02:aa:00:00:00:12 192.168.0.3\n");
    EXPECT_EQ(0, hbs_lease_subnet4_changed(1, OLD_ADDRESS, OLD_ADDRESS, 24));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", read_file(OLD));
}

TEST_F(SubnetChange, SkipsGarbageLines) {
    write_file(OLD, "02:aa:00:00:00:11\n02:aa:00:00:00:12 nonsense\n" + std::string(1 << 20, 'x') + "\n" +
                        std::string("02:aa:00:00:00:13 192.168.0.50\0\n", 32) + std::string(64, 'y') +
                        " 192.168.0.60\n\n02:aa:00:00:00:14 192.168.0.50");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:14 10.0.0.50\n", read_file(NEW));
}

TEST_F(SubnetChange, ReadsTheRouterDatabaseAnew) {
    ASSERT_TRUE(hbs_rnd_load());
    set("network.1.pool", "192.168.0.60 192.168.0.70");
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n02:aa:00:00:00:12 192.168.0.65\n");
    EXPECT_EQ(0, change());
    EXPECT_EQ("02:aa:00:00:00:12 10.0.0.65\n", read_file(NEW));
}

TEST_F(SubnetChange, FailsWithoutTheRouterDatabase) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    fail("RNDDB_Read", 5);
    EXPECT_EQ(-1, change());
    EXPECT_EQ((std::vector<std::string>{BEGIN, "HOSTBASE: hbs_lease_subnet4_changed: can't read rnddb"}),
              log_lines());
    EXPECT_EQ(5, hbs_rnd_status);
    EXPECT_TRUE(file_exists(OLD));
}

TEST_F(SubnetChange, FailsWithoutAnOldFile) {
    EXPECT_EQ(-1, change());
    EXPECT_EQ(
        (std::vector<std::string>{BEGIN, "HOSTBASE: hbs_lease_subnet4_changed: no old static lease file"}),
        log_lines());
    EXPECT_FALSE(file_exists(NEW));
}

TEST_F(SubnetChange, FailsWithoutAnAddressToNameAFileAfter) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    EXPECT_EQ(-1, hbs_lease_subnet4_changed(1, 0, NEW_ADDRESS, 24));
    EXPECT_EQ(-1, hbs_lease_subnet4_changed(1, OLD_ADDRESS, 0, 24));
    EXPECT_EQ(2u, logged_count("HOSTBASE: hbs_lease_subnet4_changed: no lease filename"));
    EXPECT_TRUE(file_exists(OLD));
}

TEST_F(SubnetChange, FailsWhenTheNewFileCannotBeMade) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    ASSERT_EQ(0, mkdir(MOVED.c_str(), 0755));
    EXPECT_EQ(-1, change());
    EXPECT_TRUE(logged("HOSTBASE: hbs_lease_subnet4_changed: can't create new static lease file"));
    EXPECT_TRUE(file_exists(OLD));
}

TEST_F(SubnetChange, KeepsTheOldFileWhenTheNewOneIsNotWritten) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    fail("COMMONUTILS_file_copy", -1);
    EXPECT_EQ(-1, change());
    EXPECT_TRUE(logged("HOSTBASE: can't move " + OLD + " to " + NEW));
    write_file(NEW, "02:aa:00:00:00:12 10.0.0.60\n");
    fail("COMMONUTILS_file_append", -1);
    EXPECT_EQ(-1, change());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", read_file(OLD));
    EXPECT_EQ("02:aa:00:00:00:12 10.0.0.60\n", read_file(NEW));
    EXPECT_FALSE(file_exists(MOVED));
}

TEST_F(SubnetChange, OfANetworkThatCannotBeIsLogged) {
    for (uint32_t rndidx : {0u, 9u}) {
        write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
        EXPECT_EQ(0, hbs_lease_subnet4_changed(rndidx, OLD_ADDRESS, NEW_ADDRESS, 24));
        EXPECT_EQ(1u, logged_count("HOSTBASE: (hbs_check_userconfig_get_dhcp_range)unknow nwidx:" +
                                   std::to_string(rndidx)));
        EXPECT_EQ("", read_file(NEW));
    }
    EXPECT_EQ(2u, logged_count(NO_RANGE));
}

TEST_F(SubnetChange, WaitsForTheServer) {
    write_file(OLD, "02:aa:00:00:00:11 192.168.0.50\n");
    const int server = open(OLD.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(server, LOCK_SH));
    WaitingCall mover([&] { (void)change(); });
    EXPECT_TRUE(mover.is_waiting());
    EXPECT_TRUE(file_exists(OLD));
    close(server);
    mover.join();
    EXPECT_FALSE(file_exists(OLD));
}

} // namespace subnet_change_test
