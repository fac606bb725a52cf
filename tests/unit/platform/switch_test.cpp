// The switches: learned addresses, and link changes that reach the callback from a thread of the switch's
// own.
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

#include <extswt.h>
#include <l2switch.h>

#include "support/gateway.h"

namespace switch_test {

constexpr uint8_t mac_a[6] = {2, 0xaa, 0, 0, 0, 0x11};
constexpr uint8_t mac_b[6] = {2, 0xaa, 0, 0, 0, 0x12};

using States = std::array<uint32_t, EXTSWT_PORTS>;

std::mutex reports_mutex;
std::vector<States> &reports = *new std::vector<States>; // the library's thread outlives the test
std::thread::id reporter;

void note(const uint32_t states[EXTSWT_PORTS]) {
    std::lock_guard lock(reports_mutex);
    reports.push_back({states[0], states[1], states[2], states[3]});
    reporter = std::this_thread::get_id();
}

std::atomic<int> other_reports;

void note_other(const uint32_t *) {
    other_reports++;
}

std::vector<States> reported() {
    std::lock_guard lock(reports_mutex);
    return reports;
}

class ExternalSwitch : public GatewayTest {
  protected:
    uint16_t hit = 7;
    uint32_t port = 7;
};

TEST_F(ExternalSwitch, KnowsThePortOfALearnedMac) {
    learn("02:aa:00:00:00:11", 3);
    learn("02:AA:00:00:00:12", 9);
    ASSERT_EQ(0, extSwitchSearchMac(mac_a, &hit, &port));
    EXPECT_NE(0, hit);
    EXPECT_EQ(3u, port);
    ASSERT_EQ(0, extSwitchSearchMac(mac_b, &hit, &port));
    EXPECT_NE(0, hit);
    EXPECT_EQ(9u, port);
}

TEST_F(ExternalSwitch, AnUnknownMacIsNoHit) {
    ASSERT_EQ(0, extSwitchSearchMac(mac_a, &hit, &port));
    EXPECT_EQ(0, hit);
    EXPECT_EQ(0u, port);
}

TEST_F(ExternalSwitch, ASearchThatFailsGivesZeros) {
    learn("02:aa:00:00:00:11", 3);
    fail("extSwitchSearchMac", -1);
    EXPECT_EQ(-1, extSwitchSearchMac(mac_a, &hit, &port));
    EXPECT_EQ(0, hit);
    EXPECT_EQ(0u, port);
    succeed("extSwitchSearchMac");
    set("switch.mac.02:aa:00:00:00:11", std::string("three"));
    hit = 7;
    EXPECT_EQ(-1, extSwitchSearchMac(mac_a, &hit, &port));
    EXPECT_EQ(0, hit);
    EXPECT_EQ(0u, port);
    EXPECT_EQ(-1, extSwitchSearchMac(nullptr, &hit, &port));
    EXPECT_EQ(-1, extSwitchSearchMac(mac_a, nullptr, &port));
    EXPECT_EQ(-1, extSwitchSearchMac(mac_a, &hit, nullptr));
}

TEST_F(ExternalSwitch, ReportsEachLinkChangeOnAThreadOfItsOwn) {
    set("switch.port.4", std::string("down"));
    ASSERT_EQ(0, EXTSWT_RegisterLinkStatusCb(note));
    set("switch.port.2", std::string("down"));
    ASSERT_TRUE(wait_until([] { return !reported().empty(); }));
    EXPECT_EQ((States{1, 0, 1, 0}), reported()[0]) << "the port that was down before is none";
    EXPECT_NE(std::this_thread::get_id(), reporter);
    set("switch.port.2", std::string("up"));
    ASSERT_TRUE(wait_until([] { return reported().size() == 2; }));
    EXPECT_EQ((States{1, 1, 1, 0}), reported()[1]);
    unset("switch.port.4");
    ASSERT_TRUE(wait_until([] { return reported().size() == 3; }));
    EXPECT_EQ((States{1, 1, 1, 1}), reported()[2]);
    set("switch.port.1", std::string("up")); // as it is already: no change, nor is what it learned
    learn("02:aa:00:00:00:11", 1);
    set("switch.port.3", std::string("down"));
    ASSERT_TRUE(wait_until([] { return reported().size() > 3; }));
    EXPECT_EQ((States{1, 1, 0, 1}), reported()[3]);
}

TEST_F(ExternalSwitch, ANewCallbackReplacesTheOld) {
    ASSERT_EQ(0, EXTSWT_RegisterLinkStatusCb(note));
    ASSERT_EQ(0, EXTSWT_RegisterLinkStatusCb(note_other));
    size_t before = reported().size();
    set("switch.port.1", std::string("down"));
    ASSERT_TRUE(wait_until([] { return other_reports > 0; }));
    EXPECT_EQ(1, other_reports);
    EXPECT_EQ(before, reported().size());
}

TEST_F(ExternalSwitch, RefusesARegistration) {
    EXPECT_EQ(-1, EXTSWT_RegisterLinkStatusCb(nullptr));
    fail("EXTSWT_RegisterLinkStatusCb", -1);
    EXPECT_EQ(-1, EXTSWT_RegisterLinkStatusCb(note));
}

class LayerTwoSwitch : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        memset(&table, 0xee, sizeof table);
    }
    l2switch_table table;
};

TEST_F(LayerTwoSwitch, ListsLearnedMacsWithTheirMasks) {
    add("l2switch.mac.02:aa:00:00:00:11", "0x84");
    add("l2switch.mac.02:aa:00:00:00:12", "2");
    add("l2switch.mac.02:AA:00:00:00:11", "0x20");
    ASSERT_EQ(3, L2SWITCH_GetUcastMacs(&table, "02:aa:00:00:00:11"));
    ASSERT_EQ(3, table.count);
    EXPECT_EQ(0, memcmp(mac_a, table.entry[0].mac, 6));
    EXPECT_EQ(0x84u, table.entry[0].port_mask);
    EXPECT_EQ(0, memcmp(mac_b, table.entry[1].mac, 6));
    EXPECT_EQ(2u, table.entry[1].port_mask);
    EXPECT_EQ(0, memcmp(mac_a, table.entry[2].mac, 6));
    EXPECT_EQ(0x20u, table.entry[2].port_mask);
    EXPECT_EQ(0u, table.entry[0].age);
    EXPECT_EQ(0u, table.entry[0].flags);
}

TEST_F(LayerTwoSwitch, AnEmptyTableIsNoError) {
    ASSERT_EQ(0, L2SWITCH_GetUcastMacs(&table, "02:aa:00:00:00:11"));
    EXPECT_EQ(0, table.count);
}

TEST_F(LayerTwoSwitch, AFullTableStillHoldsTheMacThatWasAskedFor) {
    std::string text;
    char line[80];
    for (unsigned i = 0; i < 300; i++) {
        snprintf(line, sizeof line, "l2switch.mac.02:bb:00:00:%02x:%02x = 1\n", i >> 8, i & 255);
        text += line;
    }
    write_values(text + "l2switch.mac.02:aa:00:00:00:11 = 4\n");
    ASSERT_EQ(L2SWITCH_MAX_MACS, L2SWITCH_GetUcastMacs(&table, "02:AA:00:00:00:11"));
    EXPECT_EQ(L2SWITCH_MAX_MACS, table.count);
    EXPECT_EQ(0, memcmp(mac_a, table.entry[255].mac, 6));
    EXPECT_EQ(4u, table.entry[255].port_mask);
}

TEST_F(LayerTwoSwitch, LeavesTheTableAloneWhenItCannotBeAsked) {
    add("l2switch.mac.02:aa:00:00:00:11", "4");
    EXPECT_GT(0, L2SWITCH_GetUcastMacs(&table, "not a mac"));
    EXPECT_GT(0, L2SWITCH_GetUcastMacs(&table, nullptr));
    EXPECT_GT(0, L2SWITCH_GetUcastMacs(nullptr, "02:aa:00:00:00:11"));
    fail("L2SWITCH_GetUcastMacs", -3);
    EXPECT_EQ(-3, L2SWITCH_GetUcastMacs(&table, "02:aa:00:00:00:11"));
    succeed("L2SWITCH_GetUcastMacs");
    set("l2switch.mac.02:aa:00:00:00:11", std::string("many"));
    EXPECT_GT(0, L2SWITCH_GetUcastMacs(&table, "02:aa:00:00:00:11"));
    EXPECT_EQ(0xeeee, table.count);
}

} // namespace switch_test
