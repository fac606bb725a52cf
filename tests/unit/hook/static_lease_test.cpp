// Which leases are static ones, by the daemon's file for dnsmasq.
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "hook/static_lease.h"

namespace static_lease_test {

constexpr const char *hosts = "/tmp/hosts";
constexpr const char *settings = "/tmp/settings";
constexpr uint8_t mac[6] = {2, 0xAA, 0, 0, 0, 0x11};
constexpr uint8_t ipv4[4] = {192, 168, 10, 77};

bool in_hosts(const std::string &text) {
    std::ofstream(hosts) << text;
    return hbs_hosts_have(hosts, mac, ipv4);
}

TEST(StaticLease, HasALineOfItsOwn) {
    EXPECT_TRUE(in_hosts("02:aa:00:00:00:12,192.168.10.78\n02:AA:00:00:00:11,192.168.10.77\n"));
    for (const char *other : {"", "02:aa:00:00:00:11,192.168.10.78\n", "02:aa:00:00:00:12,192.168.10.77\n",
                              "02:aa:00:00:00:11\n", "garbage\n", "02:aa:00:00:00:11,192.168.10.7"})
        EXPECT_FALSE(in_hosts(other)) << other;
    (void)remove(hosts);
    EXPECT_FALSE(hbs_hosts_have(hosts, mac, ipv4));
}

TEST(StaticLease, TheSettingsNameTheFile) {
    std::ofstream(hosts) << "02:aa:00:00:00:11,192.168.10.77\n";
    std::ofstream(settings) << "# dhcp.hosts = /nowhere\ndhcp.pid = /x\n dhcp.hosts=/tmp/hosts # here\n";
    EXPECT_TRUE(hbs_is_static_lease(settings, mac, ipv4));
    std::ofstream(settings) << "dhcp.hosts = none\n";
    EXPECT_FALSE(hbs_is_static_lease(settings, mac, ipv4));
    const std::string good = "dhcp.hosts = /tmp/hosts\n";
    for (const std::string &refused :
         {std::string("dhcp.hosts = hosts"), "dhcp.hosts = /" + std::string(107, 'x'),
          "dhcp.hosts = /x" + std::string(1100, ' ') + "\n# dhcp.hosts = /x", std::string("dhcp.hosts /x"),
          std::string("#dhcp.hosts = /x"), std::string("xdhcp.hosts = /x"),
          std::string("dhcp.hosts2 = /x")}) {
        std::ofstream(settings) << good << refused << "\n";
        EXPECT_TRUE(hbs_is_static_lease(settings, mac, ipv4)) << "the daemon passes over " << refused;
    }
    for (const char *other : {"dhcp.hosts =", "dhcp.hosts = /tmp/hosts two", "dhcp.hosts = /x#1"}) {
        std::ofstream(settings) << good << other << "\n";
        EXPECT_FALSE(hbs_is_static_lease(settings, mac, ipv4)) << "the daemon takes " << other;
    }
    (void)remove(settings);
    EXPECT_FALSE(hbs_is_static_lease(settings, mac, ipv4)) << "there is none at the usual place";
}

} // namespace static_lease_test
