// What the reader library finds and copies.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

#include "support/query_segment.h"

namespace hostbase_query_test {

class Query : public QuerySegment {};

// --- one client -----------------------------------------------------------------------------------------

TEST_F(Query, FindsAClientByEachOfItsKeys) {
    publish(0, 1);
    publish_full();
    hbs_client client;
    EXPECT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_OK);
    EXPECT_EQ(memcmp(&client, &db->client_pool[3], sizeof client), 0);
    const uint8_t ipv4[] = {192, 168, 0, 10};
    EXPECT_EQ(hostbase_find_by_ipv4(ipv4, &client), HOSTBASE_OK);
    EXPECT_EQ(client.client_id, 7u);
    std::vector<uint8_t> global(16, 0x20), link_local(16, 0xfe);
    client.client_id = 0;
    EXPECT_EQ(hostbase_find_by_ipv6(global.data(), &client), HOSTBASE_OK);
    EXPECT_EQ(client.client_id, 7u);
    client.client_id = 0;
    EXPECT_EQ(hostbase_find_by_ipv6(link_local.data(), &client), HOSTBASE_OK);
    EXPECT_EQ(client.client_id, 7u);
}

TEST_F(Query, WhenNobodyHasTheKey_SaysNotFoundAndLeavesTheOutputAlone) {
    publish_full();
    hbs_client client;
    memset(&client, 0x5a, sizeof client);
    const hbs_client before = client;
    const uint8_t ipv4[] = {192, 168, 0, 11};
    std::vector<uint8_t> ipv6(16, 0x21);
    EXPECT_EQ(hostbase_find_by_mac(mac_of(8).data(), &client), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_find_by_ipv4(ipv4, &client), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_find_by_ipv6(ipv6.data(), &client), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(memcmp(&client, &before, sizeof client), 0);
}

TEST_F(Query, AClientWithoutAnAddressIsNotFoundByTheZeroAddress) {
    hbs_client *nomac = publish(0, 1);
    memset(nomac->mac, 0, 6);
    hbs_client client;
    const uint8_t zero[16] = {};
    EXPECT_EQ(hostbase_find_by_mac(zero, &client), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_find_by_ipv4(zero, &client), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_find_by_ipv6(zero, &client), HOSTBASE_NOT_FOUND);
}

TEST_F(Query, ASlotThatIsOnNoListIsNotFound) {
    hbs_client *client = &db->client_pool[0];
    client->dbpos = offset_of(client);
    memcpy(client->mac, mac_of(1).data(), 6);
    hbs_client found;
    EXPECT_EQ(hostbase_find_by_mac(mac_of(1).data(), &found), HOSTBASE_NOT_FOUND);
}

TEST_F(Query, GivesEachFieldOfAClient) {
    publish_full();
    uint32_t number = 0;
    char host[HBS_HOST_SIZE], oui[HBS_OUI_SIZE], serial[HBS_SERIAL_SIZE], product[HBS_PRODUCT_SIZE];
    auto mac = mac_of(7);
    EXPECT_EQ(hostbase_get_adapter_type(mac.data(), &number), HOSTBASE_OK);
    EXPECT_EQ(number, 5u);
    EXPECT_EQ(hostbase_get_SSID(mac.data(), &number), HOSTBASE_OK);
    EXPECT_EQ(number, 3u) << "SSID numbers start at 1";
    EXPECT_EQ(hostbase_get_host(mac.data(), host), HOSTBASE_OK);
    EXPECT_STREQ(host, "laptop");
    EXPECT_EQ(hostbase_get_manuf_oui(mac.data(), oui), HOSTBASE_OK);
    EXPECT_STREQ(oui, "00AA11");
    EXPECT_EQ(hostbase_get_ser_num(mac.data(), serial), HOSTBASE_OK);
    EXPECT_STREQ(serial, "SN-1");
    EXPECT_EQ(hostbase_get_prod_class(mac.data(), product), HOSTBASE_OK);
    EXPECT_STREQ(product, "Notebook");
}

TEST_F(Query, TheSsidOfTheHighestIndexDoesNotWrap) {
    publish_full()->wifi_index = 255;
    uint32_t ssid = 0;
    EXPECT_EQ(hostbase_get_SSID(mac_of(7).data(), &ssid), HOSTBASE_OK);
    EXPECT_EQ(ssid, 256u);
}

TEST_F(Query, TextsEndInsideTheirFieldWhateverTheRecordHolds) {
    hbs_client *client = publish_full();
    memset(client->host, 'h', sizeof client->host);
    memset(client->oui, 'o', sizeof client->oui);
    memset(client->serial_number, 's', sizeof client->serial_number);
    memset(client->product_class, 'p', sizeof client->product_class);
    char host[HBS_HOST_SIZE], oui[HBS_OUI_SIZE], serial[HBS_SERIAL_SIZE], product[HBS_PRODUCT_SIZE];
    auto mac = mac_of(7);
    ASSERT_EQ(hostbase_get_host(mac.data(), host), HOSTBASE_OK);
    ASSERT_EQ(hostbase_get_manuf_oui(mac.data(), oui), HOSTBASE_OK);
    ASSERT_EQ(hostbase_get_ser_num(mac.data(), serial), HOSTBASE_OK);
    ASSERT_EQ(hostbase_get_prod_class(mac.data(), product), HOSTBASE_OK);
    EXPECT_EQ(strnlen(host, sizeof host), 63u);
    EXPECT_EQ(strnlen(oui, sizeof oui), 6u);
    EXPECT_EQ(strnlen(serial, sizeof serial), 64u);
    EXPECT_EQ(strnlen(product, sizeof product), 64u);
}

TEST_F(Query, ForAnUnknownMac_EachFieldCallLeavesItsOutputAlone) {
    auto mac = mac_of(1);
    uint32_t number = 42;
    char text[HBS_SERIAL_SIZE] = "as it was";
    EXPECT_EQ(hostbase_get_adapter_type(mac.data(), &number), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_get_SSID(mac.data(), &number), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_get_host(mac.data(), text), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_get_manuf_oui(mac.data(), text), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_get_ser_num(mac.data(), text), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(hostbase_get_prod_class(mac.data(), text), HOSTBASE_NOT_FOUND);
    EXPECT_EQ(number, 42u);
    EXPECT_STREQ(text, "as it was");
}

TEST_F(Query, RefusesMissingArguments) {
    auto mac = mac_of(1);
    hbs_client client;
    size_t count = 0;
    EXPECT_EQ(hostbase_find_by_mac(nullptr, &client), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_find_by_ipv4(nullptr, &client), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_find_by_ipv6(mac.data(), nullptr), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_get_host(mac.data(), nullptr), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_get_adapter_type(mac.data(), nullptr), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_get_clients(&client, 1, nullptr), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_get_clients(nullptr, 1, &count), HOSTBASE_BAD_ARGUMENT);
    EXPECT_EQ(hostbase_snapshot(nullptr), HOSTBASE_BAD_ARGUMENT);
}

// --- lists ------------------------------------------------------------------------------------------------

TEST_F(Query, GivesClientsInListOrderWhateverTheirSlots) {
    for (unsigned slot : {5u, 0u, 95u, 2u})
        publish(slot, slot + 1);
    hbs_client clients[HBS_MAX_CLIENTS];
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(clients, HBS_MAX_CLIENTS, &count), HOSTBASE_OK);
    ASSERT_EQ(count, 4u);
    EXPECT_EQ(clients[0].client_id, 6u);
    EXPECT_EQ(clients[1].client_id, 1u);
    EXPECT_EQ(clients[2].client_id, 96u);
    EXPECT_EQ(clients[3].client_id, 3u);
}

TEST_F(Query, AnEmptyDatabaseHasNothing) {
    size_t count = 9;
    EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(hostbase_get_rule_index(nullptr, 0, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 0u);
}

TEST_F(Query, WhenTheRoomIsTooSmall_FillsItAndTellsHowManyThereAre) {
    for (unsigned slot = 0; slot < HBS_MAX_CLIENTS; slot++)
        publish(slot, slot + 1);
    hbs_client clients[3] = {};
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(clients, 2, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 96u);
    EXPECT_EQ(clients[0].client_id, 1u);
    EXPECT_EQ(clients[1].client_id, 2u);
    EXPECT_EQ(clients[2].client_id, 0u) << "written past the room";
}

TEST_F(Query, WalksEachIndexInItsOrder) {
    for (uint32_t i : {3u, 1u, 2u}) {
        hbs_ip_entry *ip = &db->ip_pool[287 - i];
        ip->count = 7;
        ip->key[0] = 200 + i;
        append(&db->ip_index, ip);
        hbs_ip_entry *dhcp = &db->dhcp_pool[191 - i];
        dhcp->count = 19;
        dhcp->key[0] = 300 + i;
        append(&db->dhcp_index, dhcp);
        hbs_if_entry *interface = &db->if_pool[95 - i];
        interface->count = 2;
        interface->key[1] = i;
        append(&db->if_index, interface);
        hbs_rule_entry *rule = &db->rule_pool[95 - i];
        rule->count = 2;
        rule->key[1] = i;
        append(&db->rule_index, rule);
        hbs_pri_entry *pri = &db->pri_pool[95 - i];
        pri->count = 1;
        pri->key[0] = i;
        append(&db->pri_index, pri);
    }
    hbs_ip_entry ip[HBS_MAX_IP_ENTRIES];
    hbs_if_entry interfaces[HBS_MAX_IF_ENTRIES];
    hbs_rule_entry rules[HBS_MAX_RULE_ENTRIES];
    hbs_pri_entry pri[HBS_MAX_PRI_ENTRIES];
    size_t count = 0;
    ASSERT_EQ(hostbase_get_ip_index(ip, HBS_MAX_IP_ENTRIES, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(ip[0].key[0] == 203 && ip[1].key[0] == 201 && ip[2].key[0] == 202);
    ASSERT_EQ(hostbase_get_dhcp_index(ip, HBS_MAX_DHCP_ENTRIES, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(ip[0].key[0] == 303 && ip[1].key[0] == 301 && ip[2].key[0] == 302);
    ASSERT_EQ(hostbase_get_if_index(interfaces, HBS_MAX_IF_ENTRIES, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(interfaces[0].key[1] == 3 && interfaces[1].key[1] == 1 && interfaces[2].key[1] == 2);
    ASSERT_EQ(hostbase_get_rule_index(rules, HBS_MAX_RULE_ENTRIES, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(rules[0].key[1] == 3 && rules[1].key[1] == 1 && rules[2].key[1] == 2);
    ASSERT_EQ(hostbase_get_pri_index(pri, HBS_MAX_PRI_ENTRIES, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_TRUE(pri[0].key[0] == 3 && pri[1].key[0] == 1 && pri[2].key[0] == 2);
}

TEST_F(Query, TheSnapshotIsTheWholeSegment) {
    publish_full();
    db->reserved = 0x1234;
    auto copy = std::make_unique<hbs_db>();
    ASSERT_EQ(hostbase_snapshot(copy.get()), HOSTBASE_OK);
    EXPECT_EQ(memcmp(copy.get(), db, HBS_SHM_SIZE), 0);
}

// --- damaged links
// ------------------------------------------------------------------------------------------

struct damage {
    const char *name;
    void (*apply)(hbs_db *db);
};

class DamagedClients : public Query, public testing::WithParamInterface<damage> {};

TEST_P(DamagedClients, AreNeverFollowed) {
    for (unsigned slot = 0; slot < 3; slot++)
        publish(slot, slot + 1);
    GetParam().apply(db);
    hbs_client clients[3] = {};
    auto copy = std::make_unique<hbs_db>();
    size_t count = 5;
    EXPECT_EQ(hostbase_find_by_mac(mac_of(3).data(), clients), HOSTBASE_UNSTABLE);
    EXPECT_EQ(hostbase_get_clients(clients, 3, &count), HOSTBASE_UNSTABLE);
    EXPECT_EQ(hostbase_snapshot(copy.get()), HOSTBASE_UNSTABLE);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(clients[0].client_id, 0u);
    EXPECT_EQ(copy->clients.next, 0u);
    EXPECT_EQ(holders_to_spare(), 1);
}

const damage client_damages[] = {
    {"HeadIsZero", [](hbs_db *db) { db->clients.next = 0; }},
    {"HeadIsOfAnotherList", [](hbs_db *db) { db->clients.next = offsetof(hbs_db, ip_index); }},
    {"LinkIsBeforeThePool", [](hbs_db *db) { db->client_pool[0].next = 48; }},
    {"LinkIsInsideAnElement", [](hbs_db *db) { db->client_pool[0].next += 4; }},
    {"LinkIsMisaligned", [](hbs_db *db) { db->client_pool[0].next += 1; }},
    {"LinkIsTheEndOfThePool", [](hbs_db *db) { db->client_pool[0].next = offsetof(hbs_db, ip_pool); }},
    {"LinkIsPastTheSegment", [](hbs_db *db) { db->client_pool[0].next = HBS_SHM_SIZE + 52; }},
    {"LinkIsAllOnes", [](hbs_db *db) { db->client_pool[0].next = 0xFFFFFFFF; }},
    {"LinkIsPoison", [](hbs_db *db) { db->client_pool[0].next = 0x00100100; }},
    {"ElementPointsToItself",
     [](hbs_db *db) { db->client_pool[1].next = offsetof(hbs_db, client_pool) + 1744; }},
    {"ChainRunsInACircle", [](hbs_db *db) { db->client_pool[1].next = offsetof(hbs_db, client_pool); }},
    {"SlotDoesNotHoldItsOwnOffset", [](hbs_db *db) { db->client_pool[2].dbpos = 0; }},
};

std::string name_of(const testing::TestParamInfo<damage> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, DamagedClients, testing::ValuesIn(client_damages), name_of);

class DamagedIndex : public Query, public testing::WithParamInterface<damage> {};

TEST_P(DamagedIndex, IsNeverFollowed) {
    db->ip_pool[0].count = 7;
    append(&db->ip_index, &db->ip_pool[0]);
    GetParam().apply(db);
    hbs_ip_entry entry = {};
    size_t count = 5;
    auto copy = std::make_unique<hbs_db>();
    EXPECT_EQ(hostbase_get_ip_index(&entry, 1, &count), HOSTBASE_UNSTABLE);
    EXPECT_EQ(hostbase_snapshot(copy.get()), HOSTBASE_UNSTABLE);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK) << "the other lists are sound";
}

const damage index_damages[] = {
    {"LinkIsInTheClientPool", [](hbs_db *db) { db->ip_index.next = offsetof(hbs_db, client_pool); }},
    {"LinkIsInTheOtherPoolOfTheSameKind",
     [](hbs_db *db) { db->ip_index.next = offsetof(hbs_db, dhcp_pool); }},
    {"KeyHasNoWords", [](hbs_db *db) { db->ip_pool[0].count = 0; }},
    {"KeyHasMoreWordsThanRoom", [](hbs_db *db) { db->ip_pool[0].count = 20; }},
};

INSTANTIATE_TEST_SUITE_P(All, DamagedIndex, testing::ValuesIn(index_damages), name_of);

TEST(QueryText, EveryResultHasOneOfItsOwn) {
    std::vector<std::string> texts;
    for (int result = HOSTBASE_NO_MEMORY; result <= HOSTBASE_OK; result++)
        texts.push_back(hostbase_strerror(result));
    texts.push_back(hostbase_strerror(17));
    EXPECT_EQ(texts.back(), "unknown error");
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
}

} // namespace hostbase_query_test
