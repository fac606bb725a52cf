// A port of the external switch that loses link takes its clients off line.
#include <array>
#include <optional>

#include "daemon/switch_link.h"
#include "store/index.h"
#include "support/bridge.h"
#include "support/events.h"
#include "support/waiting_call.h"

namespace switch_link_test {

using States = std::array<uint32_t, 4>;

constexpr uint32_t UP =
    HBS_FLAG_ONLINE | HBS_FLAG_REACH | HBS_FLAG_REACH_2 | HBS_FLAG_DYNIP4 | HBS_FLAG_ASSOC;

std::string down_line(int port) {
    return "HOSTBASE: Got link down for external switch port " + std::to_string(port);
}

std::string offline_line(const std::string &mac) {
    return "HOSTBASE: \tforce offline device " + mac;
}

class SwitchLink : public EventTest {
  protected:
    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        write_file(BRIDGE_CPES, "");
        hbs_switch_link_init();
    }

    static void report(const States &states) { hbs_ext_switch_link_cb(states.data()); }

    // An online client on a port of the switch.
    static hbs_client *plug(int number, uint8_t port) {
        hbs_client *client = published_client(mac(number), "192.168.0." + std::to_string(number), UP);
        client->switch_port = port;
        client->lease_start_uptime = 4711;
        client->status_time[0] = 7;
        hbs_publish(client);
        return client;
    }

    static std::string mac(int number) { return "02:aa:00:00:00:" + std::to_string(number); }

    static bool online(int number) { return (seen(mac(number))->flags & HBS_FLAG_ONLINE) != 0; }

    std::vector<std::string> downs() const {
        std::vector<std::string> lines;
        for (const std::string &line : log_lines())
            if (line.find("Got link down") != std::string::npos)
                lines.push_back(line);
        return lines;
    }
};

// --- transitions ---

TEST_F(SwitchLink, EachPortActsOnceOnItsWayDown) {
    report({1, 0, 0, 1});
    EXPECT_EQ((std::vector<std::string>{down_line(2), down_line(3)}), downs());
    report({1, 0, 0, 1});
    EXPECT_EQ(2u, downs().size());
    report({0, 0, 0, 1});
    EXPECT_EQ(down_line(1), downs().back());
    report({1, 1, 1, 1});
    EXPECT_EQ(3u, downs().size());
    report({7, 0, 1, 0}); // any state but 0 is up
    EXPECT_EQ(
        (std::vector<std::string>{down_line(2), down_line(3), down_line(1), down_line(2), down_line(4)}),
        downs());
}

TEST_F(SwitchLink, PortsAreUpAtStart) {
    report({1, 1, 1, 1});
    EXPECT_TRUE(downs().empty());
    hbs_switch_link_init();
    report({0, 0, 0, 0});
    EXPECT_EQ(4u, downs().size());
    hbs_switch_link_init();
    report({0, 1, 1, 1});
    EXPECT_EQ(5u, downs().size());
}

// --- one port ---

TEST_F(SwitchLink, ClientsOfThePortGoOffLineAndNoOthers) {
    plug(11, 2);
    plug(12, 1);
    plug(13, 2);
    clear_log();
    hbs_ext_switch_link_down(2);
    for (int number : {11, 13}) {
        const auto client = seen(mac(number));
        EXPECT_EQ(HBS_FLAG_DYNIP4 | HBS_FLAG_ASSOC, client->flags & 0xFFFFu) << number;
        EXPECT_EQ(0u, client->lease_start_uptime);
        EXPECT_EQ(0, client->status_time[0]);
        EXPECT_EQ(1u, logged_count(offline_line(mac(number))));
    }
    EXPECT_EQ(UP, seen(mac(12))->flags & 0xFFFFu);
    EXPECT_EQ(4711u, seen(mac(12))->lease_start_uptime);
    EXPECT_EQ(0u, logged_count(offline_line(mac(12))));
    EXPECT_EQ(0u, logged_containing("hbs_remove_cpe_by_port"));
    expect_deletions({mac(11), mac(13)});
}

TEST_F(SwitchLink, IndexEntriesThatWereMissingAreMadeAgain) {
    hbs_client *client = plug(11, 2);
    {
        const hbs_list_hold hold;
        hbs_file_remove_if_idx_locked(client);
    }
    ASSERT_TRUE(ip_keys().empty());
    hbs_ext_switch_link_down(2);
    EXPECT_EQ(1u, ip_keys().size());
    EXPECT_EQ(1u, if_keys().size());
    expect_deletions({mac(11)});
}

TEST_F(SwitchLink, ClientThatIsOffLineAlreadyIsForcedAgain) {
    plug(11, 3);
    hbs_ext_switch_link_down(3);
    hbs_ext_switch_link_down(3);
    EXPECT_EQ(2u, logged_count(offline_line(mac(11))));
    expect_deletions({mac(11), mac(11)});
}

TEST_F(SwitchLink, PortWithoutAKnownClientIsLookedUpInTheBridge) {
    plug(11, 1);
    learn("02:cc:00:00:00:01", 4);
    write_file(BRIDGE_CPES, "-> 02:cc:00:00:00:01 l2sd0.2\n-> " + mac(11) + " l2sd0.2\n");
    report({1, 1, 1, 0});
    EXPECT_TRUE(logged("HOSTBASE: hbs_remove_cpe_by_port: port=4"));
    EXPECT_TRUE(online(11));
    expect_deletions({"02:cc:00:00:00:01"});
}

TEST_F(SwitchLink, ProtectedClientGoesOffLineButStaysInTheBridge) {
    hbs_client *client = published_client("00:11:22:33:44:57", "192.168.0.9", UP);
    client->switch_port = 1;
    plug(11, 1);
    hbs_ext_switch_link_down(1);
    EXPECT_EQ(0u, seen("00:11:22:33:44:57")->flags & HBS_FLAG_ONLINE);
    EXPECT_EQ(1u, logged_containing("Mta mac address"));
    expect_deletions({mac(11)});
}

// --- from the switch's own thread ---

TEST_F(SwitchLink, ChangeOfThePlatformsPortArrives) {
    plug(11, 2);
    set("switch.port.2", "down");
    EXPECT_TRUE(wait_until([] { return !online(11); }));
    expect_deletions({mac(11)});
    set("switch.port.2", "up");
    set("switch.port.3", "down"); // seen with it, or after it
    EXPECT_TRUE(wait_until([&] { return downs().size() == 2; }));
    EXPECT_EQ(down_line(3), downs().back());
    EXPECT_FALSE(online(11));
    set("switch.port.2", "down");
    EXPECT_TRUE(wait_until([&] { return downs().size() == 3; }));
    EXPECT_EQ(down_line(2), downs().back());
}

TEST_F(SwitchLink, ChangeWaitsForTheLock) {
    plug(11, 2);
    std::optional<WaitingCall> change;
    {
        const hbs_list_hold hold;
        change.emplace([] { report({1, 0, 1, 1}); });
        EXPECT_TRUE(change->is_waiting());
        EXPECT_TRUE(online(11));
    }
    change->join();
    EXPECT_FALSE(online(11));
    expect_deletions({mac(11)});
}

} // namespace switch_link_test
