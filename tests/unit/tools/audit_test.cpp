// The comparison of the clients with the kernel and the DHCP servers.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "tools/audit_sources.h"
#include "tools/words.h"

namespace audit_test {

using texts = std::vector<std::string>;

const std::string file = "/var/lib/misc/landhcps00.192.168.0.1.leases";

hbs_client client_of(const char *mac, const char *ipv4, uint32_t flags) {
    hbs_client client = {};
    memcpy(client.mac, parse_mac(mac)->data(), 6);
    if (*ipv4 != '\0')
        memcpy(client.ipv4, parse_ip(ipv4)->ipv4.data(), 4);
    client.flags = flags;
    return client;
}

texts sentences(const std::vector<hbs_client> &clients, const std::vector<sighting> &sightings) {
    texts found;
    for (const difference &one : compare(clients, sightings))
        found.push_back(one.known_to + ": " + one.text);
    return found;
}

const sighting neighbour = {sighting::neighbour, "02:aa:00:00:00:11", "192.168.0.11", "l2sd0.2"};
const sighting lease = {sighting::dynamic_lease, "02:aa:00:00:00:11", "192.168.0.11", file};

TEST(Audit, WhereBothSidesAgree_FindsNothing) {
    const hbs_client client =
        client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_REACH | HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE);
    EXPECT_EQ(sentences({client}, {neighbour, lease}), texts{});
}

TEST(Audit, ANeighbourThatIsNoClient) {
    EXPECT_EQ(
        sentences({}, {neighbour}),
        (texts{"kernel: the kernel has the neighbour 192.168.0.11 at 02:aa:00:00:00:11 on l2sd0.2, which is "
               "no client"}));
}

TEST(Audit, ANeighbourWhoseClientHoldsAnotherAddress) {
    EXPECT_EQ(
        sentences({client_of("02:aa:00:00:00:11", "192.168.0.99", 0)}, {neighbour}),
        (texts{"kernel: the kernel has the neighbour 192.168.0.11 at 02:aa:00:00:00:11 on l2sd0.2, but the "
               "client's record holds 192.168.0.99"}));
    EXPECT_EQ(
        sentences({client_of("02:aa:00:00:00:11", "", 0)}, {neighbour}),
        (texts{"kernel: the kernel has the neighbour 192.168.0.11 at 02:aa:00:00:00:11 on l2sd0.2, but the "
               "client's record holds no address"}));
}

TEST(Audit, AnAddressThatAnotherClientHoldsIsADifference) {
    EXPECT_EQ(sentences({client_of("02:aa:00:00:00:22", "192.168.0.11", 0)}, {neighbour}).size(), 1u);
}

TEST(Audit, ALeaseThatIsNoClient) {
    EXPECT_EQ(
        sentences({}, {lease}),
        (texts{"leases: " + file + " has a lease of 192.168.0.11 at 02:aa:00:00:00:11, which is no client"}));
}

TEST(Audit, AReachableClientThatIsNoNeighbour) {
    EXPECT_EQ(
        sentences({client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_REACH)}, {}),
        (texts{
            "clients: the client 02:aa:00:00:00:11 is reachable (192.168.0.11), but the kernel has no such "
            "neighbour"}));
}

TEST(Audit, AClientWhoseLeaseNobodyHolds) {
    EXPECT_EQ(
        sentences({client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_DYNIP4)}, {}),
        (texts{"clients: the client 02:aa:00:00:00:11 has a dynamic lease of 192.168.0.11, but no lease file "
               "holds it"}));
    sighting fixed = lease;
    EXPECT_EQ(sentences({client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_STIP4)}, {fixed}).size(), 1u)
        << "a dynamic lease is no static one";
    fixed.what = sighting::static_lease;
    EXPECT_EQ(sentences({client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_STIP4)}, {fixed}), texts{});
}

TEST(Audit, WhatNoServerCanBeAskedForIsNoDifference) {
    const hbs_client client = client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_DYNIP4);
    lease_knowledge leases;
    leases.ipv6 = false;
    EXPECT_EQ(compare({client}, {}, leases).size(), 1u);
    leases.ipv4 = false;
    EXPECT_EQ(compare({client}, {}, leases).size(), 0u);
    const hbs_client fixed = client_of("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_STIP4);
    EXPECT_EQ(compare({fixed}, {}, leases).size(), 1u) << "the daemon's own files are always there";
    leases.leases = {lease};
    EXPECT_EQ(compare({}, {}, leases).size(), 1u) << "what is seen is a difference all the same";
}

TEST(Audit, AnIpv6LeaseCarriesNoMac) {
    hbs_client client = client_of("02:aa:00:00:00:11", "", HBS_FLAG_DYNIP6);
    memcpy(client.ipv6, parse_ip("fd00:2::1975")->ipv6.data(), 16);
    const sighting ipv6 = {sighting::ipv6_lease, "", "fd00:2::1975", "db"};
    EXPECT_EQ(sentences({client}, {ipv6}), texts{});
    EXPECT_EQ(sentences({}, {ipv6}), (texts{"leases: db has a lease of fd00:2::1975, which is no client"}));
    EXPECT_EQ(sentences({client}, {}).size(), 1u);
}

const std::string MAC("\x02\xaa\x00\x00\x00\x11", 6);
const std::string IPV4("\xc0\xa8\x00\x0b", 4);
const std::string IPV6("\xfe\x80\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x11", 16);

hbs_netlink_bytes bytes_of(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

// What audit makes of an entry; "" for what it passes over. An empty lladdr is none.
std::string seen(int family, uint16_t state, const std::string &address, const std::string &lladdr = MAC,
                 const std::string &interface = "l2sd0.2") {
    hbs_neighbour entry = {};
    entry.header.ndm_family = static_cast<uint8_t>(family);
    entry.header.ndm_state = state;
    entry.attributes[NDA_DST] = bytes_of(address);
    if (!lladdr.empty())
        entry.attributes[NDA_LLADDR] = bytes_of(lladdr);
    const auto found = neighbour_sighting(entry, interface);
    return found ? found->mac + " " + found->address + " " + found->place : "";
}

TEST(Neighbours, AreThoseThatAreThere) {
    for (const uint16_t state : {NUD_REACHABLE, NUD_STALE, NUD_DELAY, NUD_PROBE, NUD_PERMANENT})
        EXPECT_EQ(seen(AF_INET, state, IPV4), "02:aa:00:00:00:11 192.168.0.11 l2sd0.2") << state;
    EXPECT_EQ(seen(AF_INET6, NUD_STALE, IPV6), "02:aa:00:00:00:11 fe80::11 l2sd0.2");
    for (const uint16_t state : {NUD_NONE, NUD_FAILED, NUD_INCOMPLETE, NUD_NOARP})
        EXPECT_EQ(seen(AF_INET, state, IPV4), "") << state;
}

TEST(Neighbours, OnTheWayOutAreNone) {
    for (const char *interface : {"wan0", "mta0", "erouter0", "lo"})
        EXPECT_EQ(seen(AF_INET, NUD_REACHABLE, IPV4, MAC, interface), "") << interface;
}

TEST(Neighbours, GroupsOfReceiversAreNone) {
    EXPECT_EQ(seen(AF_INET, NUD_PERMANENT, std::string("\xe0\x00\x00\x01", 4)), "");
    EXPECT_EQ(seen(AF_INET6, NUD_PERMANENT, std::string("\xff\x02", 2) + std::string(14, '\x01')), "");
}

TEST(Neighbours, WithoutAWholeAddressAndMacAreNone) {
    EXPECT_EQ(seen(AF_INET, NUD_REACHABLE, IPV4, ""), "");
    for (size_t length = 1; length < 12; ++length)
        EXPECT_EQ(seen(AF_INET, NUD_REACHABLE, IPV4, std::string(length, '\x02')).empty(), length != 6);
    for (size_t length = 0; length < 24; ++length) {
        EXPECT_EQ(seen(AF_INET, NUD_REACHABLE, std::string(length, '\x0a')).empty(), length != 4);
        EXPECT_EQ(seen(AF_INET6, NUD_REACHABLE, std::string(length, '\x0a')).empty(), length != 16);
    }
    EXPECT_EQ(seen(AF_BRIDGE, NUD_REACHABLE, IPV4), "");
}

TEST(Leases, AreReadLineByLineAndGarbageIsSkipped) {
    const auto found = parse_leases("02:aa:00:00:00:11 192.168.0.11 3600 laptop 1 a b c\n"
                                    "garbage\n\n02:aa:00:00:00:12\n00:00:00:00:00:00 192.168.0.1\n"
                                    "02:aa:00:00:00:13 0.0.0.0\n02:AA:00:00:00:14 192.168.0.14 3",
                                    sighting::static_lease, "f");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].address, "192.168.0.11");
    EXPECT_EQ(found[1].mac, "02:aa:00:00:00:14");
    EXPECT_EQ(found[1].what, sighting::static_lease);
    EXPECT_EQ(found[1].place, "f");
}

TEST(Ipv6Leases, AreTheAddressElements) {
    const auto found = parse_ipv6_leases(
        "<AddrMgr>\n  <AddrAddr timestamp=\"1\" pref=\"8\" valid=\"12\" "
        "prefix=\"128\">fd00:2::1975</AddrAddr>\n"
        "<AddrAddr "
        "timestamp=\"1\"\n<AddrAddr>nonsense</AddrAddr><AddrAddr>192.168.0.1</AddrAddr><AddrAddr>fd00::2",
        "db");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].address, "fd00:2::1975");
    EXPECT_EQ(found[0].mac, "");
}

} // namespace audit_test
