// The IP index and the DHCP-option IP index: keys, order, insertion, removal.
#include <algorithm>
#include <string>
#include <vector>

#include "store/ip_index.h"
#include "support/store.h"

namespace ip_index_test {

using Keys = std::vector<std::string>;
using Words = std::vector<uint32_t>;

int compare(const Words &a, const Words &b) {
    return hbs_oid_compare(a.data(), static_cast<uint32_t>(a.size()), b.data(),
                           static_cast<uint32_t>(b.size()));
}

TEST(KeyOrder, ShorterKeyIsSmallerWhateverItsWords) {
    EXPECT_LT(compare({201, 1, 4, 255, 255, 255, 255}, Words(19, 0)), 0);
    EXPECT_GT(compare(Words(19, 0), {201}), 0);
    EXPECT_LT(compare({}, {0}), 0);
}

TEST(KeyOrder, EqualLengthComparesWordByWordUnsigned) {
    EXPECT_EQ(0, compare({200, 1}, {200, 1}));
    EXPECT_LT(compare({200, 2}, {201, 1}), 0);
    EXPECT_GT(compare({200, 0x80000000}, {200, 0x7FFFFFFF}), 0);
    EXPECT_EQ(0, compare({}, {}));
}

class IpIndex : public StoreTest {
  protected:
    static Words key_of(const hbs_ip_entry &entry) { return {entry.key, entry.key + entry.count}; }

    void insert(hbs_client *client, int kind) {
        hbs_ip_entry entry;
        hbs_file_client_to_ip_index(client->nwidx, kind, client, &entry);
        hostbase_insert_ipidx(&entry);
    }

    void insert_dhcp(hbs_client *client, int kind) {
        hbs_ip_entry entry;
        hbs_file_dhcp_option_client_to_ip_idx(client->nwidx, kind, client, &entry);
        hbs_file_dhcp_option_insert_ip_idx(&entry);
    }
};

TEST_F(IpIndex, Ipv4Key) {
    hbs_client *client = publish(make(2, "192.168.0.10"));
    hbs_ip_entry entry;
    hbs_file_client_to_ip_index(2, HBS_IP_KIND_IPV4, client, &entry);
    EXPECT_EQ((Words{202, 1, 4, 192, 168, 0, 10}), key_of(entry));
    EXPECT_EQ(client->dbpos, entry.dbpos);
    EXPECT_TRUE(logged("HOSTBASE: hbs_file_client_to_ip_index: clnt dbpos is 52"));
}

TEST_F(IpIndex, Ipv6AndLinkLocalKeys) {
    hbs_client *client = make();
    set_ipv6(client->ipv6, "2001:db8::ff");
    set_ipv6(client->ll, "fe80::1");
    hbs_ip_entry entry;
    hbs_file_client_to_ip_index(0, HBS_IP_KIND_IPV6, client, &entry);
    EXPECT_EQ((Words{200, 2, 16, 0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff}), key_of(entry));
    hbs_file_client_to_ip_index(0, HBS_IP_KIND_LL, client, &entry);
    EXPECT_EQ((Words{200, 2, 16, 0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), key_of(entry));
}

TEST_F(IpIndex, DhcpOptionKeysHaveNoLengthWordAndEndWithZero) {
    hbs_client *client = publish(make(1, "10.20.30.40"));
    set_ipv6(client->ll, "fe80::1");
    hbs_ip_entry entry;
    hbs_file_dhcp_option_client_to_ip_idx(1, HBS_IP_KIND_IPV4, client, &entry);
    EXPECT_EQ((Words{201, 1, 10, 20, 30, 40, 0}), key_of(entry));
    EXPECT_EQ(client->dbpos, entry.dbpos);
    hbs_file_dhcp_option_client_to_ip_idx(1, HBS_IP_KIND_LL, client, &entry);
    EXPECT_EQ((Words{201, 2, 0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0}), key_of(entry));
    EXPECT_EQ(2u, logged_count("HOSTBASE: hbs_file_dhcp_option_client_to_ip_idx: clnt dbpos is 52"));
}

TEST_F(IpIndex, NetworkKeyFoldsInto200To207) {
    hbs_client *client = make();
    hbs_ip_entry entry;
    for (int nwidx = 0; nwidx < 16; nwidx++) {
        hbs_file_client_to_ip_index(nwidx, HBS_IP_KIND_IPV4, client, &entry);
        EXPECT_EQ(200u + static_cast<uint32_t>(nwidx % 8), entry.key[0]) << "nwidx " << nwidx;
    }
    hbs_file_client_to_ip_index(255, HBS_IP_KIND_IPV4, client, &entry);
    EXPECT_EQ(207u, entry.key[0]) << "inside the range for any byte";
}

TEST_F(IpIndex, Ipv4OfAnyNetworkSortsBeforeIpv6) {
    hbs_client *six = publish(make(0));
    set_ipv6(six->ipv6, "2001:db8::1");
    insert(six, HBS_IP_KIND_IPV6);
    insert(publish(make(1, "192.168.1.10")), HBS_IP_KIND_IPV4);
    insert(publish(make(0, "192.168.0.10")), HBS_IP_KIND_IPV4);
    EXPECT_EQ((Keys{"200 1 4 192 168 0 10 ", "201 1 4 192 168 1 10 ",
                    "200 2 16 20 1 d b8 0 0 0 0 0 0 0 0 0 0 0 1 "}),
              ip_keys());
}

TEST_F(IpIndex, InsertsInOrderWhateverTheOrderOfArrival) {
    for (const char *address : {"192.168.0.20", "192.168.0.5", "192.168.0.255", "10.0.0.1", "192.168.0.10"})
        insert(publish(make(0, address)), HBS_IP_KIND_IPV4);
    EXPECT_EQ((Keys{"200 1 4 10 0 0 1 ", "200 1 4 192 168 0 5 ", "200 1 4 192 168 0 10 ",
                    "200 1 4 192 168 0 20 ", "200 1 4 192 168 0 255 "}),
              ip_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: insert new ip index 200 1 4 10 0 0 1 "));
}

TEST_F(IpIndex, SameAddressTwiceOnOneNetwork_KeepsOneEntry) {
    hbs_client *first = publish(make(0, "192.168.0.10"));
    insert(first, HBS_IP_KIND_IPV4);
    insert(publish(make(0, "192.168.0.10")), HBS_IP_KIND_IPV4);
    EXPECT_EQ(1u, ip_keys().size());
    EXPECT_EQ(first->dbpos, entries<hbs_ip_entry>(hbs_pool::ip)[0].dbpos);
    EXPECT_EQ(1u,
              logged_count("HOSTBASE: hostbase_insert_ipidx : index already exists (200 1 4 192 168 0 10 )"));
    EXPECT_EQ(287, hbs_pool_free_count(hbs_pool::ip));
}

TEST_F(IpIndex, SameAddressOnAnotherNetwork_IsAnotherEntry) {
    insert(publish(make(0, "192.168.0.10")), HBS_IP_KIND_IPV4);
    insert(publish(make(1, "192.168.0.10")), HBS_IP_KIND_IPV4);
    EXPECT_EQ(2u, ip_keys().size());
}

TEST_F(IpIndex, DhcpOption_InsertsSortedAndRejectsEqualKeys) {
    hbs_client *b = publish(make(0, "192.168.0.20"));
    hbs_client *a = publish(make(0, "192.168.0.10"));
    insert_dhcp(b, HBS_IP_KIND_IPV4);
    insert_dhcp(a, HBS_IP_KIND_IPV4);
    insert_dhcp(a, HBS_IP_KIND_IPV4);
    EXPECT_EQ((Keys{"200 1 192 168 0 10 0 : " + pos(a), "200 1 192 168 0 20 0 : " + pos(b)}), dhcp_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: insert new dhcp ip index 200 1 192 168 0 10 0 : " + pos(a)));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_dhcp_option_insert_ip_idx : index already exists "
                               "(200 1 192 168 0 10 0 : " +
                               pos(a) + ")"));
}

TEST_F(IpIndex, WhenPoolIsFull_LogsAndEvictsNothing) {
    hbs_client *client = publish(make(0));
    for (int i = 0; i < 289; i++) {
        const uint8_t address[4] = {10, 0, static_cast<uint8_t>(i / 256), static_cast<uint8_t>(i % 256)};
        memcpy(client->ipv4, address, sizeof address);
        insert(client, HBS_IP_KIND_IPV4);
    }
    EXPECT_EQ(288u, ip_keys().size());
    EXPECT_EQ("200 1 4 10 0 1 31 ", ip_keys().back());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_insert_ip_idx : failed to allocate memory for new index"));
}

TEST_F(IpIndex, WhenDhcpOptionPoolIsFull_LogsAndEvictsNothing) {
    hbs_client *client = publish(make(0));
    for (int i = 0; i < 193; i++) {
        const uint8_t address[4] = {10, 0, 0, static_cast<uint8_t>(i)};
        memcpy(client->ipv4, address, sizeof address);
        insert_dhcp(client, HBS_IP_KIND_IPV4);
    }
    EXPECT_EQ(192u, dhcp_keys().size());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_dhcp_option_insert_ip_idx : failed to allocate memory"));
}

TEST_F(IpIndex, EntryOfAClientWithoutSlot_IsNeverMade) {
    hbs_client *client = make(0, "192.168.0.10");
    for (uint32_t dbpos : {0u, 0xFFFFFFFFu, 52u, 53u, 4u}) {
        client->dbpos = dbpos;
        insert(client, HBS_IP_KIND_IPV4);
        insert_dhcp(client, HBS_IP_KIND_IPV4);
    }
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_TRUE(dhcp_keys().empty());
}

TEST_F(IpIndex, EntryWithoutKeyOrTooLongIsNotInserted) {
    hbs_client *client = publish(make(0, "192.168.0.10"));
    insert(client, 3);
    insert(client, -1);
    insert_dhcp(client, HBS_IP_KIND_IPV6);
    hbs_ip_entry entry{};
    entry.count = 20;
    entry.dbpos = client->dbpos;
    hostbase_insert_ipidx(&entry);
    hostbase_insert_ipidx(nullptr);
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_TRUE(dhcp_keys().empty());
}

TEST_F(IpIndex, RemoveTakesAllEntriesOfTheClientAndNoOther) {
    hbs_client *a = publish(make(0, "192.168.0.10"));
    hbs_client *b = publish(make(0, "192.168.0.20"));
    set_ipv6(a->ipv6, "2001:db8::1");
    set_ipv6(a->ll, "fe80::1");
    for (int kind : {HBS_IP_KIND_IPV4, HBS_IP_KIND_IPV6, HBS_IP_KIND_LL})
        insert(a, kind);
    insert(b, HBS_IP_KIND_IPV4);
    hbs_file_remove_ip_idx(hbs_slot_of(a));
    EXPECT_EQ(Keys{"200 1 4 192 168 0 20 "}, ip_keys());
    EXPECT_EQ(287, hbs_pool_free_count(hbs_pool::ip));
    EXPECT_EQ(3u,
              logged_containing("HOSTBASE: hbs_file_remove_ip_idx : client found (pos:" + pos(a) + ") ("));
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_remove_ip_idx : client found (pos:" + pos(a) +
                               ") (200 1 4 192 168 0 10 )"));
}

TEST_F(IpIndex, RemoveDhcpOption) {
    hbs_client *a = publish(make(0, "192.168.0.10"));
    hbs_client *b = publish(make(0, "192.168.0.20"));
    insert_dhcp(a, HBS_IP_KIND_IPV4);
    insert_dhcp(b, HBS_IP_KIND_IPV4);
    hbs_file_remove_dhcp_option_ip_idx(hbs_slot_of(a));
    EXPECT_EQ(Keys{"200 1 192 168 0 20 0 : " + pos(b)}, dhcp_keys());
    EXPECT_EQ(1u, logged_count("HOSTBASE: hbs_file_remove_dhcp_option_ip_idx : client found (pos:" + pos(a) +
                               ") (200 1 192 168 0 10 0 : " + pos(a) + ")"));
}

TEST_F(IpIndex, StaleDbpos_RemovesNothingOfTheSlotsNewClient) {
    hbs_client *old = publish(make(0, "192.168.0.10"));
    unpublish(old);
    hbs_client *fresh = make(0, "192.168.0.20");
    for (int i = 0; i < 96 && fresh->dbpos != old->dbpos; i++) {
        if (hbs_slot_of(fresh) != nullptr)
            unpublish(fresh);
        publish(fresh);
    }
    ASSERT_EQ(old->dbpos, fresh->dbpos);
    insert(fresh, HBS_IP_KIND_IPV4);
    insert_dhcp(fresh, HBS_IP_KIND_IPV4);
    hbs_file_remove_ip_idx(hbs_slot_of(old));
    hbs_file_remove_dhcp_option_ip_idx(hbs_slot_of(old));
    EXPECT_EQ(1u, ip_keys().size());
    EXPECT_EQ(1u, dhcp_keys().size());
}

TEST_F(IpIndex, RemoveIpv6Entry_TakesThatKeyOnly) {
    hbs_client *client = publish(make(0, "192.168.0.10"));
    set_ipv6(client->ipv6, "2001:db8::1");
    set_ipv6(client->ll, "fe80::1");
    for (int kind : {HBS_IP_KIND_IPV4, HBS_IP_KIND_IPV6, HBS_IP_KIND_LL})
        insert(client, kind);
    insert_dhcp(client, HBS_IP_KIND_LL);
    hbs_file_remove_ipv6_entry(client);
    EXPECT_EQ((Keys{"200 1 4 192 168 0 10 ", "200 2 16 fe 80 0 0 0 0 0 0 0 0 0 0 0 0 0 1 "}), ip_keys());
    EXPECT_EQ(1u, dhcp_keys().size());
}

TEST_F(IpIndex, RemoveLinkLocalEntries_TakesBothLists) {
    hbs_client *client = publish(make(0, "192.168.0.10"));
    set_ipv6(client->ipv6, "2001:db8::1");
    set_ipv6(client->ll, "fe80::1");
    for (int kind : {HBS_IP_KIND_IPV4, HBS_IP_KIND_IPV6, HBS_IP_KIND_LL})
        insert(client, kind);
    insert_dhcp(client, HBS_IP_KIND_IPV4);
    insert_dhcp(client, HBS_IP_KIND_LL);
    hbs_file_remove_ll_entries(client);
    EXPECT_EQ((Keys{"200 1 4 192 168 0 10 ", "200 2 16 20 1 d b8 0 0 0 0 0 0 0 0 0 0 0 1 "}), ip_keys());
    EXPECT_EQ(Keys{"200 1 192 168 0 10 0 : " + pos(client)}, dhcp_keys());
}

TEST_F(IpIndex, RemoveByAddress_FindsTheEntryByItsKeyForAnUnpublishedClientToo) {
    hbs_client *holder = publish(make(0));
    set_ipv6(holder->ipv6, "2001:db8::1");
    insert(holder, HBS_IP_KIND_IPV6);
    hbs_client *other = make(0);
    set_ipv6(other->ipv6, "2001:db8::1");
    hbs_file_remove_ipv6_entry(other);
    EXPECT_TRUE(ip_keys().empty());
}

TEST_F(IpIndex, RemoveByAddress_AfterANetworkChange_TakesTheEntryOfTheOldNetwork) {
    hbs_client *client = publish(make(0));
    set_ipv6(client->ipv6, "2001:db8::1");
    set_ipv6(client->ll, "fe80::1");
    insert(client, HBS_IP_KIND_IPV6);
    insert(client, HBS_IP_KIND_LL);
    insert_dhcp(client, HBS_IP_KIND_LL);
    hbs_client *neighbour = publish(make(0));
    set_ipv6(neighbour->ipv6, "2001:db8::2");
    insert(neighbour, HBS_IP_KIND_IPV6);
    client->nwidx = 3;
    hbs_file_remove_ipv6_entry(client);
    hbs_file_remove_ll_entries(client);
    EXPECT_EQ(Keys{"200 2 16 20 1 d b8 0 0 0 0 0 0 0 0 0 0 0 2 "}, ip_keys());
    EXPECT_TRUE(dhcp_keys().empty());
}

TEST_F(IpIndex, RemoveByAddress_OfNoClientDoesNothing) {
    hbs_file_remove_ipv6_entry(nullptr);
    hbs_file_remove_ll_entries(nullptr);
    EXPECT_TRUE(log_lines().empty());
}

} // namespace ip_index_test
