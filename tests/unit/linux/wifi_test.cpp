// Stations of this machine's access points: what is told of them, and what hostapd's replies say.
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "linux_hostapd.h"
#include "linux_wifi.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace wifi_test {

linux_station station_of(uint8_t number) {
    linux_station station = {};
    station.mac[5] = number;
    return station;
}

struct LinuxWifi : testing::Test {
    unsigned first = linux_wifi_number("wlan0");
    unsigned second = linux_wifi_number("wlan1");
    linux_station a = station_of(1);
    int64_t now_ms = 1000;
    static inline bool on_lan = true;

    int next_news(uint8_t mac[6], unsigned *ssid) const {
        return linux_wifi_next_news(
            now_ms, [](const char *device) { return on_lan || strcmp(device, "wlan0") != 0; }, mac, ssid);
    }

    // What the daemon would be told now.
    std::vector<int> news() {
        std::vector<int> told;
        uint8_t mac[6];
        unsigned ssid = 0;
        while (const int direction = next_news(mac, &ssid)) {
            told.push_back(direction * static_cast<int>(ssid));
            linux_wifi_told(mac, direction > 0 ? ssid : 0);
        }
        return told;
    }
};

TEST_F(LinuxWifi, ComesAndGoes) {
    linux_wifi_here(first, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(1));
    EXPECT_THAT(news(), IsEmpty());
    linux_wifi_gone(first, a.mac, now_ms);
    EXPECT_THAT(news(), ElementsAre(-1));
    EXPECT_THAT(news(), IsEmpty());
}

TEST_F(LinuxWifi, WhoJoinsANetworkThatIsOnNoLanIsToldOnceItIsOnOne) {
    linux_station b = station_of(2);
    on_lan = false;
    linux_wifi_here(first, &a, true, false);
    linux_wifi_here(second, &b, true, false);
    EXPECT_THAT(news(), ElementsAre(2)) << "the others do not wait for it";
    on_lan = true;
    EXPECT_THAT(news(), ElementsAre(1));
    on_lan = false;
    linux_wifi_gone(first, a.mac, now_ms);
    EXPECT_THAT(news(), ElementsAre(-1));
    on_lan = true;
    linux_wifi_gone(second, b.mac, now_ms);
    EXPECT_THAT(news(), ElementsAre(-2));
}

TEST_F(LinuxWifi, WhoMovesToANetworkThatIsOnNoLanIsGone) {
    linux_wifi_here(second, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(2));
    on_lan = false;
    linux_wifi_here(first, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(-2));
    EXPECT_THAT(news(), IsEmpty());
    on_lan = true;
    EXPECT_THAT(news(), ElementsAre(1)) << "it is on one now";
}

TEST_F(LinuxWifi, AStationThatRoamedIsNotReportedGone) {
    linux_wifi_here(first, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(1));
    linux_wifi_here(second, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(2));
    linux_wifi_gone(first, a.mac, now_ms);
    EXPECT_THAT(news(), IsEmpty());
    uint32_t ssid = 0;
    EXPECT_TRUE(linux_wifi_ssid_of(a.mac, &ssid));
    EXPECT_EQ(2u, ssid);
    linux_wifi_gone(second, a.mac, now_ms);
    EXPECT_THAT(news(), ElementsAre(-2));
    EXPECT_FALSE(linux_wifi_ssid_of(a.mac, &ssid));
}

TEST_F(LinuxWifi, AStationWhoseRoamingWasMissedIsWhereItIsNew) {
    linux_wifi_here(second, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(2));
    linux_wifi_here(first, &a, false, true);
    EXPECT_THAT(news(), ElementsAre(1));
    linux_wifi_here(second, &a, false, true);
    EXPECT_THAT(news(), IsEmpty()) << "the other one still lists it";
}

// As after a start, when one access point has not noticed that the station went.
TEST_F(LinuxWifi, OfTwoThatListItTheOneThatItJoinedLaterCounts) {
    const auto listed = [this](unsigned ssid, int64_t since_ms) {
        a.since_ms = since_ms;
        a.figure[LINUX_SIGNAL] = ssid;
        linux_wifi_here(ssid, &a, false, true);
    };
    const auto signal_on = [](unsigned ssid) {
        linux_station found = {};
        return linux_wifi_station(ssid, 0, &found) ? found.figure[LINUX_SIGNAL] : 0;
    };
    listed(first, 50000);
    listed(second, 20000);
    EXPECT_THAT(news(), ElementsAre(1));
    EXPECT_EQ(first, signal_on(first)) << "the other one's figures are none of it now";
    listed(second, 50900);
    EXPECT_THAT(news(), IsEmpty()) << "they count whole seconds";
    listed(second, 60000);
    listed(first, 50100);
    EXPECT_THAT(news(), ElementsAre(2));
    EXPECT_EQ(second, signal_on(second));
    a.since_ms = 70000;
    linux_wifi_here(first, &a, true, false);
    listed(second, 60000);
    EXPECT_THAT(news(), ElementsAre(1));
    EXPECT_EQ(0u, signal_on(first)) << "not said yet";
    listed(first, 69500);
    EXPECT_EQ(first, signal_on(first));
    linux_wifi_gone(first, a.mac, now_ms);
    EXPECT_THAT(news(), ElementsAre(2)) << "the one that still lists it";
    EXPECT_EQ(0u, signal_on(second)) << "the other one's figures are none of it now";
    listed(second, 60000);
    EXPECT_EQ(second, signal_on(second));
}

TEST_F(LinuxWifi, AStationThatIsOnNoneWhileItRoamsStaysWhereItWas) {
    linux_wifi_here(first, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(1));
    linux_wifi_gone(first, a.mac, now_ms + 5000);
    now_ms += 4999;
    EXPECT_THAT(news(), IsEmpty());
    uint32_t ssid = 0;
    uint32_t count = 0;
    EXPECT_TRUE(linux_wifi_ssid_of(a.mac, &ssid));
    EXPECT_EQ(1u, ssid);
    EXPECT_TRUE(linux_wifi_count(first, &count));
    EXPECT_EQ(1u, count);
    linux_wifi_here(second, &a, true, false);
    now_ms += 5000;
    EXPECT_THAT(news(), ElementsAre(2));
    EXPECT_THAT(news(), IsEmpty());
}

TEST_F(LinuxWifi, OneThatLeavesIsGoneOnceThatHasSettled) {
    linux_wifi_here(first, &a, true, false);
    linux_wifi_here(second, &a, true, false);
    (void)news();
    linux_wifi_gone(first, a.mac, now_ms + 1000);
    linux_wifi_gone(second, a.mac, now_ms + 5000);
    linux_wifi_gone(second, a.mac, now_ms + 9000); // said twice: the first word counts
    now_ms += 4999;
    EXPECT_THAT(news(), IsEmpty());
    now_ms += 1;
    uint8_t mac[6];
    unsigned told = 0;
    EXPECT_EQ(-1, next_news(mac, &told));
    uint32_t ssid = 0;
    EXPECT_FALSE(linux_wifi_ssid_of(a.mac, &ssid)) << "not while the daemon is being told otherwise";
    EXPECT_THAT(news(), ElementsAre(-2));
    EXPECT_THAT(news(), IsEmpty());
}

TEST_F(LinuxWifi, OneThatComesBackBeforeItsLeavingWasToldHasNotLeft) {
    linux_wifi_here(first, &a, true, false);
    (void)news();
    linux_wifi_list_begin(first);
    linux_wifi_list_end(first, now_ms + 5000);
    linux_wifi_here(first, &a, true, false);
    now_ms += 10000;
    EXPECT_THAT(news(), ElementsAre(1)) << "it joined once more";
    EXPECT_THAT(news(), IsEmpty());
    linux_wifi_gone(first, a.mac, now_ms + 5000);
    EXPECT_THAT(news(), IsEmpty()) << "it settles anew";
}

TEST_F(LinuxWifi, OneThatJoinsAgainIsToldOfAndOneThatIsListedAgainIsNot) {
    linux_wifi_here(first, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(1));
    linux_wifi_here(first, &a, false, true);
    EXPECT_THAT(news(), IsEmpty());
    linux_wifi_here(first, &a, true, false);
    EXPECT_THAT(news(), ElementsAre(1));
    linux_wifi_here(first, &a, true, false);
    linux_wifi_gone(first, a.mac, now_ms + 5000);
    EXPECT_THAT(news(), IsEmpty()) << "it has left again";
    now_ms += 5000;
    EXPECT_THAT(news(), ElementsAre(-1));
}

TEST_F(LinuxWifi, OneThatCameAndLeftBeforeAnythingWasToldIsNoNews) {
    linux_wifi_here(first, &a, true, false);
    linux_wifi_gone(first, a.mac, now_ms);
    EXPECT_THAT(news(), IsEmpty());
}

TEST_F(LinuxWifi, WhoIsNotListedAnyMoreIsGone) {
    linux_station b = station_of(2);
    linux_wifi_here(first, &a, true, false);
    linux_wifi_here(first, &b, true, false);
    (void)news();
    linux_wifi_list_begin(first);
    linux_wifi_here(first, &b, false, true);
    uint32_t count = 0;
    EXPECT_TRUE(linux_wifi_count(first, &count));
    EXPECT_EQ(2u, count) << "the list is not at its end";
    linux_wifi_list_end(first, now_ms);
    EXPECT_THAT(news(), ElementsAre(-1));
    EXPECT_TRUE(linux_wifi_count(first, &count));
    EXPECT_EQ(1u, count);
}

TEST_F(LinuxWifi, MoreStationsThanPlacesAreLeftOut) {
    for (unsigned i = 0; i < LINUX_STATIONS + 20; i++) {
        linux_station each = station_of(static_cast<uint8_t>(i));
        each.mac[4] = static_cast<uint8_t>(i >> 8);
        each.mac[3] = 1;
        linux_wifi_here(first, &each, true, false);
    }
    EXPECT_EQ(LINUX_STATIONS, news().size());
}

TEST_F(LinuxWifi, NumbersOfDevices) {
    EXPECT_EQ(1u, first);
    EXPECT_EQ(2u, second);
    EXPECT_EQ(1u, linux_wifi_number("wlan0"));
    for (unsigned i = 2; i < LINUX_SSIDS; i++)
        EXPECT_EQ(i + 1, linux_wifi_number(("more" + std::to_string(i)).c_str()));
    EXPECT_EQ(0u, linux_wifi_number("one-too-many"));
    uint32_t count = 0;
    EXPECT_FALSE(linux_wifi_count(0, &count));
    EXPECT_FALSE(linux_wifi_count(17, &count));
    linux_wifi_here(0, &a, true, false);
    linux_wifi_gone(99, a.mac, now_ms);
    EXPECT_THAT(news(), IsEmpty());
}

TEST_F(LinuxWifi, NumbersOfAccessPointsThatHaveGoneAreGivenAgain) {
    linux_wifi_reserve(5, "guests");
    for (unsigned i = 3; i <= LINUX_SSIDS; i++)
        if (i != 5)
            EXPECT_EQ(i, linux_wifi_number(("more" + std::to_string(i)).c_str()));
    EXPECT_EQ(0u, linux_wifi_number("new")) << "the settings keep one for another device";
    EXPECT_EQ(5u, linux_wifi_number("guests"));
    linux_wifi_free(5);
    linux_wifi_free(second);
    EXPECT_EQ(second, linux_wifi_number("wlan1")) << "its own, when it comes back";
    linux_wifi_free(second);
    EXPECT_EQ(second, linux_wifi_number("new"));
    EXPECT_EQ(0u, linux_wifi_number("wlan1"));
}

TEST_F(LinuxWifi, TextsAndSessions) {
    char text[WLAN_TEXT_SIZE];
    EXPECT_FALSE(linux_wifi_authentication(first, text));
    linux_wifi_texts(first, "WPA-PSK SAE", "Success");
    ASSERT_TRUE(linux_wifi_authentication(first, text));
    EXPECT_STREQ("WPA-PSK SAE", text);
    ASSERT_TRUE(linux_wifi_wps_result(first, text));
    EXPECT_STREQ("Success", text);
    linux_wifi_texts(first, nullptr, nullptr);
    EXPECT_TRUE(linux_wifi_authentication(first, text) && linux_wifi_wps_result(first, text))
        << "as they were";
    linux_wifi_texts(first, nullptr, "");
    EXPECT_TRUE(linux_wifi_authentication(first, text));
    EXPECT_FALSE(linux_wifi_wps_result(first, text)) << "none";
    EXPECT_EQ(0u, linux_wifi_next_cancel());
    EXPECT_TRUE(linux_wifi_cancel(second));
    EXPECT_FALSE(linux_wifi_cancel(9));
    EXPECT_EQ(2u, linux_wifi_next_cancel());
    EXPECT_EQ(0u, linux_wifi_next_cancel());
}

TEST(LinuxHostapd, AStationsReply) {
    linux_station station;
    ASSERT_TRUE(
        linux_hostapd_station("02:00:00:00:00:07\nflags=[AUTH][ASSOC][AUTHORIZED]\nrx_rate_info=60 mcs 1\n"
                              "tx_rate_info=4333 vhtmcs 9 vhtnss 1 shortGI\n"
                              "signal=-43\nconnected_time=12\ninactive_msec=256\n",
                              &station));
    EXPECT_EQ(7, station.mac[5]);
    EXPECT_EQ(static_cast<uint32_t>(-43), station.figure[LINUX_SIGNAL]);
    EXPECT_EQ(4333u, station.figure[LINUX_TRANSMIT_RATE]);
    EXPECT_EQ(60u, station.figure[LINUX_RECEIVE_RATE]);
    EXPECT_EQ(12u, station.figure[LINUX_CONNECTED_TIME]);
    EXPECT_EQ(256u, station.figure[LINUX_INACTIVE_TIME]);
}

TEST(LinuxHostapd, Events) {
    uint8_t mac[6] = {};
    EXPECT_EQ(1, linux_hostapd_event("<3>AP-STA-CONNECTED 02:00:00:00:00:07 keyid=1", mac));
    EXPECT_EQ(7, mac[5]);
    EXPECT_EQ(-1, linux_hostapd_event("<3>AP-STA-DISCONNECTED 02:00:00:00:00:08", mac));
    EXPECT_EQ(8, mac[5]);
    for (const char *other :
         {"", "<", ">", "<3>", "<3>AP-STA-CONNECTED", "<3>AP-STA-CONNECTED ", "<3>AP-STA-CONNECTED nobody",
          "AP-STA-CONNECTED 02:00:00:00:00:07", "<3>AP-STA-POSSIBLE-PSK-MISMATCH 02:00:00:00:00:07",
          "<3>AP-STA-CONNECTED 02:00:00:00:00:07:08"})
        EXPECT_EQ(0, linux_hostapd_event(other, mac)) << other;
    EXPECT_EQ(8, mac[5]);
}

TEST(LinuxHostapd, WhoHasNotLoggedInIsNotThere) {
    EXPECT_TRUE(linux_hostapd_authorized("02:00:00:00:00:07\nflags=[AUTH][ASSOC][AUTHORIZED][WMM]\n"));
    EXPECT_FALSE(linux_hostapd_authorized("02:00:00:00:00:07\nflags=[AUTH][ASSOC]\n"));
    EXPECT_TRUE(linux_hostapd_authorized("02:00:00:00:00:07\nsignal=-43\n")) << "it does not say";
}

TEST(LinuxHostapd, Authentication) {
    char modes[WLAN_TEXT_SIZE];
    ASSERT_TRUE(linux_hostapd_authentication("bssid=02:00:00:00:00:01\nssid=home\nkey_mgmt=WPA-PSK SAE\n",
                                             modes, sizeof modes));
    EXPECT_STREQ("WPA-PSK SAE", modes);
    ASSERT_TRUE(linux_hostapd_authentication("bssid=02:00:00:00:00:01\nssid=open\n", modes, sizeof modes));
    EXPECT_STREQ("None", modes);
    ASSERT_TRUE(linux_hostapd_authentication("bssid=02:00:00:00:00:01\nkey_mgmt=\n", modes, sizeof modes));
    EXPECT_STREQ("None", modes);
    for (const char *no_settings : {"", "FAIL\n", "UNKNOWN COMMAND\n", "\xff\xfe", "key_mgmt=WPA-PSK\n",
                                    "bssid=02:00:00:00:00:01:02\nkey_mgmt=WPA-PSK\n"})
        EXPECT_FALSE(linux_hostapd_authentication(no_settings, modes, sizeof modes)) << no_settings;
}

TEST(LinuxHostapd, AuthenticationOfMoreModesThanFitIsCut) {
    const std::string all = "WPA-PSK WPA-EAP FT-PSK FT-EAP SAE FT-SAE WPA-PSK-SHA256 WPA-EAP-SHA256 ";
    char modes[WLAN_TEXT_SIZE];
    for (size_t length : {sizeof modes - 1, sizeof modes, all.size()}) {
        const std::string reply =
            "bssid=02:00:00:00:00:01\nkey_mgmt=" + all.substr(0, length) + "\nwps_state=1\n";
        ASSERT_TRUE(linux_hostapd_authentication(reply.c_str(), modes, sizeof modes));
        EXPECT_EQ(all.substr(0, sizeof modes - 1), modes);
    }
}

TEST(LinuxHostapd, WpsResult) {
    char result[WLAN_TEXT_SIZE];
    ASSERT_TRUE(
        linux_hostapd_wps_result("PBC Status: Disabled\nLast WPS result: Success\n", result, sizeof result));
    EXPECT_STREQ("Success", result);
    for (const char *without : {"FAIL\n", "UNKNOWN COMMAND\n"}) {
        EXPECT_TRUE(linux_hostapd_wps_result(without, result, sizeof result)) << without;
        EXPECT_STREQ("", result);
    }
    for (const char *garbage : {"", "\xff\xfe", "OK\n"})
        EXPECT_FALSE(linux_hostapd_wps_result(garbage, result, sizeof result)) << garbage;
}

TEST(LinuxHostapd, Garbage) {
    linux_station station;
    for (const char *reply : {"", "\n", "FAIL\n", "02:00:00:00:00\n", "02:00:00:00:00:0g\nsignal=1",
                              "02:00:00:00:00:07:08\n", "\xff\xff\n"})
        EXPECT_FALSE(linux_hostapd_station(reply, &station)) << reply;
    ASSERT_TRUE(linux_hostapd_station("02:00:00:00:00:07", &station));
    EXPECT_EQ(0u, station.figure[LINUX_SIGNAL]);
}

TEST(LinuxHostapd, Values) {
    char value[8];
    linux_hostapd_value("a=1\nab=2\nLast WPS result: None\nlong=12345678901", "ab", value, sizeof value);
    EXPECT_STREQ("2", value);
    linux_hostapd_value("Last WPS result: None\n", "Last WPS result", value, sizeof value);
    EXPECT_STREQ("None", value);
    linux_hostapd_value("long=12345678901", "long", value, sizeof value);
    EXPECT_STREQ("1234567", value) << "what does not fit is cut";
    for (const char *missing : {"b", "lon", "=", ""}) {
        linux_hostapd_value("ab=2\nlong=12345678901", missing, value, sizeof value);
        EXPECT_STREQ("", value) << missing;
    }
}

} // namespace wifi_test
