// Working copies: creation, the two lists, look-ups, flags.
#include <tuple>

#include "base/clock.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "support/working_clients.h"

namespace clients_test {

class Add : public ClientsTest {};

TEST_F(Add, WithMac_GoesOnTheClientList) {
    const uint32_t before = hbs_monotonic_seconds();
    hbs_client *client = add_client(1);
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(std::vector{client}, working_clients());
    EXPECT_TRUE(nomac_clients().empty());
    EXPECT_FALSE(hbs_is_nomac(client));
    EXPECT_EQ(0, memcmp(client->mac, mac_number(1).data(), 6));
    EXPECT_EQ(1U, client->client_id);
    EXPECT_EQ(0U, client->dbpos);
    EXPECT_EQ(HBS_CHANGED, client->flags);
    EXPECT_GE(client->online_time, before);
    EXPECT_LE(client->online_time, hbs_monotonic_seconds());
    EXPECT_EQ(std::vector<std::string>{"HOSTBASE: hbs_add: Client at 0 has mac address 02:aa:00:00:00:01"},
              log_lines());
}

TEST_F(Add, WithoutMac_GoesOnTheNomacListUnmarked) {
    hbs_client *client = hbs_add(nullptr);
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(std::vector{client}, nomac_clients());
    EXPECT_TRUE(working_clients().empty());
    EXPECT_TRUE(hbs_is_nomac(client));
    EXPECT_EQ(0U, client->flags);
    EXPECT_EQ(1U, client->client_id);
    EXPECT_EQ(Mac{}, (std::to_array(client->mac)));
    EXPECT_EQ(
        std::vector<std::string>{"HOSTBASE: hbs_add: Client at 0 has NO MAC address - save in nomac list"},
        log_lines());
}

TEST_F(Add, LeavesEveryOtherFieldZero) {
    hbs_client *client = add_client(1);
    hbs_client expected{};
    memcpy(expected.mac, client->mac, sizeof expected.mac);
    expected.client_id = client->client_id;
    expected.online_time = client->online_time;
    expected.flags = client->flags;
    expected.next = client->next;
    expected.prev = client->prev;
    EXPECT_EQ(0, memcmp(&expected, client, sizeof expected));
}

TEST_F(Add, IsNotYetPublished) {
    EXPECT_EQ(0U, add_client(1)->dbpos);
    EXPECT_TRUE(published_clients().empty());
}

TEST_F(Add, PutsTheNewestAtTheTail) {
    hbs_client *first = add_client(1);
    hbs_client *second = add_client(2);
    hbs_client *third = add_client(3);
    EXPECT_EQ((std::vector{first, second, third}), working_clients());
}

TEST_F(Add, ReusedMemoryIsClean) {
    hbs_client *old = add_client(1);
    memset(old->host, 'x', sizeof old->host - 1);
    hbs_client_release(old);
    hbs_client *fresh = add_client(2);
    EXPECT_STREQ("", fresh->host);
    EXPECT_EQ(0, fresh->host[10]);
}

TEST_F(Add, WhenThePoolIsEmpty_GivesNullWithoutMessage) {
    for (int i = 0; i < HBS_MAX_WORKING; ++i) {
        hbs_client *client = i % 3 == 0 ? hbs_add(nullptr) : add_client(static_cast<unsigned>(i));
        ASSERT_NE(nullptr, client);
        client->ipv4[0] = 10;
        client->flags = HBS_FLAG_ONLINE;
    }
    clear_log();
    EXPECT_EQ(nullptr, add_client(9999));
    EXPECT_EQ(nullptr, hbs_add(nullptr));
    EXPECT_TRUE(log_lines().empty());
    EXPECT_EQ(static_cast<uint32_t>(HBS_MAX_WORKING), hbs_client_counter());
    hbs_client_release(hbs_client_first());
    hbs_client *last = add_client(9999);
    ASSERT_NE(nullptr, last);
    last->flags = HBS_FLAG_ONLINE;
    EXPECT_EQ(nullptr, add_client(9998));
}

TEST_F(Add, TakesTheClientIdFromTheCounter) {
    EXPECT_EQ(1U, add_client(1)->client_id);
    EXPECT_EQ(2U, hbs_add(nullptr)->client_id);
    EXPECT_EQ(3U, add_client(3)->client_id);
    EXPECT_EQ(3U, hbs_client_counter());
}

TEST_F(Add, CounterWrapsPastZero) {
    hbs_client_counter_decrement();
    ASSERT_EQ(0xFFFFFFFFU, hbs_client_counter());
    EXPECT_EQ(1U, add_client(1)->client_id);
}

TEST_F(Add, CounterReachesItsLargestValue) {
    hbs_client_counter_decrement();
    hbs_client_counter_decrement();
    EXPECT_EQ(0xFFFFFFFFU, add_client(1)->client_id);
    EXPECT_EQ(1U, add_client(2)->client_id);
}

class Lists : public ClientsTest {};

TEST_F(Lists, InitEmptiesEverything) {
    hbs_client *client = add_client(1);
    hbs_add(nullptr);
    hbs_clients_init();
    EXPECT_TRUE(working_clients().empty());
    EXPECT_TRUE(nomac_clients().empty());
    EXPECT_FALSE(hbs_is_working_copy(client));
    EXPECT_EQ(0U, hbs_client_counter());
}

TEST_F(Lists, LinkWordsAreSmallNonZeroNumbersWhileOnAList) {
    std::vector<hbs_client *> all = {add_client(1), add_client(2), add_client(3), hbs_add(nullptr)};
    for (const hbs_client *client : all) {
        EXPECT_NE(0U, client->next);
        EXPECT_NE(0U, client->prev);
        EXPECT_LE(client->next, HBS_MAX_WORKING + 2U);
        EXPECT_LE(client->prev, HBS_MAX_WORKING + 2U);
    }
    EXPECT_EQ(all[0]->next, all[2]->prev) << "both name the client in the middle";
    EXPECT_EQ(all[0]->prev, all[2]->next) << "both name the list";
    EXPECT_NE(all[0]->prev, all[3]->prev) << "the two lists differ";
}

TEST_F(Lists, ReleasedRecordIsPoisoned) {
    hbs_client *client = add_client(1);
    hbs_client_release(client);
    EXPECT_EQ(0x00100100U, client->next);
    EXPECT_EQ(0x00200200U, client->prev);
    EXPECT_FALSE(hbs_is_working_copy(client));
}

class ListsReleased : public Lists, public testing::WithParamInterface<size_t> {};

TEST_P(ListsReleased, LeavesTheOthersLinked) {
    std::vector<hbs_client *> clients = {add_client(1), add_client(2), add_client(3)};
    hbs_client_release(clients[GetParam()]);
    clients.erase(clients.begin() + static_cast<long>(GetParam()));
    EXPECT_EQ(clients, working_clients());
    EXPECT_EQ(clients[0]->prev, clients[1]->next);
    clients.push_back(add_client(4));
    EXPECT_EQ(clients, working_clients());
}

INSTANTIATE_TEST_SUITE_P(FirstMiddleLast, ListsReleased, testing::Values(0U, 1U, 2U));

TEST_F(Lists, ReleaseOfTheOnlyClient_LeavesAnEmptyList) {
    hbs_client_release(add_client(1));
    EXPECT_EQ(nullptr, hbs_client_first());
    hbs_client *again = add_client(2);
    EXPECT_EQ(std::vector{again}, working_clients());
}

TEST_F(Lists, ReleaseTwiceOrOfAStranger_DoesNothing) {
    hbs_client stranger{};
    hbs_client *client = add_client(1);
    hbs_client *other = add_client(2);
    hbs_client_release(client);
    hbs_client_release(client);
    hbs_client_release(&stranger);
    hbs_client_release(nullptr);
    EXPECT_EQ(std::vector{other}, working_clients());
    EXPECT_NE(add_client(3), add_client(4)) << "the same memory was given out twice";
}

TEST_F(Lists, MoveTakesANomacClientToTheTailOfTheClientList) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_client *stays = hbs_add(nullptr);
    hbs_client *first = add_client(1);
    hbs_client_list_move(nomac);
    EXPECT_EQ((std::vector{first, nomac}), working_clients());
    EXPECT_EQ(std::vector{stays}, nomac_clients());
    EXPECT_FALSE(hbs_is_nomac(nomac));
    hbs_client_list_move(first);
    EXPECT_EQ((std::vector{first, nomac}), working_clients())
        << "a client of the client list stays where it is";
}

TEST_F(Lists, OnlyClientsInUseAreWorkingCopies) {
    hbs_client stranger{};
    hbs_client *client = add_client(1);
    hbs_client *next = add_client(2);
    EXPECT_TRUE(hbs_is_working_copy(client));
    EXPECT_TRUE(hbs_is_working_copy(hbs_add(nullptr)));
    EXPECT_FALSE(hbs_is_working_copy(nullptr));
    EXPECT_FALSE(hbs_is_working_copy(&stranger));
    EXPECT_FALSE(hbs_is_working_copy(&hbs_segment()->client_pool[0]));
    const void *inside = reinterpret_cast<const uint8_t *>(client) + 4;
    EXPECT_FALSE(hbs_is_working_copy(static_cast<const hbs_client *>(inside)));
    hbs_client_release(next);
    EXPECT_FALSE(hbs_is_working_copy(next));
    EXPECT_FALSE(hbs_is_nomac(&stranger));
    EXPECT_EQ(nullptr, hbs_client_next(&stranger));
}

TEST_F(Lists, TimerSlotsExistForTheThreeKindsOfAWorkingCopy) {
    hbs_client stranger{};
    hbs_client *client = add_client(1);
    for (int kind : {HBS_TIMER_DHCP_WAIT, HBS_TIMER_LEASE, HBS_TIMER_ONLINE}) {
        ASSERT_NE(nullptr, hbs_client_timer_slot(client, kind));
        EXPECT_FALSE(hbs_client_timer_slot(client, kind)->exists);
        EXPECT_EQ(nullptr, hbs_client_timer_slot(&stranger, kind));
    }
    EXPECT_NE(hbs_client_timer_slot(client, 1), hbs_client_timer_slot(client, 2));
    EXPECT_EQ(nullptr, hbs_client_timer_slot(client, 0));
    EXPECT_EQ(nullptr, hbs_client_timer_slot(client, 4));
    EXPECT_EQ(nullptr, hbs_client_timer_slot(nullptr, 1));
}

class Lookup : public ClientsTest {
  protected:
    static hbs_client *with_ipv4(hbs_client *client, Ipv4 address) {
        memcpy(client->ipv4, address.data(), address.size());
        return client;
    }
    static hbs_client *with_ipv6(hbs_client *client, Ipv6 global, Ipv6 ll) {
        memcpy(client->ipv6, global.data(), global.size());
        memcpy(client->ll, ll.data(), ll.size());
        return client;
    }
};

TEST_F(Lookup, ByMac_FindsTheFirstMatch) {
    add_client(1);
    hbs_client *second = add_client(2);
    add_client(2);
    EXPECT_EQ(second, hbs_find_by_mac(mac_number(2).data()));
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(3).data()));
}

TEST_F(Lookup, ByMac_NeverLooksAtTheNomacList) {
    hbs_add(nullptr);
    EXPECT_EQ(nullptr, hbs_find_by_mac(Mac{}.data()));
}

TEST_F(Lookup, NullArgumentFindsNone) {
    add_client(1);
    hbs_add(nullptr);
    EXPECT_EQ(nullptr, hbs_find_by_mac(nullptr));
    EXPECT_EQ(nullptr, hbs_find_by_ipv4(nullptr));
    EXPECT_EQ(nullptr, hbs_find_by_ipv6(nullptr));
    EXPECT_EQ(nullptr, hbs_find_nomac_by_ipv6(nullptr));
}

TEST_F(Lookup, ByIpv4_LogsEveryClientThatItPasses_NumberedDifferently) {
    with_ipv4(add_client(1), ipv4_number(1));
    add_client(2)->dbpos = 52;
    with_ipv4(add_client(3), ipv4_number(3));
    hbs_client *wanted = with_ipv4(add_client(4), ipv4_number(4));
    with_ipv4(add_client(5), ipv4_number(5));
    clear_log();
    EXPECT_EQ(wanted, hbs_find_by_ipv4(ipv4_number(4).data()));
    EXPECT_EQ((std::vector<std::string>{
                  "HOSTBASE: hbs_find_by_ipv4: Client at pos 0 has ipv4 address 192.168.0.1",
                  "HOSTBASE: hbs_find_by_ipv4: Client at pos 52 has no ipv4 address",
                  "HOSTBASE: hbs_find_by_ipv4: Client at pos 1 has ipv4 address 192.168.0.3",
                  "HOSTBASE: hbs_find_by_ipv4: Client at pos 2 has ipv4 address 192.168.0.4",
              }),
              log_lines());
}

TEST_F(Lookup, ByIpv4_FindsANomacClientSilentlyWhenNoMacClientHasIt) {
    with_ipv4(hbs_add(nullptr), ipv4_number(7));
    hbs_client *nomac = with_ipv4(hbs_add(nullptr), ipv4_number(8));
    clear_log();
    EXPECT_EQ(nomac, hbs_find_by_ipv4(ipv4_number(8).data()));
    EXPECT_TRUE(log_lines().empty());
    hbs_client *with_mac = with_ipv4(add_client(1), ipv4_number(8));
    EXPECT_EQ(with_mac, hbs_find_by_ipv4(ipv4_number(8).data()));
    EXPECT_EQ(nullptr, hbs_find_by_ipv4(ipv4_number(9).data()));
}

TEST_F(Lookup, ByIpv4_ZeroMatchesANomacClientWithoutAddressOnly) {
    add_client(1);
    EXPECT_EQ(nullptr, hbs_find_by_ipv4(Ipv4{}.data()));
    hbs_client *nomac = hbs_add(nullptr);
    EXPECT_EQ(nomac, hbs_find_by_ipv4(Ipv4{}.data()));
}

TEST_F(Lookup, ByIpv6_MatchesGlobalOrLinkLocal_ClientListFirst) {
    hbs_client *nomac = with_ipv6(hbs_add(nullptr), ipv6_number(1), ll_number(9));
    EXPECT_EQ(nomac, hbs_find_by_ipv6(ipv6_number(1).data()));
    EXPECT_EQ(nomac, hbs_find_by_ipv6(ll_number(9).data()));
    hbs_client *by_global = with_ipv6(add_client(1), ipv6_number(1), ll_number(1));
    hbs_client *by_ll = with_ipv6(add_client(2), ipv6_number(2), ll_number(9));
    EXPECT_EQ(by_global, hbs_find_by_ipv6(ipv6_number(1).data()));
    EXPECT_EQ(by_ll, hbs_find_by_ipv6(ll_number(9).data()));
    EXPECT_EQ(nullptr, hbs_find_by_ipv6(ipv6_number(3).data()));
}

// Every client without a global or a link-local address holds :: there.
TEST_F(Lookup, ByIpv6OfNoAddress_FindsNone) {
    add_client(1);
    hbs_add(nullptr);
    EXPECT_EQ(nullptr, hbs_find_by_ipv6(Ipv6{}.data()));
    EXPECT_EQ(nullptr, hbs_find_nomac_by_ipv6(Ipv6{}.data()));
}

TEST_F(Lookup, NomacByIpv6_LooksAtTheNomacListOnly) {
    with_ipv6(add_client(1), ipv6_number(1), ll_number(1));
    hbs_client *nomac = with_ipv6(hbs_add(nullptr), ipv6_number(2), ll_number(2));
    EXPECT_EQ(nullptr, hbs_find_nomac_by_ipv6(ipv6_number(1).data()));
    EXPECT_EQ(nomac, hbs_find_nomac_by_ipv6(ipv6_number(2).data()));
    EXPECT_EQ(nomac, hbs_find_nomac_by_ipv6(ll_number(2).data()));
}

struct FlagCase {
    const char *name;
    uint32_t old_trust, old_flags;
    uint32_t t, s;
    uint32_t trust, flags;
};

void PrintTo(const FlagCase &row, std::ostream *out) {
    *out << row.name;
}

static std::string case_name(const testing::TestParamInfo<FlagCase> &row) {
    return row.param.name;
}

class SetFlags : public ClientsTest, public testing::WithParamInterface<FlagCase> {};

TEST_P(SetFlags, OrsBitsInAndMarks) {
    hbs_client *client = add_client(1);
    client->trust = GetParam().old_trust;
    client->flags = GetParam().old_flags;
    hbs_set_flags(client, GetParam().t, GetParam().s);
    EXPECT_EQ(GetParam().trust, client->trust);
    EXPECT_EQ(GetParam().flags, client->flags);
}

INSTANTIATE_TEST_SUITE_P(Table, SetFlags,
                         testing::Values(FlagCase{"NewBit", 0, 0, 0, 0x2, 0, 0x10002},
                                         FlagCase{"NewTrust", 0, 0, 4, 0, 4, 0x10000},
                                         FlagCase{"NothingOnNothing", 0, 0, 0, 0, 0, 0},
                                         FlagCase{"NothingOnSomething", 0, 0x2, 0, 0, 0, 0x10002},
                                         FlagCase{"ExactlyTheStoredValue", 4, 0x1002, 4, 0x1002, 4, 0x1002},
                                         FlagCase{"SetAlreadyAlongsideOthers", 0, 0x1002, 0, 0x1000, 0,
                                                  0x11002},
                                         FlagCase{"SameFlagsButOtherTrust", 4, 0x2, 0, 0x2, 4, 0x10002},
                                         FlagCase{"ExactMarkedBefore", 4, 0xF1002, 4, 0x1002, 4, 0xF1002},
                                         FlagCase{"ExactAndMarkAsked", 0, 0x2, 0, 0x80002, 0, 0x80002},
                                         FlagCase{"MarkOnBareClient", 0, 0, 0, 0xF0000, 0, 0xF0000},
                                         FlagCase{"HighBitOfTheMarks", 0, 0, 0, 0x100000, 0, 0x100000}),
                         case_name);

class ClearFlags : public ClientsTest, public testing::WithParamInterface<FlagCase> {};

TEST_P(ClearFlags, ClearsBitsAndMarks) {
    hbs_client *client = add_client(1);
    client->trust = GetParam().old_trust;
    client->flags = GetParam().old_flags;
    hbs_clear_flags(client, GetParam().t, GetParam().s);
    EXPECT_EQ(GetParam().trust, client->trust);
    EXPECT_EQ(GetParam().flags, client->flags);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ClearFlags,
    testing::Values(FlagCase{"OneOfTwoBits", 0, 0x1002, 0, 0x2, 0, 0x11000},
                    FlagCase{"ExactlyTheStoredValue", 4, 0x1002, 4, 0x1002, 0, 0},
                    FlagCase{"ExactlyTheStoredValueWhileMarked", 0, 0xF1002, 0, 0x1002, 0, 0xF0000},
                    FlagCase{"NotSet", 0, 0x1000, 0, 0x2, 0, 0x11000},
                    FlagCase{"NothingOnNothing", 0, 0, 0, 0, 0, 0},
                    FlagCase{"TrustOnly", 0xC, 0x2, 4, 0, 8, 0x10002},
                    FlagCase{"AllTrustKeepsFlags", 0xC, 0x2, 0xC, 0x2, 0, 0},
                    FlagCase{"MarksThemselves", 0, 0xF0000, 0, 0x1F0000, 0, 0},
                    FlagCase{"MarksOfALivelyClient", 0, 0xF1002, 0, 0x1F0000, 0, 0x11002}),
    case_name);

class Flags : public ClientsTest {};

TEST_F(Flags, SettingOnlineTwice_RefreshesOnlineTimeTheFirstTimeOnly_ClearingItAgain) {
    hbs_client *client = add_client(1);
    const uint32_t born = client->online_time;
    hbs_clock_advance(100);
    hbs_set_flags(client, 0, HBS_FLAG_ONLINE);
    const uint32_t set = client->online_time;
    EXPECT_GE(set, born + 100);
    EXPECT_LE(set, born + 105);
    hbs_clock_advance(100);
    hbs_set_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_REACH);
    EXPECT_EQ(set, client->online_time);
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    const uint32_t cleared = client->online_time;
    EXPECT_GE(cleared, set + 100);
    hbs_clock_advance(100);
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    EXPECT_EQ(cleared, client->online_time) << "it was off line already";
}

TEST_F(Flags, OtherBitsLeaveOnlineTime) {
    hbs_client *client = add_client(1);
    const uint32_t born = client->online_time;
    hbs_clock_advance(100);
    hbs_set_flags(client, 1, HBS_FLAG_REACH);
    hbs_clear_flags(client, 1, HBS_FLAG_REACH);
    EXPECT_EQ(born, client->online_time);
}

TEST_F(Flags, NullClientDoesNothing) {
    hbs_set_flags(nullptr, 1, 1);
    hbs_clear_flags(nullptr, 1, 1);
}

TEST_F(Flags, AddressTestsLookAtEveryByte) {
    hbs_client client{};
    EXPECT_FALSE(hbs_client_has_ipv6(&client));
    EXPECT_FALSE(hbs_client_has_ll(&client));
    client.ipv6[15] = 1;
    EXPECT_TRUE(hbs_client_has_ipv6(&client));
    EXPECT_FALSE(hbs_client_has_ll(&client));
    client.ll[0] = 0xfe;
    EXPECT_TRUE(hbs_client_has_ll(&client));
}

} // namespace clients_test
