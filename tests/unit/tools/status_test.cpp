// What status and metrics tell: the daemon, the database's room, and who would have to go.
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

#include "support/hbsctl_daemon.h"
#include "support/query_segment.h"
#include "tools/gateway_status.h"
#include "tools/time_text.h"

namespace status_test {

using nlohmann::json;

hbs_client client_of(uint32_t since, uint32_t flags = 0, uint32_t trust = 0) {
    hbs_client client = {};
    client.online_time = since;
    client.flags = flags;
    client.trust = trust;
    return client;
}

TEST(NextDisplaced, IsTheOldestThatNothingProtects) {
    EXPECT_FALSE(next_displaced({}, {}));
    std::vector<hbs_client> all = {client_of(1, HBS_FLAG_ONLINE), client_of(2, HBS_FLAG_STIP4),
                                   client_of(3, HBS_FLAG_STIP6), client_of(4, 0, HBS_TRUST_BLACK)};
    for (hbs_client &client : all)
        client.mac[0] = 2;
    EXPECT_FALSE(next_displaced(all, {}));
    const auto next =
        next_displaced({client_of(9), client_of(5), client_of(7), client_of(1, HBS_FLAG_ONLINE)}, {});
    ASSERT_TRUE(next);
    EXPECT_EQ(next->online_time, 5u);
}

TEST(NextDisplaced, AmongEqualOnesIsTheFirst_AndNeverOneOfTheLastTime) {
    hbs_client first = client_of(5), second = client_of(5);
    hbs_client one_of_the_last_time = client_of(0x7FFFFFFF);
    one_of_the_last_time.mac[0] = 2;
    first.client_id = 1;
    second.client_id = 2;
    EXPECT_EQ(next_displaced({first, second}, {})->client_id, 1u);
    EXPECT_FALSE(next_displaced({one_of_the_last_time}, {}));
    EXPECT_EQ(next_displaced({client_of(1), client_of(0x80000000u)}, {})->online_time, 0x80000000u);
}

TEST(NextDisplaced, IsNobodyWithAStaticLeaseInTheFiles) {
    hbs_client reserved = client_of(1), other = client_of(2);
    reserved.mac[0] = other.mac[0] = 2;
    reserved.mac[5] = 9;
    const sighting lease = {sighting::static_lease, "02:00:00:00:00:09", "192.168.0.9", "file"};
    EXPECT_EQ(next_displaced({reserved, other}, {lease})->online_time, 2u);
    EXPECT_FALSE(next_displaced({reserved}, {lease}));
}

TEST(NextDisplaced, IsARecordThatNothingCanName_WhenAllOthersAreProtected) {
    hbs_client known = client_of(1, HBS_FLAG_ONLINE), nobody = client_of(9, HBS_FLAG_ONLINE);
    known.mac[0] = 2;
    nobody.client_id = 7;
    const auto next = next_displaced({known, nobody}, {});
    ASSERT_TRUE(next);
    EXPECT_EQ(next->client_id, 7u);
}

class Status : public QuerySegment {
  protected:
    fake_daemon daemon{[](const datagram &) { return answer_bytes(0); }};

    hbs_client *add(unsigned number, uint8_t network, uint32_t flags) {
        hbs_client *client = publish(number, number);
        client->nwidx = network;
        client->flags = flags;
        return client;
    }
    json status() { return json::parse(ctl({"status", "--json"}, daemon.path).out); }
};

TEST_F(Status, TellsNoCountsThatCannotBeRead) {
    EXPECT_TRUE(status()["counts"].is_null());
}

TEST_F(Status, CountsClientsByNetworkAndRoom) {
    (void)add(1, 0, HBS_FLAG_ONLINE);
    (void)add(2, 1, 0);
    (void)add(3, 1, HBS_FLAG_ONLINE);
    const json told = status();
    EXPECT_EQ(told["table"], (json{{"clients", 3}, {"online", 2}}));
    EXPECT_EQ(told["networks"][1], (json{{"network", 1}, {"clients", 2}, {"online", 1}}));
    EXPECT_EQ(told["pools"]["clients"], (json{{"used", 3}, {"size", 96}}));
    EXPECT_EQ(told["next_displaced"], "02:aa:00:00:00:02");
    EXPECT_EQ(told["running"], true);
}

TEST_F(Status, TellsTheModeThatTheDaemonIsIn) {
    EXPECT_EQ(status()["mode"], "routed");
    daemon.routed = false;
    EXPECT_EQ(status()["mode"], "bridge");
    EXPECT_NE(ctl({"status"}, daemon.path).out.find("bridge"), std::string::npos);
}

TEST_F(Status, OfADaemonThatIsGoneSaysSo) {
    daemon.stop();
    const ctl_result result = ctl({"status"}, daemon.path);
    EXPECT_EQ(result.status, exit_not_there);
    EXPECT_NE(result.out.find("not running"), std::string::npos);
    EXPECT_TRUE(status()["mode"].is_null());
    EXPECT_NE(ctl({"metrics"}, daemon.path).out.find("hostbase_up 0\n"), std::string::npos);
}

TEST_F(Status, MetricsEndAsTheFormatWants) {
    (void)add(1, 0, HBS_FLAG_ONLINE);
    const std::string text = ctl({"metrics"}, daemon.path).out;
    EXPECT_NE(text.find("hostbase_up 1\n"), std::string::npos);
    EXPECT_NE(text.find("hostbase_network_clients{network=\"0\",state=\"online\"} 1\n"), std::string::npos);
    EXPECT_NE(text.find("hostbase_pool_used{pool=\"clients\"} 1\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 6), "# EOF\n");
}

TEST(Mode, ThatNobodyTellsIsUnknownForAReason) {
    std::istringstream in;
    std::ostringstream out, err;
    const session run = {.in = in, .out = out, .err = err, .socket_path = std::string(200, 'x'), .how = {}};
    gateway_status status;
    ask_mode(run, status);
    EXPECT_FALSE(status.routed.has_value());
    EXPECT_FALSE(status.hangs);
    EXPECT_EQ(status.why_unknown, "the socket path is too long");
}

TEST(Duration, HasItsTwoLargestUnits) {
    EXPECT_EQ(duration_text(0.9), "0 s");
    EXPECT_EQ(duration_text(59), "59 s");
    EXPECT_EQ(duration_text(61), "1 min 1 s");
    EXPECT_EQ(duration_text(3 * 3600 + 59), "3 h 0 min");
    EXPECT_EQ(duration_text(26 * 3600), "1 d 2 h");
}

TEST(Times, HaveTheirZone) {
    setenv("TZ", "UTC-1", 1); // an hour east of Greenwich
    tzset();
    EXPECT_EQ(zoned_time(0), "1970-01-01T01:00:00+01:00");
    const uint8_t date[] = {0x07, 0xB2, 1, 1, 1, 0, 30, 0}, none[8] = {};
    EXPECT_EQ(zoned_date(date), "1970-01-01T01:00:30+01:00");
    EXPECT_EQ(zoned_date(none), "");
    EXPECT_EQ(date_and_age(date, 20), "1970-01-01 01:00:30 (in 10 s)");
    EXPECT_EQ(zoned_moment(30, {20, 50}), "1970-01-01T01:00:00+01:00") << "20 s before";
    EXPECT_EQ(moment_text(30, {20, 50}), "1970-01-01 01:00:00");
    EXPECT_EQ(zoned_moment(0, {20, 50}), "") << "never";
    EXPECT_EQ(zoned_moment(51, {20, 50}), "") << "still to come";
    EXPECT_EQ(age_of(0xFFFFFFFE, {20, 3}), 5) << "the clock has wrapped";
    EXPECT_EQ(date_and_age(date, 90), "1970-01-01 01:00:30 (1 min 0 s ago)");
    EXPECT_EQ(date_and_age(date, 30), "1970-01-01 01:00:30 (now)");
    EXPECT_EQ(date_and_age(none, 90), "");
}

} // namespace status_test
