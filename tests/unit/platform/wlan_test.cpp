// The Wi-Fi manager: stations, WPS results and authentication modes.
#include <cstring>

#include <wlan.h>

#include "support/gateway.h"

namespace wlan_test {

const std::string station_one = "02:aa:00:00:00:21 1 2 3 4 5";
const std::string station_two = "02:AA:00:00:00:22 10 20 30 40 4294967295";
constexpr uint8_t mac_one[6] = {2, 0xaa, 0, 0, 0, 0x21};
constexpr uint8_t mac_two[6] = {2, 0xaa, 0, 0, 0, 0x22};
constexpr uint8_t mac_none[6] = {2, 0xaa, 0, 0, 0, 0x23};

class Wlan : public GatewayTest {
  protected:
    wlan_assoc_device device = {};
    uint32_t number = 77;
};

TEST_F(Wlan, ListsStationsInTheFilesOrder) {
    add("wifi.ssid.1.station", station_one);
    add("wifi.ssid.2.station", "02:aa:00:00:00:99 0 0 0 0 0");
    add("wifi.ssid.1.station", station_two);
    ASSERT_EQ(0, wlan_rpcConnectClient());
    ASSERT_EQ(0, wlan_getAssocDevicesNum(1, &number));
    EXPECT_EQ(2u, number);
    ASSERT_EQ(0, wlan_getAssocDevice(1, 0, &device));
    EXPECT_STREQ("02:AA:00:00:00:21", device.mac);
    for (uint32_t i = 0; i < WLAN_LINK_FIGURES; i++)
        EXPECT_EQ(i + 1, device.figure[i]);
    ASSERT_EQ(0, wlan_getAssocDevice(1, 1, &device));
    EXPECT_STREQ("02:AA:00:00:00:22", device.mac);
    EXPECT_EQ(4294967295u, device.figure[4]);
    ASSERT_EQ(0, wlan_getAssocDevice(2, 0, &device));
    EXPECT_STREQ("02:AA:00:00:00:99", device.mac);
    EXPECT_NE(0, wlan_getAssocDevice(1, 2, &device));
    EXPECT_STREQ("02:AA:00:00:00:99", device.mac);
}

TEST_F(Wlan, AnSsidWithoutStationsIsEmptyAndAnUnknownOneAnError) {
    EXPECT_EQ(0, wlan_getAssocDevicesNum(16, &number));
    EXPECT_EQ(0u, number);
    number = 77;
    EXPECT_NE(0, wlan_getAssocDevicesNum(0, &number));
    EXPECT_NE(0, wlan_getAssocDevicesNum(17, &number));
    EXPECT_EQ(77u, number);
    add("wifi.ssid.17.station", station_one);
    EXPECT_EQ(0, wlan_getAssocDevicesNum(17, &number));
    EXPECT_EQ(1u, number);
    EXPECT_NE(0, wlan_getAssocDevicesNum(1, nullptr));
    EXPECT_NE(0, wlan_getAssocDevice(17, 0, nullptr));
}

TEST_F(Wlan, AStationThatComesOrGoesIsSeenAtOnce) {
    add("wifi.ssid.1.station", station_one);
    ASSERT_EQ(0, WifiGetSSID(mac_one, &number));
    EXPECT_EQ(1u, number);
    unset("wifi.ssid.1.station");
    EXPECT_NE(0, WifiGetSSID(mac_one, &number));
    ASSERT_EQ(0, wlan_getAssocDevicesNum(1, &number));
    EXPECT_EQ(0u, number);
}

TEST_F(Wlan, ABadStationLineIsADriverError) {
    for (const char *line :
         {"", "02:aa:00:00:00:21", "02:aa:00:00:00:21 1 2 3 4", "02:aa:00:00:00:21 1 2 3 4 5 6",
          "02:aa:00:00:00 1 2 3 4 5", "02:aa:00:00:00:21 1 2 3 4 x"}) {
        set("wifi.ssid.1.station", std::string(line));
        device.mac[0] = 'x';
        EXPECT_NE(0, wlan_getAssocDevice(1, 0, &device)) << line;
        EXPECT_EQ('x', device.mac[0]);
    }
}

TEST_F(Wlan, FindsTheSsidOfAStation) {
    add("wifi.ssid.1.station", station_one);
    add("wifi.ssid.9.station", station_two);
    ASSERT_EQ(0, WifiGetSSID(mac_one, &number));
    EXPECT_EQ(1u, number);
    ASSERT_EQ(0, WifiGetSSID(mac_two, &number));
    EXPECT_EQ(9u, number);
    EXPECT_NE(0, WifiGetSSID(mac_none, &number));
    EXPECT_EQ(9u, number);
    EXPECT_NE(0, WifiGetSSID(nullptr, &number));
    EXPECT_NE(0, WifiGetSSID(mac_one, nullptr));
}

TEST_F(Wlan, GivesWpsResultAndAuthentication) {
    char text[WLAN_TEXT_SIZE] = "same";
    EXPECT_NE(0, wlan_getWpsResultStatus(1, text));
    EXPECT_NE(0, wlan_getWpaAuthenticationModes(2, text));
    set("wifi.ssid.1.wps", std::string(64, 'w'));
    EXPECT_NE(0, wlan_getWpsResultStatus(1, text));
    EXPECT_STREQ("same", text);
    EXPECT_NE(0, wlan_getWpsResultStatus(1, nullptr));
    set("wifi.ssid.1.wps", std::string(63, 'w'));
    EXPECT_EQ(0, wlan_getWpsResultStatus(1, text));
    EXPECT_EQ(std::string(63, 'w'), text);
    set("wifi.ssid.1.wps", std::string("WPS Success"));
    EXPECT_EQ(0, wlan_getWpsResultStatus(1, text));
    EXPECT_STREQ("WPS Success", text);
    set("wifi.ssid.2.auth", std::string("None"));
    EXPECT_EQ(0, wlan_getWpaAuthenticationModes(2, text));
    EXPECT_STREQ("None", text);
    EXPECT_EQ(0, wlan_getWpaAuthenticationModes(1, text));
    EXPECT_STREQ("WPA2-Personal", text);
}

TEST_F(Wlan, EveryCallCanFail) {
    add("wifi.ssid.1.station", station_one);
    set("wifi.ssid.1.wps", std::string("Success"));
    int result = 20;
    for (const char *call : {"wlan_rpcConnectClient", "wlan_getAssocDevicesNum", "wlan_getAssocDevice",
                             "wlan_getWpsResultStatus", "wlan_getWpaAuthenticationModes", "WifiGetSSID"})
        fail(call, ++result);
    char text[WLAN_TEXT_SIZE] = "same";
    EXPECT_EQ(21, wlan_rpcConnectClient());
    EXPECT_EQ(22, wlan_getAssocDevicesNum(1, &number));
    EXPECT_EQ(23, wlan_getAssocDevice(1, 0, &device));
    EXPECT_EQ(24, wlan_getWpsResultStatus(1, text));
    EXPECT_EQ(25, wlan_getWpaAuthenticationModes(1, text));
    EXPECT_EQ(26, WifiGetSSID(mac_one, &number));
    EXPECT_EQ(77u, number);
    EXPECT_STREQ("same", text);
    EXPECT_STREQ("", device.mac);
}

} // namespace wlan_test
