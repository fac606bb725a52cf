// Edits of the static leases and host records.
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "gateway/static_leases.h"
#include "support/gateway.h"
#include "support/waiting_call.h"

namespace static_leases_test {

const std::string STATIC_1 = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
const std::string STATIC_2 = "/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases";
const std::string HOST_1 = "/nvram/8/dhcpd/udhcpd.192.168.0.1.host";
const std::string HOST_2 = "/nvram/8/dhcpd/udhcpd.192.168.1.1.host";
const std::string EXECUTE = "HOSTBASE: hbs_lease_delete_ipv4_static: execute cmd : ";

class StaticLeases : public GatewayTest {
  protected:
    hbs_static_lease lease_ = {"02:aa:00:00:00:11", "192.168.0.5", "laptop", 1, {"001122", "S1", "P1"}, 0};
};

const std::string RECORD = "02:aa:00:00:00:11 192.168.0.5 0 laptop 1 001122 S1 P1\n";

// --- add ---
TEST_F(StaticLeases, AddWritesLeaseAndHostRecord) {
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5\n", read_file(STATIC_1));
    EXPECT_EQ(RECORD, read_file(HOST_1));
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: hbs_lease_add_ipv4_static: add " + RECORD + " to file " +
                                        HOST_1}),
              log_lines());
}

TEST_F(StaticLeases, AddWritesAnIndexOnlyWhenItIsNotZero) {
    lease_.index = 4294967295u;
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(1, &lease_));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5 4294967295\n", read_file(STATIC_2));
    lease_.index = 0;
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(1, &lease_));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5 4294967295\n02:aa:00:00:00:11 192.168.0.5\n",
              read_file(STATIC_2));
}

TEST_F(StaticLeases, AddGrowsBothFiles) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6 7\n");
    write_file(HOST_1, "02:aa:00:00:00:12 192.168.0.6 0 other 1 null null null\n");
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6 7\n02:aa:00:00:00:11 192.168.0.5\n", read_file(STATIC_1));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6 0 other 1 null null null\n" + RECORD, read_file(HOST_1));
}

TEST_F(StaticLeases, AddMakesANewFileWithItsMode) {
    umask(022);
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    struct stat status = {};
    ASSERT_EQ(0, stat(STATIC_1.c_str(), &status));
    EXPECT_EQ(0755u, status.st_mode & 07777);
}

// A server that waits for the lock has the file open, and edits what it has open.
TEST_F(StaticLeases, AddKeepsTheFileThatAServerWaitsFor) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n");
    const int server = open(STATIC_1.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_EQ(4, write(server, "end\n", 4));
    close(server);
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00:00:11 192.168.0.5\nend\n", read_file(STATIC_1));
}

TEST_F(StaticLeases, AddGluesNothingToATornLastLine) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00");
    write_file(HOST_1, "02:aa:00:00:00:12 192.168.0");
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00\n02:aa:00:00:00:11 192.168.0.5\n",
              read_file(STATIC_1));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0\n" + RECORD, read_file(HOST_1));
}

TEST_F(StaticLeases, FifosInThePlaceOfTheFiles_CannotBeOpened) {
    ASSERT_EQ(0, mkfifo(STATIC_1.c_str(), 0666));
    ASSERT_EQ(0, mkfifo(HOST_1.c_str(), 0666));
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_EQ(-1, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static(lease_.mac));
    uint32_t index = 1;
    EXPECT_EQ(0, hbs_lease_get_static_index(0, lease_.mac, lease_.address, &index, nullptr));
    unlink(STATIC_1.c_str());
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(0, &lease_)) << "the host record";
    unlink(HOST_1.c_str());
}

TEST_F(StaticLeases, LockThatIsNeverLetGo_IsAFailure) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n");
    const int other = open(STATIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(other, LOCK_SH));
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_TRUE(logged("HOSTBASE: can't write " + STATIC_1));
    close(other);
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6\n", read_file(STATIC_1));
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
}

TEST_F(StaticLeases, AddFailsWithoutAFileName) {
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(5, &lease_));
    fail("RNDDB_inet4AddrGetWithKeyAndIndex", -1);
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_FALSE(file_exists(STATIC_1));
}

TEST_F(StaticLeases, AddFailsWhenAFileCannotBeWritten) {
    ASSERT_EQ(0, mkdir(STATIC_1.c_str(), 0755));
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_TRUE(logged("HOSTBASE: can't write " + STATIC_1));
    EXPECT_FALSE(file_exists(HOST_1));
    fail("COMMONUTILS_file_write", -1);
    EXPECT_EQ(-1, hbs_lease_add_ipv4_static(1, &lease_));
}

// A host name is one word of its record, whatever it is.
TEST_F(StaticLeases, AddKeepsHostileTextInsideItsField) {
    lease_.host = "a b\nc\t'$(touch /x)';\"%n\\/&\xc3\xbc";
    lease_.text[0] = "";
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5 0 a_b_c_'$(touch_/x)';\"%n\\/&\xc3\xbc 1 null S1 P1\n",
              read_file(HOST_1));
    const std::string long_text(5000, 'x');
    lease_.host = lease_.text[0] = lease_.text[1] = lease_.text[2] = long_text.c_str();
    EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
    const std::string cut(199, 'x');
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5 0 " + cut + " 1 " + cut + " " + cut + " " + cut,
              read_lines(HOST_1).at(1));
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static(lease_.mac));
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static(lease_.mac));
    EXPECT_EQ("", read_file(HOST_1));
}

// --- delete ---
TEST_F(StaticLeases, DeleteByMacTakesTheFirstLineOfEachFile) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00:00:11 192.168.0.5 3\n"
                         "02:aa:00:00:00:11 192.168.0.7\n");
    write_file(STATIC_2, "02:aa:00:00:00:11 192.168.1.5\n");
    write_file(HOST_1, "02:aa:00:00:00:12 192.168.0.6 0 other 1 a b c\n" + RECORD);
    write_file(HOST_2, "02:aa:00:00:00:11 192.168.1.5 0 laptop 1 a b c\n");
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static("02:aa:00:00:00:11"));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00:00:11 192.168.0.7\n", read_file(STATIC_1));
    EXPECT_EQ("", read_file(STATIC_2));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6 0 other 1 a b c\n", read_file(HOST_1));
    EXPECT_EQ("", read_file(HOST_2));
    EXPECT_EQ((std::vector<std::string>{
                  EXECUTE + "sed -i '/02:aa:00:00:00:11 192.168.0.5/d' " + STATIC_1,
                  EXECUTE + "sed -i '/02:aa:00:00:00:11 192.168.0.5 0 laptop 1 001122 S1 P1/d' " + HOST_1,
                  EXECUTE + "sed -i '/02:aa:00:00:00:11 192.168.1.5/d' " + STATIC_2,
                  EXECUTE + "sed -i '/02:aa:00:00:00:11 192.168.1.5 0 laptop 1 a b c/d' " + HOST_2}),
              log_lines());
}

TEST_F(StaticLeases, DeleteByAddressTakesTheFirstLineOfEachFile) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.51\n02:aa:00:00:00:11 192.168.0.5 3\n"
                         "02:aa:00:00:00:13 192.168.0.5\n");
    write_file(HOST_1, "02:aa:00:00:00:12 192.168.0.51 0 other 1 a b c\n" + RECORD);
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static_by_ip("192.168.0.5"));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.51\n02:aa:00:00:00:13 192.168.0.5\n", read_file(STATIC_1));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.51 0 other 1 a b c\n", read_file(HOST_1));
    EXPECT_TRUE(logged(EXECUTE + "sed -i '/02:aa:00:00:00:11 192.168.0.5/d' " + STATIC_1));
    EXPECT_TRUE(
        logged(EXECUTE + "sed -i '/02:aa:00:00:00:11 192.168.0.5 0 laptop 1 001122 S1 P1/d' " + HOST_1));
}

TEST_F(StaticLeases, DeleteLeavesOthersAloneAndAnswersZero) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6\n");
    for (const char *mac : {"02:aa:00:00:00:11", "02:aa:00:00:00", "", ".*"})
        EXPECT_EQ(0, hbs_lease_delete_ipv4_static(mac)) << mac;
    for (const char *address : {"192.168.0.5", "192.168.0.", "", ".*"})
        EXPECT_EQ(0, hbs_lease_delete_ipv4_static_by_ip(address)) << address;
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6\n", read_file(STATIC_1));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(StaticLeases, DeleteTakesAHostNameAsTextNotAsAPattern) {
    write_file(HOST_1, "02:aa:00:00:00:11 192.168.0.5 0 .*[x/' 1 a b c\n"
                       "02:aa:00:00:00:12 192.168.0.6 0 .* 1 a b c\n");
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static("02:aa:00:00:00:12"));
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5 0 .*[x/' 1 a b c\n", read_file(HOST_1));
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static("02:aa:00:00:00:11"));
    EXPECT_EQ("", read_file(HOST_1));
}

TEST_F(StaticLeases, DeleteLeavesGarbageLinesAlone) {
    const std::string garbage =
        std::string("nul\0x\n", 6) + std::string(1 << 20, 'g') + "\n\n02:aa:00:00:00:11\n";
    write_file(STATIC_1, garbage + "02:aa:00:00:00:11 192.168.0.5\n");
    EXPECT_EQ(0, hbs_lease_delete_ipv4_static("02:aa:00:00:00:11"));
    EXPECT_EQ(garbage, read_file(STATIC_1));
}

TEST_F(StaticLeases, DeleteWaitsForTheServer) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n");
    const int server = open(STATIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(server, LOCK_SH));
    WaitingCall editor([] { (void)hbs_lease_delete_ipv4_static("02:aa:00:00:00:11"); });
    EXPECT_TRUE(editor.is_waiting());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5\n", read_file(STATIC_1));
    close(server);
    editor.join();
    EXPECT_EQ("", read_file(STATIC_1));
}

TEST_F(StaticLeases, DeleteAllTakesEveryLine) {
    const std::string others = "02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00:00:13\t192.168.0.9\n";
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n" + others + "02:aa:00:00:00:11 192.168.0.7 2\n");
    write_file(HOST_1, RECORD + RECORD + "02:aa:00:00:00:11 192.168.0.7 0 laptop 1 a b c\n");
    hbs_lease_delete_all_ipv4_static("02:aa:00:00:00:11");
    EXPECT_EQ(others, read_file(STATIC_1));
    EXPECT_EQ("", read_file(HOST_1));
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5\n02:aa:00:00:00:14 192.168.0.5 2\n" + others);
    hbs_lease_delete_all_ipv4_static_by_ip("192.168.0.5");
    EXPECT_EQ(others, read_file(STATIC_1));
    hbs_lease_delete_all_ipv4_static("02:aa:00:00:00:13"); // a line that the command would not match: it ends
    EXPECT_EQ(others, read_file(STATIC_1));
}

TEST_F(StaticLeases, LeftoversOfAPowerCutAreCleared) {
    for (const std::string &path : {STATIC_1, STATIC_2, HOST_1, HOST_2}) {
        write_file(path, "02:aa:00:00:00:11 192.168.0.5\n");
        write_file(path + ".hbs-new", "02:aa:00:00");
    }
    hbs_lease_clear_leftovers();
    for (const std::string &path : {STATIC_1, STATIC_2, HOST_1, HOST_2}) {
        EXPECT_FALSE(file_exists(path + ".hbs-new")) << path;
        EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5\n", read_file(path));
    }
}

// --- index of a pair ---
struct IndexCase {
    const char *mac;
    const char *address;
    bool found;
    uint32_t index;
};

std::ostream &operator<<(std::ostream &out, const IndexCase &c) {
    return out << c.mac << " " << c.address;
}

class StaticIndex : public StaticLeases, public testing::WithParamInterface<IndexCase> {};

TEST_P(StaticIndex, IsThatOfTheLineWithBoth) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.6 1\n02:aa:00:00:00:12 192.168.0.5 2\n"
                         "02:aa:00:00:00:11 192.168.0.5 3\n02:aa:00:00:00:13 192.168.0.7\n");
    bool found = !GetParam().found;
    uint32_t index = 99;
    EXPECT_EQ(0, hbs_lease_get_static_index(0, GetParam().mac, GetParam().address, &index, &found));
    EXPECT_EQ(GetParam().found, found);
    EXPECT_EQ(GetParam().index, index);
    index = 99;
    EXPECT_EQ(0, hbs_lease_get_static_index(0, GetParam().mac, GetParam().address, &index, nullptr));
    EXPECT_EQ(GetParam().index, index);
}

INSTANTIATE_TEST_SUITE_P(Pairs, StaticIndex,
                         testing::Values(IndexCase{"02:aa:00:00:00:11", "192.168.0.5", true, 3},
                                         IndexCase{"02:aa:00:00:00:12", "192.168.0.5", true, 2},
                                         IndexCase{"02:aa:00:00:00:13", "192.168.0.7", true, 0},
                                         IndexCase{"02:aa:00:00:00:13", "192.168.0.5", false, 0},
                                         IndexCase{"02:aa:00:00:00:14", "192.168.0.7", false, 0},
                                         IndexCase{"", "192.168.0.7", false, 0},
                                         IndexCase{"02:aa:00:00:00:13", "", false, 0}));

TEST_F(StaticLeases, IndexIsZeroWithoutAFile) {
    for (int group : {0, 5}) {
        bool found = true;
        uint32_t index = 99;
        EXPECT_EQ(0, hbs_lease_get_static_index(group, "02:aa:00:00:00:11", "192.168.0.5", &index, &found));
        EXPECT_FALSE(found);
        EXPECT_EQ(0u, index);
    }
}

// --- update ---
TEST_F(StaticLeases, UpdateRewritesTheLineOfTheIndex) {
    write_file(STATIC_1, "02:aa:00:00:00:12 192.168.0.6 1\n02:aa:00:00:00:13 192.168.0.7 2\n");
    lease_.index = 2;
    EXPECT_EQ(0, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.6 1\n02:aa:00:00:00:11 192.168.0.5 2\n", read_file(STATIC_1));
    EXPECT_EQ(RECORD, read_file(HOST_1));
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: hbs_lease_add_ipv4_static: add " + RECORD + " to file " +
                                        HOST_1}),
              log_lines());
}

TEST_F(StaticLeases, UpdateReplacesTheFirstHostRecordOfMacOrAddress) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.5 2\n");
    const std::string by_address = "02:aa:00:00:00:13 192.168.0.5 0 third 1 a b c\n";
    const std::string by_mac = "02:aa:00:00:00:11 192.168.0.9 0 old 1 a b c\n";
    const std::string other = "02:aa:00:00:00:12 192.168.0.6 0 other 1 a b c\n";
    write_file(HOST_1, other + by_address + by_mac);
    EXPECT_EQ(0, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_EQ(other + by_mac + RECORD, read_file(HOST_1));
    write_file(HOST_1, other + by_mac + by_address);
    EXPECT_EQ(0, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_EQ(other + by_address + RECORD, read_file(HOST_1));
}

// What became of the line is not asked for: the record is replaced all the same.
TEST_F(StaticLeases, UpdateReplacesTheHostRecordAlsoWhereTheLineCannotBeRewritten) {
    const std::string line = "02:aa:00:00:00:12 192.168.0.6 2\n";
    write_file(STATIC_1, line);
    write_file(HOST_1, "02:aa:00:00:00:11 192.168.0.9 0 old 1 a b c\n");
    ASSERT_EQ(0, mkdir((std::string(STATIC_1) + ".hbs-new").c_str(), 0755)); // not to be removed
    lease_.index = 2;
    EXPECT_EQ(0, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_EQ(line, read_file(STATIC_1));
    EXPECT_EQ(RECORD, read_file(HOST_1));
}

TEST_F(StaticLeases, UpdateFailsWithoutANameOrAFile) {
    EXPECT_EQ(-1, hbs_lease_update_ipv4_static(5, &lease_));
    EXPECT_EQ(-1, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_FALSE(file_exists(STATIC_1));
    EXPECT_FALSE(file_exists(HOST_1));
}

TEST_F(StaticLeases, UpdateLeavesLinesThatAreNotLeasesAlone) {
    const std::string garbage =
        "2\n 2\n\n" + std::string(1 << 20, 'g') + " x 2\n" + std::string("a\0b c 2\n", 8);
    write_file(STATIC_1, garbage);
    lease_.index = 2;
    EXPECT_EQ(0, hbs_lease_update_ipv4_static(0, &lease_));
    EXPECT_TRUE(garbage == read_file(STATIC_1));
}

// --- the same content as the commands ---
const char *const STATIC_CONTENTS[] = {
    "",
    "02:aa:00:00:00:11 192.168.0.5\n",
    "02:aa:00:00:00:11 192.168.0.5 1\n02:aa:00:00:00:12 192.168.0.6 2\n02:aa:00:00:00:13 192.168.0.7 3\n",
    "02:aa:00:00:00:12 192.168.0.6\n02:aa:00:00:00:11 192.168.0.5 10\n02:aa:00:00:00:11 192.168.0.50 1\n",
    "02:aa:00:00:00:11 192.168.0.7 12\n02:aa:00:00:00:12 192.168.0.5 21\n02:aa:00:00:00:13 192.168.0.8 2",
    "02:aa:00:00:00:11 192.168.0.5 1\n02:aa:00:00:00:11 192.168.0.5 1\n02:aa:00:00:00:12 10.0.0.1 100\n",
    ("02:aa:00:00:00:11  192.168.0.5  1\n02:aa:00:00:00:12 192.168.0.6 1 "
     "1\n\n02:aa:00:00:00:13\t192.168.0.7\t1\n"),
};

const char *const HOST_CONTENTS[] = {
    "",
    "02:aa:00:00:00:11 192.168.0.5 0 laptop 1 a b c\n",
    "02:aa:00:00:00:12 192.168.0.6 0 other 1 a b c\n02:aa:00:00:00:11 192.168.0.5 0 laptop 1 null null null\n"
    "02:aa:00:00:00:11 192.168.0.50 0 laptop 1 null null null",
    "02:aa:00:00:00:11 192.168.0.5 0 laptop 1 a b c\n02:aa:00:00:00:11 192.168.0.5 0 laptop 1 a b cd\n"
    "02:aa:00:00:00:13 192.168.0.5 0 x 4294967295 a b c\n",
};

class StaticLeaseCommands : public StaticLeases {
  protected:
    // Runs the commands that the log names, in order, on copies of what the files held before.
    void run_logged_commands(const std::string &static_text, const std::string &host_text) {
        write_file(copy_of(STATIC_1), static_text);
        write_file(copy_of(HOST_1), host_text);
        for (std::string line : log_lines()) {
            if (line.compare(0, EXECUTE.size(), EXECUTE) != 0)
                continue;
            line.erase(0, EXECUTE.size());
            const size_t path = line.rfind(' ') + 1;
            line.replace(path, std::string::npos, copy_of(line.substr(path)));
            EXPECT_EQ(0, system(line.c_str())) << line;
        }
    }

    std::string copy_of(const std::string &path) const { return directory() + path; }
};

TEST_F(StaticLeaseCommands, DeletionsLeaveWhatTheLoggedCommandsLeave) {
    for (const bool by_mac : {true, false}) {
        for (const char *static_text : STATIC_CONTENTS) {
            for (const char *host_text : HOST_CONTENTS) {
                write_file(STATIC_1, static_text);
                write_file(HOST_1, host_text);
                clear_log();
                if (by_mac)
                    (void)hbs_lease_delete_ipv4_static("02:aa:00:00:00:11");
                else
                    (void)hbs_lease_delete_ipv4_static_by_ip("192.168.0.5");
                run_logged_commands(static_text, host_text);
                EXPECT_EQ(read_file(copy_of(STATIC_1)), read_file(STATIC_1)) << static_text;
                EXPECT_EQ(read_file(copy_of(HOST_1)), read_file(HOST_1)) << host_text;
            }
        }
    }
}

TEST_F(StaticLeaseCommands, UpdateLeavesWhatTheCommandLeaves) {
    for (const char *text : STATIC_CONTENTS) {
        for (const int index : {0, 1, 2, 10, 12, 168, 4711}) {
            write_file(STATIC_1, text);
            write_file(copy_of(STATIC_1), text);
            lease_.index = static_cast<uint32_t>(index);
            EXPECT_EQ(0, hbs_lease_update_ipv4_static(0, &lease_));
            const std::string number = std::to_string(index);
            const std::string command = "sed -i 's/.* .* " + number + "/02:aa:00:00:00:11 192.168.0.5 " +
                                        number + "/g' " + copy_of(STATIC_1);
            ASSERT_EQ(0, system(command.c_str()));
            EXPECT_EQ(read_file(copy_of(STATIC_1)), read_file(STATIC_1)) << command << "\non\n" << text;
        }
    }
}

TEST_F(StaticLeaseCommands, AddLeavesWhatTheCommandLeaves) {
    for (const char *text : {"", "02:aa:00:00:00:12 192.168.0.6 1\n"}) {
        write_file(STATIC_1, text);
        write_file(copy_of(STATIC_1), text);
        EXPECT_EQ(0, hbs_lease_add_ipv4_static(0, &lease_));
        ASSERT_EQ(0, system(("echo '02:aa:00:00:00:11 192.168.0.5' >> " + copy_of(STATIC_1)).c_str()));
        EXPECT_EQ(read_file(copy_of(STATIC_1)), read_file(STATIC_1));
    }
}

} // namespace static_leases_test
