// Pruning of the dynamic-lease and static-lease files.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "gateway/lease_prune.h"
#include "support/gateway.h"
#include "support/waiting_call.h"

namespace lease_prune_test {

const std::string STATIC_1 = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
const std::string DYNAMIC_1 = "/var/lib/misc/landhcps00.192.168.0.1.leases";
constexpr uint32_t FIRST = 0xC0A8000A; // 192.168.0.10
constexpr uint32_t LAST = 0xC0A800C8;  // 192.168.0.200
constexpr uint32_t LAN = 0xC0A80001;
constexpr uint32_t MASK = 0xFFFFFF00;
const std::string KEEPING = "HOSTBASE: hbs_lease_prune_host4: keeping ";
const std::string DISCARDING = "HOSTBASE: hbs_lease_prune_host4: discarding ";

class LeasePrune : public GatewayTest {
  protected:
    static std::string dynamic_line(int host) {
        return "02:aa:00:00:00:11 192.168.0." + std::to_string(host) + " 3600 laptop 1 a b c\n";
    }

    std::string pruned_dynamic(const std::string &text) {
        write_file(DYNAMIC_1, text);
        hbs_lease_prune_host4(0, FIRST, LAST);
        EXPECT_FALSE(file_exists("/var/tmp/dl.tmp"));
        return read_file(DYNAMIC_1);
    }

    std::string pruned_static(const std::string &text) {
        write_file(STATIC_1, text);
        hbs_lease_prune_static4(0, LAN, MASK);
        EXPECT_FALSE(file_exists("/var/tmp/sl.tmp"));
        return read_file(STATIC_1);
    }

    // A file that is `text` once only the first byte of each of its 1024-byte blocks is taken.
    static std::string blocks_of(const std::string &text) {
        std::string file;
        for (char first : text)
            file += first + std::string(1023, '#');
        return file;
    }
};

// --- dynamic ---
TEST_F(LeasePrune, DynamicFileOf600BytesIsEmptiedWithoutAWord) {
    std::string text;
    while (text.size() < 600)
        text += dynamic_line(50);
    text.resize(600);
    EXPECT_EQ("", pruned_dynamic(text));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(LeasePrune, DynamicFileOf2048BytesLeavesTheFirstByteOfEachBlockToLookAt) {
    EXPECT_EQ("", pruned_dynamic(blocks_of("xy")));
    EXPECT_EQ((std::vector<std::string>{DISCARDING + "xy"}), log_lines());
}

TEST_F(LeasePrune, DynamicCopyStopsBeforeAPartialBlock) {
    EXPECT_EQ("", pruned_dynamic(blocks_of("x") + std::string(1023, 'z')));
    EXPECT_EQ((std::vector<std::string>{DISCARDING + "x"}), log_lines());
}

TEST_F(LeasePrune, DynamicLinesOfTheCopyAreKeptInsideTheRange) {
    EXPECT_EQ("m 192.168.0.10 1 h 1 a b c\nm 192.168.0.200\n",
              pruned_dynamic(blocks_of("m 192.168.0.9\nm 192.168.0.10 1 h 1 a b c\nm 192.168.0.200\n"
                                       "m 192.168.0.201\nm 192.168.1.50\n")));
    EXPECT_EQ((std::vector<std::string>{DISCARDING + "m 192.168.0.9", KEEPING + "m 192.168.0.10 1 h 1 a b c",
                                        KEEPING + "m 192.168.0.200", DISCARDING + "m 192.168.0.201",
                                        DISCARDING + "m 192.168.1.50"}),
              log_lines());
}

TEST_F(LeasePrune, DynamicFileIsRewrittenInPlace) {
    write_file(DYNAMIC_1, dynamic_line(50));
    const int server = open(DYNAMIC_1.c_str(), O_RDONLY | O_CLOEXEC); // as the server has it open
    hbs_lease_prune_host4(0, FIRST, LAST);
    struct stat status = {};
    fstat(server, &status);
    close(server);
    EXPECT_EQ(0, status.st_size);
    EXPECT_EQ(1u, status.st_nlink);
}

TEST_F(LeasePrune, DynamicWaitsForTheServer) {
    write_file(DYNAMIC_1, dynamic_line(50));
    const int server = open(DYNAMIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(server, LOCK_EX));
    WaitingCall pruner([] { hbs_lease_prune_host4(0, FIRST, LAST); });
    EXPECT_TRUE(pruner.is_waiting());
    EXPECT_EQ(dynamic_line(50), read_file(DYNAMIC_1));
    close(server);
    pruner.join();
    EXPECT_EQ("", read_file(DYNAMIC_1));
}

TEST_F(LeasePrune, DynamicFileStaysWhenItCannotBeCopied) {
    ASSERT_EQ(0, mkdir("/var/tmp/dl.tmp", 0755));
    write_file(DYNAMIC_1, dynamic_line(50));
    hbs_lease_prune_host4(0, FIRST, LAST);
    EXPECT_EQ(dynamic_line(50), read_file(DYNAMIC_1));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: can't create /var/tmp/dl.tmp"));
}

TEST_F(LeasePrune, MissingFilesAndGroupsAreLeftAlone) {
    for (int group : {0, 1, 5, -1}) {
        hbs_lease_prune_host4(group, FIRST, LAST);
        hbs_lease_prune_static4(group, LAN, MASK);
    }
    EXPECT_FALSE(file_exists(DYNAMIC_1));
    EXPECT_FALSE(file_exists(STATIC_1));
    EXPECT_TRUE(log_lines().empty());
}

// --- static ---
struct StaticCase {
    const char *line;
    bool logged_as_kept;
    bool stays;
};

std::ostream &operator<<(std::ostream &out, const StaticCase &c) {
    return out << '"' << c.line << '"';
}

class StaticPrune : public LeasePrune, public testing::WithParamInterface<StaticCase> {};

TEST_P(StaticPrune, KeepsTheHostsOfTheSubnetAndPlaceholders) {
    const std::string line = GetParam().line;
    const std::string neighbour = "02:aa:00:00:00:99 192.168.0.99";
    EXPECT_EQ((GetParam().stays ? line + "\n" : "") + neighbour + "\n",
              pruned_static(line + "\n" + neighbour + "\n"));
    EXPECT_EQ((std::vector<std::string>{(GetParam().logged_as_kept ? KEEPING : DISCARDING) + line,
                                        KEEPING + neighbour}),
              log_lines());
}

INSTANTIATE_TEST_SUITE_P(Lines, StaticPrune,
                         testing::Values(StaticCase{"02:aa:00:00:00:11 192.168.0.5", true, true},
                                         StaticCase{"02:aa:00:00:00:11 192.168.0.254 17", true, true},
                                         StaticCase{"02:aa:00:00:00:11 192.168.1.5", false, false},
                                         StaticCase{"02:aa:00:00:00:11 192.168.0.1", false, false},
                                         StaticCase{"02:aa:00:00:00:11 192.168.0.0", false, false},
                                         StaticCase{"02:aa:00:00:00:11 192.168.0.255", false, false},
                                         StaticCase{"02:aa:00:00:00:11 0.0.0.0 4", false, true},
                                         StaticCase{"00:00:00:00:00:00 10.9.8.7 4", false, true},
                                         StaticCase{"00:00:00:00:00:00 192.168.0.7", true, true},
                                         StaticCase{"00:00:00:00:00:00 nonsense", false, true},
                                         StaticCase{"02:aa:00:00:00:11 nonsense", false, false},
                                         StaticCase{"02:aa:00:00:00:11", false, false},
                                         StaticCase{"", false, false}));

TEST_F(LeasePrune, StaticSkipsOverlongLinesAndNulBytes) {
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.5\n",
              pruned_static(std::string(1 << 20, 'x') + "\n" +
                            std::string("02:aa:00:00:00:12 192.168.0.6\0\n", 31) +
                            "02:aa:00:00:00:11 192.168.0.5"));
}

TEST_F(LeasePrune, StaticUsesTheMaskThatItIsGiven) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.255\n02:aa:00:00:00:12 192.168.1.255\n");
    hbs_lease_prune_static4(0, LAN, 0xFFFFFE00);
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.255\n", read_file(STATIC_1));
}

TEST_F(LeasePrune, StaticFileStaysWhenTheCopyFails) {
    const std::string text = "02:aa:00:00:00:11 192.168.1.5\n";
    fail("COMMONUTILS_file_copy", -1);
    EXPECT_EQ(text, pruned_static(text));
    EXPECT_TRUE(logged("HOSTBASE: can't write " + STATIC_1));
    succeed("COMMONUTILS_file_copy");
    ASSERT_EQ(0, mkdir("/var/tmp/sl.tmp", 0755));
    write_file(STATIC_1, text);
    hbs_lease_prune_static4(0, LAN, MASK);
    EXPECT_EQ(text, read_file(STATIC_1));
}

TEST_F(LeasePrune, StaticWaitsForTheServer) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.1.5\n");
    const int server = open(STATIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(server, LOCK_SH));
    WaitingCall pruner([] { hbs_lease_prune_static4(0, LAN, MASK); });
    EXPECT_TRUE(pruner.is_waiting());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.1.5\n", read_file(STATIC_1));
    close(server);
    pruner.join();
    EXPECT_EQ("", read_file(STATIC_1));
}

} // namespace lease_prune_test
