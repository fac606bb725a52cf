// Presence by traffic: nothing of it on a gateway, all of it where the platform says so.
#include <gmock/gmock.h>

#include "events/presence.h"
#include "support/presence.h"

namespace presence_test {

class PresenceByTraffic : public PresenceTest {
  protected:
    void SetUp() override {
        PresenceTest::SetUp();
        set("presence.by_traffic", 1);
    }
    static hbs_client *reach(const char *mac, const std::string &address) {
        return hbs_handle_neigh_reachable(mac_of(mac).data(), LOOPBACK, AF_INET, ipv4_of(address).data());
    }
    static hbs_client *fail(const std::string &address) {
        return hbs_handle_neigh_gone(nullptr, LOOPBACK, AF_INET, ipv4_of(address).data());
    }
    static bool is_online(const hbs_client *client) { return (client->flags & HBS_FLAG_ONLINE) != 0; }
    void forget(const char *mac) { set(std::string("switch.mac.") + mac, "none"); }
};

TEST_F(PresenceByTraffic, AnAnswerAloneBeginsIt) {
    EXPECT_TRUE(is_online(reach(MAC_A, "192.168.0.20")));
    EXPECT_NE(0u, published(MAC_A).flags & HBS_FLAG_ONLINE);
}

TEST_F(PresenceByTraffic, OffAsOnAGateway_NeitherBeginsNorEndsIt) {
    set("presence.by_traffic", 0);
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    EXPECT_FALSE(is_online(client));
    hbs_set_flags(client, 0, HBS_FLAG_ONLINE | HBS_FLAG_DYNIP4);
    write_values("presence.by_traffic = 0\nnetwork.1.ifname = lo\nnetwork.1.ipv4 = 192.168.0.1/24\n");
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client));
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    hbs_presence_heard(mac_of(MAC_A).data());
    EXPECT_FALSE(is_online(client));
}

TEST_F(PresenceByTraffic, NoAnswerAndNoTrafficEndsIt) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    (void)fail("192.168.0.20");
    EXPECT_TRUE(is_online(client)) << "a switch still has it";
    write_values("presence.by_traffic = 1\n");
    (void)fail("192.168.0.20");
    EXPECT_FALSE(is_online(client));
    EXPECT_EQ(0u, client->flags & (HBS_FLAG_REACH | HBS_FLAG_REACH_2));
    EXPECT_EQ(0u, published(MAC_A).flags & HBS_FLAG_ONLINE);
}

TEST_F(PresenceByTraffic, AnAssociatedStationSleeps) {
    hbs_client *client = reach(MAC_WIFI, "192.168.0.21");
    hbs_set_flags(client, 0, HBS_FLAG_ASSOC);
    write_values("presence.by_traffic = 1\n");
    (void)fail("192.168.0.21");
    EXPECT_TRUE(is_online(client));
}

TEST_F(PresenceByTraffic, AFreshEntryOfTheForwardingTableBeginsIt) {
    hbs_client *client = reach(MAC_A, "192.168.0.20");
    hbs_clear_flags(client, 0, HBS_FLAG_ONLINE);
    hbs_presence_heard(mac_of(MAC_A).data());
    EXPECT_FALSE(is_online(client)) << "no address is known to be its own yet";
    hbs_set_flags(client, 0, HBS_FLAG_DYNIP4);
    hbs_presence_heard(mac_of(MAC_A).data());
    EXPECT_TRUE(is_online(client));
    EXPECT_NE(0u, published(MAC_A).flags & HBS_FLAG_ONLINE);
    hbs_presence_heard(mac_of(MAC_UNKNOWN).data());
    EXPECT_EQ(1u, working_clients());
}

} // namespace presence_test
