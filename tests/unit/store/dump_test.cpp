// The whole dump, and the logging of a file.
#include <cstring>
#include <semaphore.h>
#include <string>
#include <thread>
#include <vector>

#include "store/dump.h"
#include "store/rule_index.h"
#include "support/store.h"
#include "support/waiting_call.h"

namespace dump_test {

using Lines = std::vector<std::string>;

class Dump : public StoreTest {
  protected:
    Lines dump() {
        clear_log();
        hbs_db_dump();
        return log_lines();
    }

    static std::string network_line(int number, const char *rest) {
        return "HOSTBASE: RND # 0" + std::to_string(number) + " client count: " + rest;
    }
};

constexpr const char *NO_MAP = "0  map: 00000000 00000000 00000000 00000000";
constexpr const char *BLANK = "HOSTBASE: \n";

TEST_F(Dump, EmptyDatabase_PrintsEveryHeadingWithTotalsOfZero) {
    Lines expected = {"HOSTBASE: ****** Total 0 clients ******",    BLANK,
                      "HOSTBASE: ****** Total 0 ip indices ******", BLANK,
                      "HOSTBASE: ****** Total 0 if indices ******", BLANK};
    for (int number = 1; number <= 8; number++)
        expected.push_back(network_line(number, NO_MAP));
    expected.insert(expected.end(), {BLANK, "HOSTBASE: PRIIDX map: 00000000 00000000 00000000 00000000",
                                     "HOSTBASE: ****** Total 0/0 primary indices ******", BLANK,
                                     "HOSTBASE: ****** Total 0 DHCP option ip indices ******", BLANK,
                                     "HOSTBASE: ****** Total 0/0 rule indices ******", BLANK});
    EXPECT_EQ(expected, dump());
}

TEST_F(Dump, FilledDatabase_PrintsEveryLineInOrder) {
    hbs_client *a = make(0, "192.168.0.10");
    a->adapter_type = HBS_ADAPTER_WIFI;
    strcpy(a->host, "laptop");
    a->flags = HBS_FLAG_ASSOC | HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE;
    a->hotspot = 1;
    hbs_client *b = make(3, "192.168.3.10");
    b->adapter_type = 4;
    set_ipv6(b->ipv6, "2001:db8::a");
    for (hbs_client *client : {a, b})
        hostbase_update_ip_indicies(publish(client));
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const uint32_t p[7] = {1, 2, 3, 4, 5, 6, 7};
    hbs_file_update_rule_idx(1, mac, p);

    Lines expected = {
        "HOSTBASE: CLIENT # 0001 is [02:00:00:00:00:01] on WiFi: index: 0 192.168.0.10 - no IPv6 - "
        "(no LL) - (laptop) |ASSOC|DYNIP4|ONLINE|HOTSPOT|",
        "HOSTBASE: CLIENT # 0002 is [02:00:00:00:00:02] on unknown if: index: 3 192.168.3.10 - "
        "2001:db8::a - (no LL) - |",
        "HOSTBASE: ****** Total 2 clients ******",
        BLANK,
        "HOSTBASE: IPIDX # 0001 200 1 4 192 168 0 10 ",
        "HOSTBASE: IPIDX # 0002 203 1 4 192 168 3 10 ",
        "HOSTBASE: IPIDX # 0003 203 2 16 20 1 d b8 0 0 0 0 0 0 0 0 0 0 0 a ",
        "HOSTBASE: ****** Total 3 ip indices ******",
        BLANK,
        "HOSTBASE: IFIDX # 0001  200 1 ",
        "HOSTBASE: IFIDX # 0002  203 1 ",
        "HOSTBASE: ****** Total 2 if indices ******",
        BLANK};
    for (int number = 1; number <= 8; number++)
        expected.push_back(network_line(
            number, number == 1 || number == 4 ? "1  map: 00000000 00000000 00000000 00000001" : NO_MAP));
    expected.insert(expected.end(), {BLANK, "HOSTBASE: PRIIDX # 0001 1 ",
                                     "HOSTBASE: PRIIDX map: 00000000 00000000 00000000 00000001",
                                     "HOSTBASE: ****** Total 1/1 primary indices ******", BLANK,
                                     "HOSTBASE: DHCP_OPTION_IPIDX # 0001  200 1 192 168 0 10 0 : " + pos(a),
                                     "HOSTBASE: ****** Total 1 DHCP option ip indices ******", BLANK,
                                     "HOSTBASE: RULEIDX # 0001 200 1 ",
                                     "HOSTBASE: ****** Total 1/1 rule indices ******", BLANK});
    EXPECT_EQ(expected, dump());
}

TEST_F(Dump, ClientsOfNetworks8To15CountForTheNetworkTheyFoldOnto) {
    for (uint8_t nwidx : {2, 10, 10})
        hostbase_update_ip_indicies(publish(make(nwidx)));
    (void)dump();
    EXPECT_TRUE(logged(network_line(3, "3  map: 00000000 00000000 00000000 00000007")));
}

TEST_F(Dump, MapsPrintTheHighestWordFirst) {
    std::vector<hbs_client *> clients;
    for (int i = 0; i < 34; i++) {
        clients.push_back(publish(make(0)));
        hostbase_update_ip_indicies(clients.back());
    }
    hbs_file_remove_if_idx_locked(clients[0]);
    (void)dump();
    EXPECT_TRUE(logged(network_line(1, "33  map: 00000000 00000000 00000003 fffffffe")));
    EXPECT_TRUE(logged("HOSTBASE: PRIIDX map: 00000000 00000000 00000003 fffffffe"));
}

TEST_F(Dump, LostEntriesShowAsADifferenceOfTheTotals) {
    hostbase_update_ip_indicies(publish(make(0)));
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const uint32_t p[7] = {};
    hbs_file_update_rule_idx(1, mac, p);
    for (hbs_pool pool : {hbs_pool::primary, hbs_pool::rule})
        hbs_list_unlink(pool, hbs_list_first(pool));
    (void)dump();
    EXPECT_TRUE(logged("HOSTBASE: ****** Total 0/1 primary indices ******"));
    EXPECT_TRUE(logged("HOSTBASE: ****** Total 0/1 rule indices ******"));
    hbs_index_clear();
    hbs_rule_index_clear();
}

TEST_F(Dump, FullDatabase_NumbersAll96Clients) {
    for (int i = 0; i < 96; i++)
        publish(make(0));
    (void)dump();
    EXPECT_EQ(96u, logged_containing("HOSTBASE: CLIENT # 00"));
    EXPECT_EQ(1u, logged_containing("HOSTBASE: CLIENT # 0096 is [02:00:00:00:00:60] "));
    EXPECT_TRUE(logged("HOSTBASE: ****** Total 96 clients ******"));
}

TEST_F(Dump, HoldsTheSemaphoreOnceForItsRun) {
    sem_t *semaphore = sem_open(HBS_SEMAPHORE_NAME, 0);
    ASSERT_NE(SEM_FAILED, semaphore);
    int value = -1;
    ASSERT_EQ(0, sem_trywait(semaphore));
    WaitingCall dumper([] { hbs_db_dump(); });
    EXPECT_TRUE(dumper.is_waiting());
    EXPECT_TRUE(log_lines().empty()) << "nothing is printed before the semaphore is free";
    (void)sem_post(semaphore);
    dumper.join();
    EXPECT_FALSE(log_lines().empty());
    (void)sem_getvalue(semaphore, &value);
    EXPECT_EQ(1, value);
    (void)sem_close(semaphore);
}

TEST_F(Dump, LogFile_PrintsEveryLineWithItsPath) {
    std::string path = directory() + "/file";
    write_file(path, "first\n\nlast without end");
    hbs_log_file(path.c_str());
    EXPECT_EQ((Lines{"HOSTBASE: " + path + " : first", "HOSTBASE: " + path + " : ",
                     "HOSTBASE: " + path + " : last without end"}),
              log_lines());
}

TEST_F(Dump, LogFile_PrintsLongLinesInPiecesOf255) {
    std::string path = directory() + "/file";
    write_file(path, std::string(300, 'a') + "\nb\n");
    hbs_log_file(path.c_str());
    EXPECT_EQ((Lines{"HOSTBASE: " + path + " : " + std::string(255, 'a'),
                     "HOSTBASE: " + path + " : " + std::string(45, 'a'), "HOSTBASE: " + path + " : b"}),
              log_lines());
}

TEST_F(Dump, LogFile_TakesItsLinesAsData) {
    std::string path = directory() + "/file";
    write_file(path, "%s%n$(x)\n");
    hbs_log_file(path.c_str());
    EXPECT_EQ(Lines{"HOSTBASE: " + path + " : %s%n$(x)"}, log_lines());
}

TEST_F(Dump, LogFile_ThatIsMissingPrintsNothing) {
    hbs_log_file("/var/tmp/there-is-no-such-file");
    EXPECT_TRUE(log_lines().empty());
}

class DumpUnattached : public GatewayTest {};

TEST_F(DumpUnattached, PrintsAnEmptyDatabase) {
    hbs_db_dump();
    EXPECT_TRUE(logged("HOSTBASE: ****** Total 0 clients ******"));
    EXPECT_TRUE(logged("HOSTBASE: ****** Total 0/0 rule indices ******"));
}

} // namespace dump_test
