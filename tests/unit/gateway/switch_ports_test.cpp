// On which port, and so through which adapter, a MAC address was learned.
#include <string>

#include <hbs_db.h>

#include "gateway/switch_ports.h"
#include "support/gateway.h"

namespace switch_ports_test {

constexpr uint8_t MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x31};
const std::string MAC_TEXT = "02:aa:00:00:00:31";
const std::string MASK_KEY = "l2switch.mac." + MAC_TEXT;

class SwitchPorts : public GatewayTest {
  protected:
    uint8_t adapter_under(const std::string &mask) {
        set(MASK_KEY, mask);
        return hbs_adapter_from_l2switch(MAC);
    }
};

// --- external switch ---

TEST_F(SwitchPorts, PortOfALearnedMac) {
    learn(MAC_TEXT, 3);
    EXPECT_EQ(3u, hbs_ext_switch_port_of(MAC));
}

TEST_F(SwitchPorts, PortIsZeroForAMacThatIsNotLearned) {
    EXPECT_EQ(0u, hbs_ext_switch_port_of(MAC));
}

TEST_F(SwitchPorts, PortIsZeroWhenTheSwitchCannotBeAsked) {
    learn(MAC_TEXT, 3);
    fail("extSwitchSearchMac", -1);
    EXPECT_EQ(0u, hbs_ext_switch_port_of(MAC));
    EXPECT_EQ(0, decide_if_by_ExtSwPort(MAC));
}

TEST_F(SwitchPorts, PortsOneToFourDecideForTheExternalSwitch) {
    for (unsigned port = 1; port <= 4; ++port) {
        learn(MAC_TEXT, port);
        EXPECT_EQ(1, decide_if_by_ExtSwPort(MAC)) << port;
        EXPECT_TRUE(
            logged("HOSTBASE: decide_if_by_ExtSwPort - if:1, swPort:" + std::to_string(port) + ", hit:1"));
    }
}

TEST_F(SwitchPorts, HigherPortDecidesAgainstTheExternalSwitch) {
    learn(MAC_TEXT, 5);
    EXPECT_EQ(0, decide_if_by_ExtSwPort(MAC));
    EXPECT_TRUE(logged("HOSTBASE: decide_if_by_ExtSwPort - if:0, swPort:5, hit:1"));
}

TEST_F(SwitchPorts, MacThatIsNotLearnedDecidesAgainstTheExternalSwitch) {
    EXPECT_EQ(0, decide_if_by_ExtSwPort(MAC));
    EXPECT_TRUE(logged("HOSTBASE: decide_if_by_ExtSwPort - if:0, swPort:0, hit:0"));
}

TEST_F(SwitchPorts, MissingMacDecidesForTheExternalSwitchSilently) {
    EXPECT_EQ(1, decide_if_by_ExtSwPort(nullptr));
    EXPECT_EQ(0u, logged_containing("decide_if_by_ExtSwPort"));
    EXPECT_EQ(0u, hbs_ext_switch_port_of(nullptr));
}

// --- L2 switch ---

struct MaskCase {
    const char *mask;
    uint8_t adapter;
};

class SwitchPortMask : public SwitchPorts, public testing::WithParamInterface<MaskCase> {};

TEST_P(SwitchPortMask, GivesItsAdapter) {
    EXPECT_EQ(GetParam().adapter, adapter_under(GetParam().mask));
    EXPECT_EQ(0u, logged_containing("mac is on"));
}

INSTANTIATE_TEST_SUITE_P(
    Masks, SwitchPortMask,
    testing::Values(MaskCase{"0x01", HBS_ADAPTER_WIFI}, MaskCase{"0x20", HBS_ADAPTER_WIFI},
                    MaskCase{"0x40", HBS_ADAPTER_WIFI}, MaskCase{"0x02", HBS_ADAPTER_MOCA},
                    MaskCase{"0x08", HBS_ADAPTER_MOCA}, MaskCase{"0x04", HBS_ADAPTER_ETHERNET},
                    // The host processor's port beside another port does not count.
                    MaskCase{"0x81", HBS_ADAPTER_WIFI}, MaskCase{"0xa0", HBS_ADAPTER_WIFI},
                    MaskCase{"0xc0", HBS_ADAPTER_WIFI}, MaskCase{"0x82", HBS_ADAPTER_MOCA},
                    MaskCase{"0x88", HBS_ADAPTER_MOCA}, MaskCase{"0x84", HBS_ADAPTER_ETHERNET}),
    [](const auto &test) { return std::string("Mask") + test.param.mask; });

struct OddMaskCase {
    const char *mask;
    const char *printed;
};

class SwitchPortOddMask : public SwitchPorts, public testing::WithParamInterface<OddMaskCase> {};

TEST_P(SwitchPortOddMask, IsLoggedAsReadAndGivesNoAdapter) {
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, adapter_under(GetParam().mask));
    EXPECT_TRUE(
        logged(std::string("HOSTBASE: mac is on multiple ports in l2switch : ") + GetParam().printed));
}

INSTANTIATE_TEST_SUITE_P(Masks, SwitchPortOddMask,
                         testing::Values(OddMaskCase{"0x03", "03"}, OddMaskCase{"0x10", "10"},
                                         OddMaskCase{"0x60", "60"}, OddMaskCase{"0x86", "86"},
                                         OddMaskCase{"0x90", "90"}, OddMaskCase{"0xe0", "e0"},
                                         OddMaskCase{"0x00", "00"}, OddMaskCase{"0x100", "100"}),
                         [](const auto &test) { return std::string("Mask") + test.param.mask; });

TEST_F(SwitchPorts, HostPortAloneIsIgnored) {
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, adapter_under("0x80"));
    EXPECT_TRUE(logged("HOSTBASE: mac is on learnt on ARM port - ignore : 02:aa:00:00:00:31"));
}

TEST_F(SwitchPorts, HostPortAloneLeavesTheResultOfAnEarlierEntry) {
    set(MASK_KEY, "0x04");
    add(MASK_KEY, "0x80");
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, hbs_adapter_from_l2switch(MAC));
}

TEST_F(SwitchPorts, OddMaskLeavesTheResultOfAnEarlierEntry) {
    set(MASK_KEY, "0x02");
    add(MASK_KEY, "0x03");
    EXPECT_EQ(HBS_ADAPTER_MOCA, hbs_adapter_from_l2switch(MAC));
}

TEST_F(SwitchPorts, LastMatchingEntryDecides) {
    set(MASK_KEY, "0x04");
    add(MASK_KEY, "0x08");
    add("l2switch.mac.02:aa:00:00:00:32", "0x01");
    EXPECT_EQ(HBS_ADAPTER_MOCA, hbs_adapter_from_l2switch(MAC));
}

TEST_F(SwitchPorts, Board24TakesItsCombinedMaskAsWifi) {
    set("nvm.byte.60", 24);
    EXPECT_EQ(HBS_ADAPTER_WIFI, adapter_under("0xe0"));
    EXPECT_EQ(HBS_ADAPTER_WIFI, adapter_under("0xc0"));
    EXPECT_EQ(HBS_ADAPTER_WIFI, adapter_under("0xa0"));
    EXPECT_EQ(0u, logged_containing("multiple ports"));
}

TEST_F(SwitchPorts, Board24StillRefusesOtherCombinations) {
    set("nvm.byte.60", 24);
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, adapter_under("0x60"));
    EXPECT_TRUE(logged("HOSTBASE: mac is on multiple ports in l2switch : 60"));
}

TEST_F(SwitchPorts, OtherBoardLogsTheCombinedMask) {
    set("nvm.byte.60", 23);
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, adapter_under("0xe0"));
    EXPECT_TRUE(logged("HOSTBASE: mac is on multiple ports in l2switch : e0"));
}

TEST_F(SwitchPorts, MacThatIsInNoEntryHasNoAdapter) {
    set("l2switch.mac.02:aa:00:00:00:32", "0x04");
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, hbs_adapter_from_l2switch(MAC));
}

TEST_F(SwitchPorts, L2SwitchThatCannotBeAskedGivesNoAdapter) {
    set(MASK_KEY, "0x04");
    fail("L2SWITCH_GetUcastMacs", -2);
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, hbs_adapter_from_l2switch(MAC));
}

TEST_F(SwitchPorts, MissingMacIsEthernet) {
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, hbs_adapter_from_l2switch(nullptr));
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, hbs_adapter_of(nullptr));
}

// --- decision ---

TEST_F(SwitchPorts, ExternalSwitchDecidesBeforeTheL2Switch) {
    set(MASK_KEY, "0x01");
    learn(MAC_TEXT, 2);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, hbs_adapter_of(MAC));
}

TEST_F(SwitchPorts, L2SwitchDecidesWhenTheExternalSwitchHasNotLearnedTheMac) {
    set(MASK_KEY, "0x01");
    EXPECT_EQ(HBS_ADAPTER_WIFI, hbs_adapter_of(MAC));
    set(MASK_KEY, "0x02");
    EXPECT_EQ(HBS_ADAPTER_MOCA, hbs_adapter_of(MAC));
}

TEST_F(SwitchPorts, MacThatNeitherSwitchKnowsHasNoAdapter) {
    EXPECT_EQ(HBS_ADAPTER_UNKNOWN, hbs_adapter_of(MAC));
}

} // namespace switch_ports_test
