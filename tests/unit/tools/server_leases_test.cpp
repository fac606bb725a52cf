// The lease files of dnsmasq and of Kea.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/server_leases.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace server_leases_test {

constexpr time_t now = 1000;

std::vector<std::string> leases_in(const std::string &text) {
    std::vector<std::string> found;
    for (const sighting &one : parse_server_leases(text, "f", now)) {
        EXPECT_EQ(one.place, "f");
        found.push_back((one.what == sighting::ipv6_lease ? "6 " : "4 ") + one.mac + " " + one.address);
    }
    return found;
}

TEST(ServerLeases, OfDnsmasq) {
    EXPECT_THAT(leases_in("1795217411 02:AA:00:00:00:11 192.168.10.117 laptop 01:02:aa:00:00:00:11\n"
                          "0 02:aa:00:00:00:12 192.168.10.118 * *\n"
                          "duid 00:01:00:01:2f:00:00:00:02:ab:00:00:00:01\n"
                          "1795217411 1234 fd00:10::77 six 00:03:00:01:02:aa:00:00:00:11\n"
                          "1795217411 06-02:aa:00:00:00:13 192.168.10.119 * *\n"
                          "1795217411 02:aa:00:00:00:14\n\ngarbage\n"),
                ElementsAre("4 02:aa:00:00:00:11 192.168.10.117", "4 02:aa:00:00:00:12 192.168.10.118",
                            "6  fd00:10::77"));
}

const std::string titles4 =
    "address,hwaddr,client_id,valid_lifetime,expire,subnet_id,fqdn_fwd,fqdn_rev,hostname,"
    "state,user_context,pool_id\n";

TEST(ServerLeases, OfKeaTheLastWordCounts) {
    EXPECT_THAT(leases_in(titles4 + "192.168.10.100,02:aa:00:00:00:11,,3600,2000,1,0,0,a,0,,0\n"
                                    "192.168.10.101,02:aa:00:00:00:12,,3600,2000,1,0,0,b,0,,0\n"
                                    "192.168.10.100,02:aa:00:00:00:13,,3600,3000,1,0,0,c,0,,0\n"),
                ElementsAre("4 02:aa:00:00:00:13 192.168.10.100", "4 02:aa:00:00:00:12 192.168.10.101"));
}

TEST(ServerLeases, OfKeaThatNobodyHolds) {
    for (const char *line : {"192.168.10.100,02:aa:00:00:00:11,,0,2000,1,0,0,a,0,,0", // given back
                             "192.168.10.100,02:aa:00:00:00:11,,3600,1000,1,0,0,a,0,,0",
                             "192.168.10.100,,,3600,2000,1,0,0,,1,,0", // declined
                             "192.168.10.100,02:aa:00:00:00:11,,3600,2000,1,0,0,a,2,,0", "192.168.10.100", "",
                             ",,,,,,,,,,,,,,,", "x,y,z"})
        EXPECT_THAT(leases_in(titles4 + line + "\n"), IsEmpty()) << line;
}

TEST(ServerLeases, OfKeaForIpv6AddressesOnly) {
    EXPECT_THAT(
        leases_in("address,duid,valid_lifetime,expire,subnet_id,pref_lifetime,lease_type,iaid,prefix_len,"
                  "fqdn_fwd,fqdn_rev,hostname,hwaddr,state,user_context\n"
                  "fd00:10::5,01:02,3600,2000,1,1800,0,7,128,0,0,a,02:aa:00:00:00:11,0,\n"
                  "fd00:20::,01:02,3600,2000,1,1800,2,7,56,0,0,a,02:aa:00:00:00:11,0,\n"),
        ElementsAre("6  fd00:10::5"));
}

} // namespace server_leases_test
