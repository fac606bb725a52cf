// Which interface names are those of enabled extra Wi-Fi networks.
#include "gateway/hotspot.h"
#include "support/gateway.h"

namespace hotspot_test {

class Hotspot : public GatewayTest {};

TEST_F(Hotspot, NamesOfAllFourGroupsAreEnabled) {
    set("xwifi.0.ifnames", "wlan0.4 wlan1.4");
    set("xwifi.1.ifnames", "wlan0.5");
    set("xwifi.2.ifnames", "wlan0.6");
    set("xwifi.3.ifnames", "wlan0.7");
    for (const char *name : {"wlan0.4", "wlan1.4", "wlan0.5", "wlan0.6", "wlan0.7"})
        EXPECT_TRUE(hbs_is_hotspot_interface(name)) << name;
}

TEST_F(Hotspot, OtherNamesAreNot) {
    set("xwifi.0.ifnames", "wlan0.4");
    for (const char *name : {"wlan0", "wlan0.44", "lan0.4", "WLAN0.4", "l2sd0.2"})
        EXPECT_FALSE(hbs_is_hotspot_interface(name)) << name;
}

TEST_F(Hotspot, EmptyNameNeverIs) {
    EXPECT_FALSE(hbs_is_hotspot_interface(""));
    set("xwifi.0.ifnames", "wlan0.4");
    EXPECT_FALSE(hbs_is_hotspot_interface(""));
}

TEST_F(Hotspot, NothingIsEnabledWithoutSettings) {
    EXPECT_FALSE(hbs_is_hotspot_interface("wlan0.4"));
}

TEST_F(Hotspot, GroupsThatAreNotAvailableCountAsEmpty) {
    set("xwifi.0.ifnames", "wlan0.4");
    ASSERT_TRUE(hbs_is_hotspot_interface("wlan0.4"));
    fail("GWDB_XWIFI_GET_ENABLED_IFNAME", -1);
    EXPECT_FALSE(hbs_is_hotspot_interface("wlan0.4"));
}

TEST_F(Hotspot, ChangeOfTheSettingsIsSeenByTheNextLookUp) {
    set("xwifi.0.ifnames", "wlan0.4");
    ASSERT_TRUE(hbs_is_hotspot_interface("wlan0.4"));
    set("xwifi.0.ifnames", "wlan0.5");
    EXPECT_FALSE(hbs_is_hotspot_interface("wlan0.4"));
    EXPECT_TRUE(hbs_is_hotspot_interface("wlan0.5"));
}

TEST_F(Hotspot, NameOfFullLengthIsComparedWithinItsField) {
    set("xwifi.0.ifnames", "abcdefghijklmno");
    EXPECT_TRUE(hbs_is_hotspot_interface("abcdefghijklmno"));
    EXPECT_FALSE(hbs_is_hotspot_interface("abcdefghijklmn"));
}

TEST_F(Hotspot, ReadNamesCanBeAskedManyTimes) {
    set("xwifi.2.ifnames", "wlan0.4");
    static hbs_hotspot_names names;
    hbs_hotspot_read(&names);
    unset("xwifi.2.ifnames");
    EXPECT_TRUE(hbs_hotspot_has(&names, "wlan0.4"));
    hbs_hotspot_read(&names);
    EXPECT_FALSE(hbs_hotspot_has(&names, "wlan0.4"));
}

} // namespace hotspot_test
