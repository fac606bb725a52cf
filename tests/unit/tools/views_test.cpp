// The commands that look at the published database, on a segment that the test lays out.
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <vector>

#include "support/gateway.h"
#include "support/hbsctl_daemon.h"
#include "support/query_segment.h"
#include "tools/terminal.h"

namespace views_test {

using nlohmann::json;

auto accept_all = [](const datagram &) { return answer_bytes(0); };

class Views : public QuerySegment {
  protected:
    fake_daemon daemon{accept_all};

    hbs_client *add(unsigned number, const char *host, const std::vector<uint8_t> &ipv4) {
        hbs_client *client = publish(number, number);
        strcpy(client->host, host);
        std::copy(ipv4.begin(), ipv4.end(), client->ipv4);
        client->flags = HBS_FLAG_ONLINE;
        return client;
    }
};

TEST_F(Views, ListShowsTheClientsByTheirAddress) {
    add(2, "tv", {192, 168, 0, 12});
    add(1, "laptop", {192, 168, 0, 11});
    const ctl_result result = ctl({"list"}, daemon.path);
    EXPECT_EQ(result.status, exit_ok);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "MAC                STATE   NET  IPV4          NAME    ADAPTER\n"
                          "02:aa:00:00:00:01  online  0    192.168.0.11  laptop  unknown\n"
                          "02:aa:00:00:00:02  online  0    192.168.0.12  tv      unknown\n"
                          "2 clients, 2 on line\n");
}

TEST_F(Views, ListShowsTheColumnsAndClientsThatAreWanted) {
    add(1, "laptop", {192, 168, 0, 11})->flags = 0;
    add(2, "tv", {192, 168, 0, 12});
    const ctl_result result = ctl({"list", "--online", "--columns", "name,mac"}, daemon.path);
    EXPECT_EQ(result.out, "NAME  MAC\ntv    02:aa:00:00:00:02\n1 client, 1 on line\n");
    EXPECT_EQ(ctl({"list", "--network", "7"}, daemon.path).out, "0 clients, 0 on line\n");
    EXPECT_EQ(ctl({"list", "--online", "--offline"}, daemon.path).out, ctl({"list"}, daemon.path).out);
}

TEST_F(Views, ListOfAWordThatIsNoneSuggestsOne) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> slips = {
        {{"list", "--sort", "nam"}, "did you mean 'name'?"},
        {{"list", "--columns", "mac,hots"}, "did you mean 'host'?"},
        {{"list", "--onlin"}, "did you mean '--online'?"},
        {{"lst"}, "did you mean 'list'?"},
        {{"list", "--jsn"}, "did you mean '--json'?"}};
    for (const auto &[words, text] : slips) {
        const ctl_result result = ctl(words, daemon.path);
        EXPECT_EQ(result.status, exit_usage) << words.back();
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
    }
}

// A cell that begins like a formula would be one to a program that opens the file.
TEST_F(Views, ListAsCsvQuotesAndIsNoFormula) {
    add(1, "=1+2", {192, 168, 0, 11});
    add(2, "a,\"b\"\n", {192, 168, 0, 12});
    const ctl_result result = ctl({"list", "-o", "csv", "--columns", "host,ipv4"}, daemon.path);
    EXPECT_EQ(result.out, "host,ipv4\r\n'=1+2,192.168.0.11\r\n\"a,\"\"b\"\"\\n\",192.168.0.12\r\n");
}

TEST_F(Views, ListShowsWhatIsCountedOfAClientAndWhen) {
    hbs_client *client = add(7, "laptop", {192, 168, 0, 11});
    const uint8_t date[HBS_DATE_SIZE] = {0x07, 0xea, 11, 21, 1, 2, 3};
    std::copy(std::begin(date), std::end(date), client->status_time);
    std::copy(std::begin(date), std::end(date), client->lease_v6_end);
    client->join_req_count = 3;
    client->flap_count = 2;
    client->client_id = 9;
    const ctl_result result = ctl({"list", "-o", "csv", "--columns",
                                   "maker,state,since,for,joins,flaps,id,first-lease,lease-end,lease6-end"},
                                  daemon.path);
    EXPECT_EQ(result.out, "maker,state,since,for,joins,flaps,id,first-lease,lease-end,lease6-end\r\n"
                          "random,online,,,3,2,9,2026-11-21 01:02:03,,2026-11-21 01:02:03\r\n");
}

TEST_F(Views, JsonShowsNoCharacterThatMovesOrHidesText) {
    add(1, "a\u202Eb\x7f\U000E0041", {192, 168, 0, 11});
    const ctl_result result = ctl({"list", "-o", "json"}, daemon.path);
    EXPECT_EQ(json::parse(result.out)["clients"][0]["host"], "a\u202Eb\x7f\U000E0041");
    EXPECT_NE(result.out.find("a\\u202eb\\u007f\\udb40\\udc41"), std::string::npos) << result.out;
}

TEST_F(Views, WaitEndsWhenTheClientIsSo) {
    add(1, "laptop", {192, 168, 0, 11});
    EXPECT_EQ(ctl({"wait", "laptop"}, daemon.path).out, "laptop is there\n");
    EXPECT_EQ(ctl({"wait", "192.168.0.11", "--online"}, daemon.path).out, "192.168.0.11 is on line\n");
    const ctl_result late = ctl({"wait", "laptop", "--offline", "--timeout", "0"}, daemon.path);
    EXPECT_EQ(late.status, exit_no_answer);
    EXPECT_EQ(late.err, "hbsctl: laptop is not off line in time\n");
    EXPECT_EQ(ctl({"wait", "tv", "--timeout", "0"}, daemon.path).status, exit_no_answer);
}

TEST_F(Views, WaitDoesNotBelieveWhatADaemonLeftBehind) {
    add(1, "laptop", {192, 168, 0, 11});
    daemon.stop();
    const ctl_result result = ctl({"wait", "laptop", "--timeout", "0"}, daemon.path);
    EXPECT_EQ(result.status, exit_not_there);
    EXPECT_EQ(result.err, "hbsctl: gw_hostbase is not running\n");
}

TEST_F(Views, ListAsJsonIsNothingButADocument) {
    add(1,
        "K\xfc"
        "che\033[2J",
        {192, 168, 0, 11});
    const ctl_result result = ctl({"list", "--json"}, daemon.path);
    const json parsed = json::parse(result.out);
    ASSERT_EQ(parsed["clients"].size(), 1u);
    EXPECT_EQ(parsed["clients"][0]["mac"], "02:aa:00:00:00:01");
    EXPECT_EQ(parsed["clients"][0]["host"], "K\uFFFDche\033[2J");
    EXPECT_EQ(result.err, "");
}

TEST_F(Views, TheJsonOptionMayStandAnywhere) {
    EXPECT_EQ(ctl({"--json", "list"}, daemon.path).out, ctl({"list", "--json"}, daemon.path).out);
}

TEST_F(Views, WhenTheDaemonIsGone_ShowsWhatItLeftAndSaysSo) {
    add(1, "laptop", {192, 168, 0, 11});
    const std::vector<std::pair<std::vector<std::string>, std::string>> views = {
        {{"list"}, "laptop"},           {{"list", "--json"}, "laptop"}, {{"show", "laptop"}, "laptop"},
        {{"indices"}, "Addresses (0)"}, {{"indices", "--json"}, "{"},   {{"rules"}, "0 rules"},
        {{"rules", "--json"}, "{"}};
    for (const auto &[view, text] : views)
        EXPECT_EQ(ctl(view, daemon.path).status, exit_ok) << view[0];
    daemon.stop();
    for (const auto &[view, text] : views) {
        const ctl_result result = ctl(view, daemon.path);
        EXPECT_EQ(result.status, exit_not_there) << view[0];
        EXPECT_NE(result.out.find(text), std::string::npos) << view[0];
        EXPECT_EQ(result.err, "hbsctl: gw_hostbase is not running: this is what it left behind\n") << view[0];
    }
}

TEST_F(Views, WithoutASegmentEveryViewSaysSo) {
    remove_segment();
    const std::string text =
        "the client database is not there: gw_hostbase has not run since the system started";
    for (const char *view : {"list", "indices", "rules", "watch"}) {
        const ctl_result result = ctl({view}, daemon.path);
        EXPECT_EQ(result.status, exit_not_there) << view;
        EXPECT_EQ(result.err, "hbsctl: " + text + "\n") << view;
        EXPECT_EQ(result.out, "") << view;
    }
    const ctl_result result = ctl({"show", "laptop", "--json"}, daemon.path);
    EXPECT_EQ(json::parse(result.out), (json{{"error", text}, {"status", 3}}));
}

TEST_F(Views, WhenTheDatabaseStaysLocked_EndsWithFour) {
    ASSERT_EQ(sem_trywait(semaphore), 0);
    EXPECT_EQ(ctl({"list"}, daemon.path).status, exit_no_answer);
}

TEST_F(Views, ShowFindsByMacAddressAndName) {
    hbs_client *client = add(1, "laptop", {192, 168, 0, 11});
    memset(client->ipv6, 0xfd, 16);
    memset(client->ll, 0xfe, 16);
    strcpy(client->device_name, "Anna");
    for (const char *key :
         {"02:aa:00:00:00:01", "2-AA-0-0-0-1", "192.168.0.11", "laptop", "LAPTOP", "anna",
          "fdfd:fdfd:fdfd:fdfd:fdfd:fdfd:fdfd:fdfd", "fefe:fefe:fefe:fefe:fefe:fefe:fefe:fefe"}) {
        const ctl_result result = ctl({"show", key, "--json"}, daemon.path);
        EXPECT_EQ(result.status, exit_ok) << key;
        EXPECT_EQ(json::parse(result.out)["clients"].size(), 1u) << key;
    }
}

TEST_F(Views, ShowOfNobodyEndsWithOne) {
    add(1, "", {192, 168, 0, 11});
    for (const char *key : {"02:aa:00:00:00:02", "192.168.0.12", "tv", ""})
        EXPECT_EQ(ctl({"show", key}, daemon.path).status, exit_negative) << key;
    EXPECT_EQ(ctl({"show", "x\033[2J"}, daemon.path).err,
              "hbsctl: no client has the MAC, address or name 'x\\x1b[2J'\n");
}

// All zero is how a record says that it has none.
TEST_F(Views, ShowOfAZeroAddressFindsNobody) {
    hbs_client *client = add(1, "by address only", {0, 0, 0, 0});
    memset(client->mac, 0, sizeof client->mac);
    for (const char *key : {"0.0.0.0", "::", "00:00:00:00:00:00"})
        EXPECT_EQ(ctl({"show", key}, daemon.path).status, exit_negative) << key;
}

TEST_F(Views, IndicesAndRulesShowTheirLists) {
    hbs_client *client = add(1, "laptop", {192, 168, 0, 11});
    db->ip_pool[0] = {0, 0, 7, {200, 1, 4, 192, 168, 0, 11}, client->dbpos};
    append(&db->ip_index, &db->ip_pool[0]);
    db->rule_pool[0] = {0, 0, 2, {200, 1}, {2, 0xaa, 0, 0, 0, 1}, 1, 0, {0x7f, 1, 2, 0, 0, 0, 0}};
    append(&db->rule_index, &db->rule_pool[0]);
    const ctl_result indices = ctl({"indices"}, daemon.path);
    EXPECT_NE(indices.out.find("Addresses (1)\nNET  ADDRESS       CLIENT             NAME\n"
                               "0    192.168.0.11  02:aa:00:00:00:01  laptop\n"),
              std::string::npos)
        << indices.out;
    EXPECT_EQ(json::parse(ctl({"indices", "--json"}, daemon.path).out)["ip"].size(), 1u);
    EXPECT_NE(ctl({"rules"}, daemon.path).out.find("1         white  02:aa:00:00:00:01  7f 1 2"),
              std::string::npos);
    EXPECT_EQ(json::parse(ctl({"rules", "--json"}, daemon.path).out)["rules"].size(), 1u);
}

TEST_F(Views, OfAnEmptyDatabaseHaveNoTables) {
    EXPECT_EQ(ctl({"list"}, daemon.path).out, "0 clients, 0 on line\n");
    EXPECT_EQ(ctl({"rules"}, daemon.path).out, "0 rules\n");
    EXPECT_EQ(ctl({"list", "--json"}, daemon.path).out, "{\n  \"clients\": []\n}\n");
}

TEST_F(Views, AuditAsksTheKernelItself) {
    EXPECT_EQ(ctl({"audit"}, daemon.path).out, "no differences\n");
    add(1, "laptop", {192, 168, 0, 11})->flags = HBS_FLAG_REACH;
    const ctl_result result = ctl({"audit"}, daemon.path);
    EXPECT_EQ(result.status, exit_negative);
    EXPECT_EQ(result.out,
              "the client 02:aa:00:00:00:01 is reachable (192.168.0.11), but the kernel has no such "
              "neighbour\n");
    const json parsed = json::parse(ctl({"audit", "--json"}, daemon.path).out);
    ASSERT_EQ(parsed["differences"].size(), 1u);
    EXPECT_EQ(parsed["differences"][0]["known_to"], "clients");
    EXPECT_EQ(parsed["differences"][0]["mac"], "02:aa:00:00:00:01");
}

TEST_F(Views, AuditNeedsNoOtherProgram) {
    const std::string path = getenv("PATH");
    setenv("PATH", "/nowhere", 1);
    const ctl_result result = ctl({"audit"}, daemon.path);
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(result.out, "no differences\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(Views, AuditThatCannotAskTheKernelSaysSo) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const ctl_result result = ctl({"audit"}, daemon.path);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(result.status, exit_failed);
    EXPECT_EQ(result.err, "hbsctl: cannot ask the kernel for its neighbours: Too many open files\n");
}

TEST_F(Views, CommentKeepsWhatIsNotGiven) {
    hbs_client *client = add(1, "laptop", {192, 168, 0, 11});
    strcpy(client->comment, "old");
    const ip_address address = *parse_ip("192.168.0.11");
    (void)ctl({"comment", "laptop", "new"}, daemon.path);
    (void)ctl({"comment", "02:aa:00:00:00:01", "--host", "renamed"}, daemon.path);
    (void)ctl({"comment", "192.168.0.11", ""}, daemon.path);
    daemon.stop();
    ASSERT_EQ(daemon.received.size(), 3u);
    EXPECT_EQ(daemon.received[0], request_comment_host(address, "new", "laptop"));
    EXPECT_EQ(daemon.received[1], request_comment_host(address, "old", "renamed"));
    EXPECT_EQ(daemon.received[2], request_comment_host(address, "", "laptop"));
}

TEST_F(Views, WhatTheDaemonWouldAnswerForAnUnknownClientIsNotAsked) {
    add(1, "twin", {192, 168, 0, 11});
    add(2, "twin", {192, 168, 0, 12});
    EXPECT_EQ(ctl({"comment", "192.168.0.99", "x"}, daemon.path).status, exit_negative);
    EXPECT_EQ(ctl({"comment", "twin", "x"}, daemon.path).status, exit_negative);
    EXPECT_EQ(ctl({"trust", "clear", "site", "02:aa:00:00:00:09"}, daemon.path).status, exit_negative);
    EXPECT_EQ(ctl({"rule", "set", "white", "02:aa:00:00:00:09", "1,2,3"}, daemon.path).status, exit_negative);
    EXPECT_EQ(ctl({"rule", "clear", "white", "twin", "1,2,3", "--force"}, daemon.path).status, exit_negative);
    daemon.stop();
    EXPECT_TRUE(daemon.received.empty());
}

TEST_F(Views, WithForceAnUnknownClientIsSentUnderItsMacOrAddress) {
    EXPECT_EQ(ctl({"comment", "192.168.0.99", "x", "--force"}, daemon.path).status, exit_negative);
    EXPECT_EQ(ctl({"trust", "clear", "site", "02:aa:00:00:00:09", "--force"}, daemon.path).status,
              exit_negative);
    EXPECT_EQ(ctl({"rule", "set", "white", "02:aa:00:00:00:09", "1,2,3", "--force"}, daemon.path).status,
              exit_negative);
    daemon.stop();
    ASSERT_EQ(daemon.received.size(), 3u);
    EXPECT_EQ(daemon.received[0], request_comment_host(*parse_ip("192.168.0.99"), "x", ""));
}

TEST_F(Views, ANameThatIsNearlyRightIsSuggested) {
    add(1, "laptop", {192, 168, 0, 11});
    add(2, "tv", {192, 168, 0, 12});
    EXPECT_EQ(ctl({"show", "labtop"}, daemon.path).err,
              "hbsctl: no client has the MAC, address or name 'labtop': did you mean 'laptop'?\n");
}

TEST(Drawing, OfAPipeHasNoWidthAndNoColour) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const drawing how = drawing_of(ends[1]);
    EXPECT_EQ(how.width, 0);
    EXPECT_FALSE(how.colour);
    close(ends[0]);
    close(ends[1]);
}

TEST(Drawing, OfATerminalHasItsWidthAndHeedsNoColor) {
    int master = -1, slave = -1;
    winsize window = {10, 77, 0, 0};
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &window), 0);
    unsetenv("NO_COLOR");
    EXPECT_EQ(drawing_of(slave).width, 77);
    EXPECT_TRUE(drawing_of(slave).colour);
    setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(drawing_of(slave).colour);
    close(master);
    close(slave);
}

} // namespace views_test
