// dnsmasq's file of hosts, made of the daemon's files of static leases.
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "linux_static.h"

namespace hosts_test {

constexpr const char *directory = "/tmp/leases";
constexpr const char *first = "/tmp/leases/0.static_leases";
constexpr const char *second = "/tmp/leases/1.static_leases";
constexpr const char *hosts = "/tmp/dhcp-hosts";

void write(const char *path, const std::string &text) {
    std::ofstream(path) << text;
}

std::string contents() {
    std::ostringstream text;
    text << std::ifstream(hosts).rdbuf();
    return text.str();
}

struct LinuxHosts : testing::Test {
    LinuxHosts() {
        (void)mkdir(directory, 0755);
        write(first, "02:aa:00:00:00:11 192.168.10.77 0\n");
    }
    ~LinuxHosts() override {
        for (const char *path : {first, second})
            (void)remove(path);
        (void)rmdir(directory);
        (void)remove(hosts);
    }
    static linux_hosts make() { return linux_hosts_write(directory, hosts); }
    // What stands before a failure stays, nothing is left beside it, and the next try succeeds.
    static void fails_until_it_is_gone(const char *in_the_way) {
        write(first, "02:aa:00:00:00:11 192.168.10.78 0\n");
        EXPECT_EQ(linux_hosts::failed, make());
        EXPECT_EQ("02:aa:00:00:00:11,192.168.10.77\n", contents());
        EXPECT_NE(0, access("/tmp/dhcp-hosts.new", F_OK));
        ASSERT_EQ(0, remove(in_the_way));
        EXPECT_EQ(linux_hosts::changed, make());
        EXPECT_EQ("02:aa:00:00:00:11,192.168.10.78\n", contents());
    }
};

TEST_F(LinuxHosts, AreAllStaticLeases) {
    write(second, "garbage\n02:aa:00:00:00:12 192.168.20.78 1\n");
    write("/tmp/leases/other", "02:aa:00:00:00:13 192.168.20.79 1\n");
    EXPECT_EQ(linux_hosts::changed, make());
    const std::string both = contents();
    EXPECT_NE(std::string::npos, both.find("02:aa:00:00:00:11,192.168.10.77\n"));
    EXPECT_NE(std::string::npos, both.find("02:aa:00:00:00:12,192.168.20.78\n"));
    EXPECT_EQ(64u, both.size());
    EXPECT_EQ(linux_hosts::same, make());
    (void)remove("/tmp/leases/other");
    (void)remove(second);
    EXPECT_EQ(linux_hosts::changed, make());
    EXPECT_EQ("02:aa:00:00:00:11,192.168.10.77\n", contents());
}

TEST_F(LinuxHosts, WhatIsNotThereHoldsNone) {
    ASSERT_EQ(0, symlink("nowhere", second));
    EXPECT_EQ(linux_hosts::changed, make());
    EXPECT_EQ("02:aa:00:00:00:11,192.168.10.77\n", contents());
    EXPECT_EQ(linux_hosts::changed, linux_hosts_write("/tmp/no-such-leases", hosts));
    EXPECT_EQ("", contents());
}

TEST_F(LinuxHosts, AFileThatCannotBeOpenedTakesNoneAway) {
    (void)make();
    ASSERT_EQ(0, symlink("1.static_leases", second)); // to itself
    fails_until_it_is_gone(second);
}

TEST_F(LinuxHosts, AFileThatCannotBeReadTakesNoneAway) {
    (void)make();
    ASSERT_EQ(0, mkdir(second, 0755));
    fails_until_it_is_gone(second);
}

TEST_F(LinuxHosts, ADirectoryThatCannotBeReadTakesNoneAway) {
    (void)make();
    EXPECT_EQ(linux_hosts::failed, linux_hosts_write(first, hosts)); // a file
    EXPECT_EQ("02:aa:00:00:00:11,192.168.10.77\n", contents());
}

TEST_F(LinuxHosts, APlaceThatCannotBeWrittenFails) {
    EXPECT_EQ(linux_hosts::failed, linux_hosts_write(directory, "/tmp/no-such-place/hosts"));
    EXPECT_EQ(linux_hosts::failed, linux_hosts_write(directory, directory)) << "a directory has its name";
    EXPECT_NE(0, access("/tmp/leases.new", F_OK));
}

TEST(LinuxStaticLease, IsALineForDnsmasq) {
    char line[64];
    ASSERT_TRUE(linux_static_line("02:AA:00:00:00:11 192.168.1.5 7\n", line, sizeof line));
    EXPECT_STREQ("02:AA:00:00:00:11,192.168.1.5\n", line);
    for (const char *bad : {"", "\n", "02:aa:00:00:00:11", "02:aa:00:00:00:1g 192.168.1.5",
                            "02:aa:00:00:00:11 192.168.1.256", "02:aa:00:00:00:11,x 1.2.3.4"})
        EXPECT_FALSE(linux_static_line(bad, line, sizeof line)) << bad;
}

} // namespace hosts_test
