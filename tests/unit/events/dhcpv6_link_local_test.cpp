// Link-local neighbours: which client an address is tied to, and which are merged.
#include <gmock/gmock.h>

#include "support/presence.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace dhcpv6_link_local_test {

constexpr const char *FOR_LATER =
    "HOSTBASE: Got MAC and LL address for unknwn client - save it away for later";
constexpr const char *MERGE_HOLDER = "HOSTBASE: merge no-mac client with existing client";
constexpr const char *LEASED =
    "HOSTBASE: Got MAC address for previously LEASED IPv6 client - merge or into db";
constexpr const char *KNOWN = "HOSTBASE: Got LL address for previously known client set LL address";
constexpr const char *LL = "fe80::20";

class LinkLocal : public PresenceTest {
  protected:
    static hbs_client *handle(const char *mac, const std::string &ll = LL) {
        return hbs_handle_ipv6_ll_neighbor(mac != nullptr ? mac_of(mac).data() : nullptr, ipv6_of(ll).data());
    }

    // As a DHCPv6 lease without a MAC leaves it.
    static hbs_client *leased_nomac(const std::string &ll, const std::string &ipv6) {
        hbs_client *client = add_with_ll(nullptr, ll);
        hbs_set_ipv6(client, ipv6_of(ipv6).data());
        hbs_set_host(client, "leased");
        hbs_set_flags(client, 0, HBS_FLAG_DYNIP6 | HBS_FLAG_ONLINE);
        hbs_publish(client);
        return client;
    }

    // Which of the four messages were logged, in order.
    std::vector<std::string> said() const {
        std::vector<std::string> found;
        for (const std::string &line : log_lines())
            if (line == FOR_LATER || line == MERGE_HOLDER || line == LEASED || line == KNOWN)
                found.push_back(line);
        return found;
    }
};

// --- a MAC that no client has ---

TEST_F(LinkLocal, UnknownMacAndAddress_MakeAClient) {
    hbs_client *client = handle(MAC_A);
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC_A).data()));
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
    EXPECT_EQ(1, client->switch_port);
    EXPECT_THAT(said(), ElementsAre(FOR_LATER));
    EXPECT_EQ(0u, clients_seen());
}

TEST_F(LinkLocal, NewWifiClient_TakesItsSsidOrIsLogged) {
    hbs_wifi_bssid_table_set(mac_of(MAC_WIFI).data(), 4);
    EXPECT_EQ(3, handle(MAC_WIFI)->wifi_index);
    set("l2switch.mac.02:ab:00:00:00:22", "0x01");
    ASSERT_NE(nullptr, handle("02:ab:00:00:00:22", "fe80::22"));
    EXPECT_EQ(1u, logged_count("HOSTBASE: Got bssid failed for 02:ab:00:00:00:22"));
}

TEST_F(LinkLocal, UnknownAdapter_IsNoneAndChangesNothing) {
    hbs_client *client = add_with_ll(MAC_UNKNOWN, "fe80::1");
    EXPECT_EQ(nullptr, handle(MAC_UNKNOWN));
    EXPECT_EQ("fe80::1", address_text(client->ll));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(LinkLocal, NomacClientWithTheAddress_GetsTheMac) {
    hbs_client *client = leased_nomac(LL, "fd00:2::20");
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(client, hbs_find_by_mac(mac_of(MAC_A).data()));
    EXPECT_FALSE(hbs_is_nomac(client));
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_STREQ("leased", client->host);
    EXPECT_THAT(said(), ElementsAre(LEASED));
}

TEST_F(LinkLocal, NomacClientWithTheAddressAsItsGlobalOne_GetsTheMacToo) {
    hbs_client *client = add(nullptr);
    hbs_set_ipv6(client, ipv6_of(LL).data());
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_THAT(said(), ElementsAre(LEASED));
}

TEST_F(LinkLocal, UnknownMacWithAnotherClientsAddress_LeavesThatClientUnchanged) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    const hbs_client before = *client;
    EXPECT_EQ(client, handle(MAC_B));
    EXPECT_EQ(0, std::memcmp(&before, client, sizeof before));
    EXPECT_EQ(1u, working_clients());
    EXPECT_THAT(said(), IsEmpty());
}

// --- no MAC ---

TEST_F(LinkLocal, NoMacAndUnknownAddress_IsNone) {
    EXPECT_EQ(nullptr, handle(nullptr));
    EXPECT_EQ(0u, working_clients() + nomac_clients());
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(LinkLocal, NoMacAndKnownAddress_IsItsClientUnchanged) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    const hbs_client before = *client;
    EXPECT_EQ(client, handle(nullptr));
    EXPECT_EQ(0, std::memcmp(&before, client, sizeof before));
}

TEST_F(LinkLocal, NoMacAndANomacClient_StaysOnItsList) {
    hbs_client *client = leased_nomac(LL, "fd00:2::20");
    EXPECT_EQ(client, handle(nullptr));
    EXPECT_TRUE(hbs_is_nomac(client));
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
}

// --- a client found by its MAC ---

TEST_F(LinkLocal, SameAddressAgain_ChangesNothing) {
    hbs_client *client = add_with_ll(MAC_A, LL);
    const hbs_client before = *client;
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(0, std::memcmp(&before, client, sizeof before));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(LinkLocal, FirstAddressOfAKnownClient_IsSetWithItsAdapter) {
    hbs_client *client = add(MAC_A);
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client->adapter_type);
    EXPECT_THAT(said(), ElementsAre(KNOWN));
}

TEST_F(LinkLocal, AnotherAddressOfAKnownClient_ReplacesItsEntryAndNothingElse) {
    hbs_client *client = add_with_ll(MAC_A, "fe80::1");
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, client->adapter_type); // as it was
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_THAT(ip_keys(), IsEmpty());
    hbs_publish(client);
    EXPECT_THAT(ip_keys(), ElementsAre("200 2 16 254 128 0 0 0 0 0 0 0 0 0 0 0 0 0 32"));
}

TEST_F(LinkLocal, NomacHolder_IsMergedIntoAClientWithAnotherAddress) {
    hbs_client *client = add_with_ll(MAC_A, "fe80::1");
    (void)leased_nomac(LL, "fd00:2::20");
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ("fd00:2::20", address_text(client->ipv6));
    EXPECT_STREQ("leased", client->host);
    EXPECT_EQ(0u, nomac_clients());
    EXPECT_EQ(1u, clients_seen());
    EXPECT_THAT(said(), ElementsAre(MERGE_HOLDER));
}

TEST_F(LinkLocal, NomacHolder_IsMergedIntoAClientWithoutAnyAddress) {
    hbs_client *client = published_client(MAC_A, "192.168.0.20", HBS_FLAG_DYNIP4);
    (void)leased_nomac(LL, "fd00:2::20");
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(LL, address_text(client->ll));
    EXPECT_EQ(0u, nomac_clients());
    EXPECT_EQ(1u, clients_seen());
    EXPECT_EQ(HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6 | HBS_FLAG_ONLINE, state_of(client));
    EXPECT_THAT(said(), ElementsAre(MERGE_HOLDER, KNOWN));
    EXPECT_EQ("fd00:2::20", address_text(published(MAC_A).ipv6));
}

TEST_F(LinkLocal, NomacHolderByItsGlobalAddress_IsMergedToo) {
    hbs_client *client = add_with_ll(MAC_A, "fe80::1");
    hbs_client *holder = add(nullptr);
    hbs_set_ipv6(holder, ipv6_of(LL).data());
    EXPECT_EQ(client, handle(MAC_A));
    EXPECT_EQ(0u, nomac_clients());
    EXPECT_THAT(said(), ElementsAre(MERGE_HOLDER));
}

// --- the same address at two devices ---

TEST_F(LinkLocal, AddressOfAnotherClient_GoesToTheDeviceThatTheKernelNamedLast) {
    hbs_client *first = add_with_ll(MAC_A, LL);
    hbs_set_host(first, "first");
    hbs_client *second = published_client(MAC_B, "192.168.0.21", HBS_FLAG_DYNIP4);
    EXPECT_EQ(second, handle(MAC_B));
    hbs_publish(second);
    EXPECT_EQ(LL, address_text(published(MAC_B).ll));
    EXPECT_EQ(second, hbs_find_by_ipv6(ipv6_of(LL).data()));
    EXPECT_THAT(said(), ElementsAre(KNOWN));
    hbs_client found;
    ASSERT_EQ(HOSTBASE_OK, hostbase_find_by_ipv6(ipv6_of(LL).data(), &found));
    EXPECT_EQ(0, std::memcmp(found.mac, second->mac, 6));
}

TEST_F(LinkLocal, ClientThatLosesItsAddress_KeepsItsRecord) {
    hbs_client *first = add_with_ll(MAC_A, LL);
    hbs_set_host(first, "first");
    hbs_set_ipv6(first, ipv6_of("fd00:2::20").data());
    hbs_publish(first);
    (void)add_with_ll(MAC_B, "fe80::1");
    ASSERT_NE(nullptr, handle(MAC_B));
    const hbs_client copy = published(MAC_A);
    EXPECT_STREQ("first", copy.host);
    EXPECT_EQ("fd00:2::20", address_text(copy.ipv6));
    EXPECT_EQ("::", address_text(copy.ll));
    EXPECT_EQ(2u, working_clients());
}

TEST_F(LinkLocal, UnpublishedClientThatLosesItsAddress_IsNotPublished) {
    hbs_client *first = add(MAC_A);
    hbs_set_ll(first, ipv6_of(LL).data());
    (void)add(MAC_B);
    ASSERT_NE(nullptr, handle(MAC_B));
    EXPECT_EQ("::", address_text(first->ll));
    EXPECT_EQ(0u, clients_seen());
}

TEST_F(LinkLocal, AddressThatGoesBack_GoesBack) {
    hbs_client *first = add_with_ll(MAC_A, LL);
    hbs_client *second = add_with_ll(MAC_B, "fe80::1");
    (void)handle(MAC_B);
    (void)handle(MAC_A);
    EXPECT_EQ(LL, address_text(first->ll));
    EXPECT_EQ("::", address_text(second->ll));
}

// --- through the neighbour handlers ---

TEST_F(LinkLocal, LeaseThenNeighbour_IsOnePublishedClient) {
    (void)leased_nomac(LL, "fd00:2::20");
    ASSERT_NE(nullptr,
              hbs_handle_neigh_reachable(mac_of(MAC_A).data(), LOOPBACK, AF_INET6, ipv6_of(LL).data()));
    EXPECT_EQ(1u, clients_seen());
    EXPECT_STREQ("leased", published(MAC_A).host);
    EXPECT_EQ("fd00:2::20", address_text(published(MAC_A).ipv6));
}

TEST_F(LinkLocal, Neighbour_IsNotAnnounced) {
    ASSERT_NE(nullptr, hbs_handle_neigh_stale(mac_of(MAC_A).data(), LOOPBACK, AF_INET6, ipv6_of(LL).data()));
    EXPECT_THAT(journal_lines("tr69 event "), IsEmpty());
    EXPECT_EQ(LL, address_text(published(MAC_A).ll));
}

} // namespace dhcpv6_link_local_test
