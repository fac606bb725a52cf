// Which client an address that the kernel reports belongs to, and what it learns from it.
#include <gmock/gmock.h>

#include "support/presence.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace neighbours_test {

constexpr const char *KEEP_V4 = "HOSTBASE: hbs_handle_ipv4_neighbor: Keep Hbs client oringnal adapter type\n";
constexpr const char *KEEP_V6 =
    "HOSTBASE: hbs_handle_ipv6_ia_neighbor: Keep Hbs client oringnal adapter type\n";
constexpr const char *MULTICAST = "HOSTBASE: Got NEIGH event with multicast address - ignore";

class Neighbours : public PresenceTest {
  protected:
    static hbs_client *ipv4(const char *mac, const std::string &address, int ifindex = LOOPBACK) {
        return hbs_neigh_update(mac != nullptr ? mac_of(mac).data() : nullptr, ifindex, AF_INET,
                                ipv4_of(address).data());
    }
    static hbs_client *ipv6(const char *mac, const std::string &address, int ifindex = LOOPBACK) {
        return hbs_neigh_update(mac != nullptr ? mac_of(mac).data() : nullptr, ifindex, AF_INET6,
                                ipv6_of(address).data());
    }
};

// --- IPv4 ---

TEST_F(Neighbours, NewIpv4Client_GetsNetworkAdapterAddressAndInterface) {
    hbs_client *client = ipv4(MAC_A, "192.168.1.20");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC_A).data()));
    EXPECT_EQ(1, client->nwidx);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
    EXPECT_EQ(1, client->switch_port);
    EXPECT_EQ("192.168.1.20", text_of(client->ipv4));
    EXPECT_EQ(1u, client->ifindex);
    EXPECT_STREQ("lo", client->ifname);
    EXPECT_EQ(0u, client->lease_start_uptime);
}

TEST_F(Neighbours, Update_AloneIsNotPublished) {
    ASSERT_NE(nullptr, ipv4(MAC_A, "192.168.0.20"));
    EXPECT_EQ(0u, clients_seen());
}

TEST_F(Neighbours, KnownIpv4Address_IsItsClientsWhateverTheMac) {
    hbs_client *first = ipv4(MAC_A, "192.168.0.20");
    EXPECT_EQ(first, ipv4(MAC_B, "192.168.0.20"));
    EXPECT_EQ(1u, working_clients());
    EXPECT_EQ(0, memcmp(first->mac, mac_of(MAC_A).data(), 6));
}

TEST_F(Neighbours, KnownMac_TakesTheNewIpv4Address) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    EXPECT_EQ(client, ipv4(MAC_A, "192.168.0.21"));
    EXPECT_EQ("192.168.0.21", text_of(client->ipv4));
    EXPECT_THAT(ip_keys(), IsEmpty()); // until the next publication
    hbs_publish(client);
    EXPECT_THAT(ip_keys(), ElementsAre("200 1 4 192 168 0 21"));
}

TEST_F(Neighbours, Ipv4AddressOfAnotherNetwork_MovesTheClientAndItsEntries) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    ASSERT_EQ(client, ipv4(MAC_A, "192.168.1.20"));
    hbs_publish(client);
    EXPECT_EQ(1, client->nwidx);
    EXPECT_THAT(ip_keys(), ElementsAre("201 1 4 192 168 1 20"));
    EXPECT_THAT(dhcp_keys(), ElementsAre("201 1 192 168 1 20 0"));
    EXPECT_THAT(if_keys(), ElementsAre("201 1"));
    EXPECT_THAT(pri_keys(), IsEmpty());
}

TEST_F(Neighbours, Ipv4WithoutMac_NeedsAKnownAddress) {
    EXPECT_EQ(nullptr, ipv4(nullptr, "192.168.0.20"));
    EXPECT_EQ(0u, working_clients() + nomac_clients());
    EXPECT_FALSE(logged(KEEP_V4));
    EXPECT_THAT(tr69_codes(), IsEmpty());
}

TEST_F(Neighbours, Ipv4WithoutMac_KeepsTheAdapterAndSaysSo) {
    hbs_client *client = ipv4(MAC_WIFI, "192.168.0.20");
    ASSERT_EQ(HBS_ADAPTER_WIFI, client->adapter_type);
    EXPECT_EQ(0u, logged_count(KEEP_V4));
    EXPECT_EQ(client, ipv4(nullptr, "192.168.0.20"));
    EXPECT_EQ(HBS_ADAPTER_WIFI, client->adapter_type);
    EXPECT_EQ(1u, logged_count(KEEP_V4));
}

TEST_F(Neighbours, Ipv4AddressInNoNetwork_MakesNoClient) {
    EXPECT_EQ(nullptr, ipv4(MAC_A, "10.9.8.7"));
    EXPECT_EQ(0u, working_clients());
    EXPECT_THAT(tr69_codes(), IsEmpty());
}

TEST_F(Neighbours, UnknownAdapter_MakesNoClient) {
    EXPECT_EQ(nullptr, ipv4(MAC_UNKNOWN, "192.168.0.20"));
    EXPECT_EQ(nullptr, ipv6(MAC_UNKNOWN, "fd00:2::20"));
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Neighbours, UnknownAdapter_ChangesNoKnownClient) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", 0);
    EXPECT_EQ(nullptr, ipv4(MAC_UNKNOWN, "192.168.0.20"));
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
    EXPECT_EQ(0u, client->ifindex);
}

TEST_F(Neighbours, LinkLocalIpv4OutsideEverySubnet_TakesTheNetworkOfTheInterface) {
    set("network.2.ifname", "lo");
    hbs_client *client = ipv4(MAC_A, "169.254.1.5");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(1, client->nwidx);
    EXPECT_EQ("169.254.1.5", text_of(client->ipv4));
}

TEST_F(Neighbours, LinkLocalIpv4OnAnInterfaceOfNoNetwork_MakesNoClient) {
    EXPECT_EQ(nullptr, ipv4(MAC_A, "169.254.1.5"));
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Neighbours, LinkLocalIpv4InsideASubnet_BelongsToThatNetwork) {
    set("network.1.ipv4", "169.254.0.1/16");
    set("network.2.ifname", "lo");
    EXPECT_EQ(0, ipv4(MAC_A, "169.254.1.5")->nwidx);
}

TEST_F(Neighbours, OtherAddressesOutside_AreNotLookedUpByInterface) {
    set("network.1.ifname", "lo");
    EXPECT_EQ(nullptr, ipv4(MAC_A, "169.253.255.255"));
    EXPECT_EQ(nullptr, ipv4(MAC_A, "169.255.0.0"));
}

TEST_F(Neighbours, EveryIpv4Event_IsAnnouncedOnceWith106) {
    (void)ipv4(MAC_A, "192.168.0.20");
    EXPECT_THAT(tr69_codes(), ElementsAre("106"));
    (void)ipv4(MAC_A, "192.168.0.20");
    EXPECT_THAT(tr69_codes(), ElementsAre("106", "106"));
}

TEST_F(Neighbours, NewWifiClient_TakesItsSsidFromTheTable) {
    hbs_wifi_bssid_table_set(mac_of(MAC_WIFI).data(), 4);
    EXPECT_EQ(3, ipv4(MAC_WIFI, "192.168.0.20")->wifi_index);
    EXPECT_EQ(0u, logged_containing("Got bssid failed"));
}

TEST_F(Neighbours, NewWifiClientThatIsNotInTheTable_IsLogged) {
    ASSERT_NE(nullptr, ipv4(MAC_WIFI, "192.168.0.20"));
    EXPECT_EQ(1u, logged_count(std::string("HOSTBASE: Got bssid failed for ") + MAC_WIFI));
}

TEST_F(Neighbours, KnownWifiClient_KeepsItsSsid) {
    hbs_client *client = ipv4(MAC_WIFI, "192.168.0.20");
    hbs_wifi_bssid_table_set(mac_of(MAC_WIFI).data(), 4);
    EXPECT_EQ(client, ipv4(MAC_WIFI, "192.168.0.20"));
    EXPECT_EQ(client, ipv6(MAC_WIFI, "fd00:2::20"));
    EXPECT_EQ(0, client->wifi_index);
}

// --- global IPv6 ---

TEST_F(Neighbours, NewIpv6Client_GetsNetworkAdapterAddressAndInterface) {
    hbs_client *client = ipv6(MAC_B, "fd00:3::20");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(1, client->nwidx);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
    EXPECT_EQ(2, client->switch_port);
    EXPECT_EQ("fd00:3::20", address_text(client->ipv6));
    EXPECT_EQ("::", address_text(client->ll));
    EXPECT_EQ(1u, client->ifindex);
}

TEST_F(Neighbours, NewIpv6Client_IsAnnouncedTwice) {
    ASSERT_NE(nullptr, ipv6(MAC_A, "fd00:2::20"));
    EXPECT_THAT(tr69_codes(), ElementsAre("107", "107"));
    const auto events = journal_lines("tr69 event ");
    EXPECT_NE(std::string::npos, events[0].find("ipv6=\"\"")) << events[0];
    EXPECT_NE(std::string::npos, events[1].find("ipv6=\"fd00:2::20\"")) << events[1];
}

TEST_F(Neighbours, KnownIpv6Client_IsAnnouncedOnce) {
    (void)ipv6(MAC_A, "fd00:2::20");
    clear_journal();
    (void)ipv6(MAC_A, "fd00:2::20");
    EXPECT_THAT(tr69_codes(), ElementsAre("107"));
}

TEST_F(Neighbours, KnownIpv6Address_IsItsClientsWhateverTheMac) {
    hbs_client *first = ipv6(MAC_A, "fd00:2::20");
    EXPECT_EQ(first, ipv6(MAC_B, "fd00:2::20"));
    EXPECT_EQ(1u, working_clients());
}

TEST_F(Neighbours, Ipv6AddressOfANomacClient_IsThatClients) {
    hbs_client *nomac = add(nullptr);
    hbs_set_ipv6(nomac, ipv6_of("fd00:2::20").data());
    EXPECT_EQ(nomac, ipv6(MAC_A, "fd00:2::20"));
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Neighbours, KnownMac_TakesTheNewIpv6Address) {
    hbs_client *client = ipv6(MAC_A, "fd00:2::20");
    hbs_publish(client);
    EXPECT_EQ(client, ipv6(MAC_A, "fd00:2::21"));
    hbs_publish(client);
    EXPECT_EQ("fd00:2::21", address_text(published(MAC_A).ipv6));
    EXPECT_THAT(ip_keys(), ElementsAre("200 2 16 253 0 0 2 0 0 0 0 0 0 0 0 0 0 0 33"));
}

TEST_F(Neighbours, Ipv6WithoutMac_KeepsTheAdapterAndSaysSo) {
    hbs_client *client = ipv6(MAC_WIFI, "fd00:2::20");
    EXPECT_EQ(client, ipv6(nullptr, "fd00:2::20"));
    EXPECT_EQ(HBS_ADAPTER_WIFI, client->adapter_type);
    EXPECT_EQ(1u, logged_count(KEEP_V6));
}

TEST_F(Neighbours, Ipv6WithoutMac_NeedsAKnownAddress) {
    EXPECT_EQ(nullptr, ipv6(nullptr, "fd00:2::20"));
    EXPECT_EQ(0u, working_clients() + nomac_clients());
    EXPECT_THAT(tr69_codes(), IsEmpty());
}

TEST_F(Neighbours, Ipv6AddressInNoNetwork_MakesNoClient) {
    EXPECT_EQ(nullptr, ipv6(MAC_A, "2001:db8::1"));
    EXPECT_EQ(0u, working_clients());
    EXPECT_THAT(tr69_codes(), IsEmpty());
}

TEST_F(Neighbours, NewIpv6WifiClient_TakesItsSsidOrIsLogged) {
    ASSERT_NE(nullptr, ipv6(MAC_WIFI, "fd00:2::20"));
    EXPECT_EQ(1u, logged_count(std::string("HOSTBASE: Got bssid failed for ") + MAC_WIFI));
}

TEST_F(Neighbours, NoMemory_MakesNoClientAndTellsNobody) {
    for (unsigned i = 0; i < HBS_MAX_WORKING; ++i) {
        const uint8_t mac[6] = {0x02, 0xcc, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        hbs_client *client = hbs_add(mac);
        ASSERT_NE(nullptr, client);
        client->flags = HBS_FLAG_ONLINE; // so that it does not make room
    }
    EXPECT_EQ(nullptr, ipv4(MAC_A, "192.168.0.20"));
    EXPECT_EQ(nullptr, ipv6(MAC_A, "fd00:2::20"));
    EXPECT_EQ(nullptr, ipv6(MAC_A, "fe80::20"));
    EXPECT_THAT(tr69_codes(), IsEmpty());
}

// --- what both share ---

TEST_F(Neighbours, OneDeviceWithBothFamilies_IsOneClient) {
    hbs_client *client = ipv4(MAC_A, "192.168.0.20");
    EXPECT_EQ(client, ipv6(MAC_A, "fd00:2::20"));
    EXPECT_EQ(client, ipv6(MAC_A, "fe80::20"));
    EXPECT_EQ(1u, working_clients());
    EXPECT_EQ("fe80::20", address_text(client->ll));
}

TEST_F(Neighbours, OnlyTheFirstByteFe_MakesALinkLocalAddress) {
    ASSERT_NE(nullptr, ipv6(MAC_A, "fe00::1"));
    EXPECT_EQ("fe00::1", address_text(hbs_find_by_mac(mac_of(MAC_A).data())->ll));
    EXPECT_EQ(nullptr, ipv6(MAC_B, "fc80::1"));
}

TEST_F(Neighbours, MacOfTheGateway_IsRefusedSilently) {
    EXPECT_EQ(nullptr, ipv4(MAC_OWN, "192.168.0.20"));
    EXPECT_EQ(nullptr, ipv6(MAC_OWN, "fe80::20"));
    EXPECT_EQ(nullptr, ipv4(MAC_OWN, "224.0.0.251"));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(Neighbours, MulticastAddresses_AreIgnoredWithAMessage) {
    for (const char *address : {"224.0.0.251", "239.255.255.250"})
        EXPECT_EQ(nullptr, ipv4(MAC_A, address));
    EXPECT_EQ(nullptr, ipv6(MAC_A, "ff02::fb"));
    EXPECT_THAT(log_lines(), ElementsAre(MULTICAST, MULTICAST, MULTICAST));
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Neighbours, NextToMulticast_IsNotMulticast) {
    (void)ipv4(MAC_A, "223.255.255.255");
    (void)ipv4(MAC_A, "240.0.0.0");
    EXPECT_FALSE(logged(MULTICAST));
}

TEST_F(Neighbours, OtherFamilies_YieldNoneSilently) {
    const Ipv6 address = ipv6_of("fd00:2::20");
    for (const int family : {0, 1, 7, 28, 255})
        EXPECT_EQ(nullptr, hbs_neigh_update(mac_of(MAC_A).data(), LOOPBACK, family, address.data()));
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_EQ(0u, working_clients());
}

TEST_F(Neighbours, InterfaceIndex_KeepsItsLowByteOnly) {
    hbs_client *client = ipv4(MAC_A, "192.168.0.20", 0x101);
    EXPECT_EQ(1u, client->ifindex);
    EXPECT_STREQ("lo", client->ifname);
    (void)ipv4(MAC_A, "192.168.0.20", 0x1234);
    EXPECT_EQ(0x34u, client->ifindex);
    EXPECT_STREQ("lo", client->ifname) << "the kernel has no interface of that index";
}

} // namespace neighbours_test
