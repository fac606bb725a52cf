// Settings: LAN-side devices, gateway settings, items by number, production data, uptime; names of
// networks' interfaces.
#include <cerrno>
#include <cstring>
#include <netif.h>
#include <time.h>

#include <db.h>
#include <gwdb.h>
#include <lsddb.h>
#include <nvm.h>
#include <proddb.h>
#include <sysuptime.h>

#include "support/gateway.h"

namespace settings_test {

lsddb_key device(const char *name) {
    lsddb_key key = {LSDDB_KEY_DEVICE, {}};
    memcpy(key.device, name, strnlen(name, sizeof key.device));
    return key;
}

lsddb_params preset() {
    return {LSDDB_RECORD_DEVICE, -1, 1, "l2sd0"};
}

std::string mac_text(const uint8_t *mac) {
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return text;
}

class LanSideDatabase : public GatewayTest {
  protected:
    int group_of(const char *name) {
        lsddb_key key = device(name);
        lsddb_params params = preset();
        return LSDDB_GetDevParams(&key, &params) == 0 ? params.group : -100;
    }
};

TEST_F(LanSideDatabase, GivesNothingBeforeARead) {
    lsddb_key key = device("1");
    lsddb_params params = preset();
    EXPECT_EQ(-1, LSDDB_GetDevParams(&key, &params));
    EXPECT_EQ(-1, params.group);
}

TEST_F(LanSideDatabase, GivesTheParametersOfADevice) {
    set("ssid.2.enabled", 0);
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    lsddb_key key = device("2");
    lsddb_params params = preset();
    ASSERT_EQ(0, LSDDB_GetDevParams(&key, &params));
    EXPECT_EQ(2, params.group);
    EXPECT_EQ(0, params.enabled);
    EXPECT_STREQ("l2sd0.3", params.bridge);
    EXPECT_EQ(LSDDB_RECORD_DEVICE, params.type);
}

TEST_F(LanSideDatabase, KnowsNoOtherDeviceTypeOrRecord) {
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    EXPECT_EQ(-100, group_of("3"));
    EXPECT_EQ(-100, group_of(""));
    lsddb_key key = device("1");
    lsddb_params params = preset();
    key.type = 2;
    EXPECT_EQ(-1, LSDDB_GetDevParams(&key, &params));
    key.type = LSDDB_KEY_DEVICE;
    params.type = 1;
    EXPECT_EQ(-1, LSDDB_GetDevParams(&key, &params));
    EXPECT_EQ(-1, LSDDB_GetDevParams(nullptr, &params));
    EXPECT_EQ(-1, LSDDB_GetDevParams(&key, nullptr));
}

TEST_F(LanSideDatabase, TakesAnyDeviceNumber) {
    for (const char *number : {"0", "17", "257", "-1"})
        set(std::string("ssid.") + number + ".group", 2);
    set("ssid.9.group", -1);
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    for (const char *number : {"0", "17", "257", "-1"})
        EXPECT_EQ(2, group_of(number)) << number;
    EXPECT_EQ(-1, group_of("9"));
}

TEST_F(LanSideDatabase, ContentsChangeOnlyWithARead) {
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    set("ssid.1.group", 2);
    EXPECT_EQ(1, group_of("1"));
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    EXPECT_EQ(2, group_of("1"));
}

TEST_F(LanSideDatabase, AFailedReadChangesNothing) {
    fail("LSDDB_Read", 6);
    EXPECT_EQ(6, LSDDB_Read(0, 1));
    EXPECT_EQ(-100, group_of("1"));
    succeed("LSDDB_Read");
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    for (auto [key, value] : {std::pair{"ssid.1.group", "one"},
                              {"ssid.1.enabled", "2"},
                              {"ssid.1.bridge", "a-name-of-sixteen"},
                              {"ssid.a-name-too-long-for-it.group", "1"}}) {
        set(key, std::string(value));
        EXPECT_EQ(EINVAL, LSDDB_Read(0, 1)) << key;
        unset(key);
        set("ssid.1.group", 1);
    }
    EXPECT_EQ(1, group_of("1"));
    fail("LSDDB_GetDevParams", -1);
    EXPECT_EQ(-100, group_of("1"));
}

TEST_F(LanSideDatabase, HasABoundAndNeedsNoDevice) {
    for (int number = 100; number < 162; number++)
        set("ssid." + std::to_string(number) + ".group", 1);
    EXPECT_EQ(0, LSDDB_Read(0, 1));
    set("ssid.200.group", 1);
    EXPECT_EQ(ENOSPC, LSDDB_Read(0, 1));
    write_values("");
    EXPECT_EQ(0, LSDDB_Read(0, 1));
    EXPECT_EQ(-100, group_of("1"));
}

struct FlapSetting {
    const char *call;
    int (*get)(uint32_t *);
    const char *key;
};

void PrintTo(const FlapSetting &setting, std::ostream *out) {
    *out << setting.key;
}

class FlapSettings : public GatewayTest, public testing::WithParamInterface<FlapSetting> {};

TEST_P(FlapSettings, ComeFromTheFile) {
    auto [call, get, key] = GetParam();
    uint32_t value = 77;
    EXPECT_NE(0, get(&value)) << "not available when the file does not say";
    EXPECT_EQ(77u, value);
    set(key, 4000000000);
    EXPECT_EQ(0, get(&value));
    EXPECT_EQ(4000000000u, value);
    set(key, std::string("soon"));
    value = 77;
    EXPECT_NE(0, get(&value));
    EXPECT_EQ(77u, value);
    set(key, 1);
    EXPECT_EQ(0, get(&value));
    EXPECT_EQ(1u, value);
    EXPECT_NE(0, get(nullptr));
    fail(call, 9);
    value = 77;
    EXPECT_EQ(9, get(&value));
    EXPECT_EQ(77u, value);
}

INSTANTIATE_TEST_SUITE_P(
    All, FlapSettings,
    testing::Values(FlapSetting{"GWDB_FLAPLISTCFG_ENABLE_GET", GWDB_FLAPLISTCFG_ENABLE_GET,
                                "flaplist.enable"},
                    FlapSetting{"GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET", GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET,
                                "flaplist.dhcp_interval"},
                    FlapSetting{"GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET", GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET,
                                "flaplist.wlan_interval"},
                    FlapSetting{"GWDB_FLAPLISTCFG_REPORT_PERIOD_GET", GWDB_FLAPLISTCFG_REPORT_PERIOD_GET,
                                "flaplist.report_period"}));

class ExtraWifi : public GatewayTest {
  protected:
    gwdb_xwifi_names names = {};
};

TEST_F(ExtraWifi, NamesComeFromTheFile) {
    set("xwifi.0.ifnames", std::string("wlan0.4 \t wlan1.4 fifteen-letters"));
    set("xwifi.3.ifnames", std::string(""));
    memset(&names, 'x', sizeof names);
    ASSERT_EQ(0, GWDB_XWIFI_GET_ENABLED_IFNAME(0, &names));
    EXPECT_STREQ("wlan0.4", names.name[0]);
    EXPECT_STREQ("wlan1.4", names.name[1]);
    EXPECT_STREQ("fifteen-letters", names.name[2]);
    for (int row = 3; row < GWDB_XWIFI_NAMES; row++)
        EXPECT_STREQ("", names.name[row]);
    ASSERT_EQ(0, GWDB_XWIFI_GET_ENABLED_IFNAME(3, &names));
    EXPECT_STREQ("", names.name[0]);
}

TEST_F(ExtraWifi, TakesAFullGroupAndNoMore) {
    std::string all;
    for (int i = 0; i < 66; i++)
        all += "interface-no-" + std::to_string(10 + i) + " ";
    set("xwifi.1.ifnames", all);
    ASSERT_EQ(0, GWDB_XWIFI_GET_ENABLED_IFNAME(1, &names));
    EXPECT_STREQ("interface-no-75", names.name[65]);
    set("xwifi.1.ifnames", all + "one");
    EXPECT_NE(0, GWDB_XWIFI_GET_ENABLED_IFNAME(1, &names));
}

TEST_F(ExtraWifi, IsNotAvailable) {
    strcpy(names.name[0], "same");
    set("xwifi.2.ifnames", std::string("a-name-of-sixteen"));
    set("xwifi.4.ifnames", std::string("x"));
    set("xwifi.1.ifnames", std::string("x"));
    for (int group : {-1, 0, 2, 4})
        EXPECT_NE(0, GWDB_XWIFI_GET_ENABLED_IFNAME(group, &names)) << group;
    EXPECT_NE(0, GWDB_XWIFI_GET_ENABLED_IFNAME(1, nullptr));
    fail("GWDB_XWIFI_GET_ENABLED_IFNAME", 12);
    EXPECT_EQ(12, GWDB_XWIFI_GET_ENABLED_IFNAME(1, &names));
    EXPECT_STREQ("same", names.name[0]);
}

class Items : public GatewayTest {
  protected:
    uint8_t mac[7] = {9, 9, 9, 9, 9, 9, 9};
};

TEST_F(Items, ArraysComeFromTheFile) {
    ASSERT_EQ(0, DB_RetrieveAccess());
    ASSERT_EQ(0, DB_GetArray(DB_ITEM_BASE_MAC, mac));
    EXPECT_EQ("00:11:22:33:44:55", mac_text(mac));
    ASSERT_EQ(0, DB_GetArray(DB_ITEM_EROUTER_MAC, mac));
    EXPECT_EQ("00:11:22:33:44:56", mac_text(mac));
    ASSERT_EQ(0, DB_GetArray(DB_ITEM_MTA_MAC, mac));
    EXPECT_EQ("00:11:22:33:44:57", mac_text(mac));
    set("db.array.70", std::string("AA:bb:00:00:00:01"));
    ASSERT_EQ(0, DB_GetArray(DB_ITEM_BASE_MAC, mac));
    EXPECT_EQ("aa:bb:00:00:00:01", mac_text(mac));
    EXPECT_EQ(9, mac[6]);
}

TEST_F(Items, ArraysThatAreNotThereLeaveTheBufferAlone) {
    for (const char *value : {"hex:00112233445", "hex:00112233445566", "hex:00112233445g", "001122334455",
                              "0:11:22:33:44:55", "00-11-22-33-44-55", ""}) {
        set("db.array.70", std::string(value));
        EXPECT_EQ(-1, DB_GetArray(70, mac)) << value;
    }
    unset("db.array.70");
    EXPECT_EQ(-1, DB_GetArray(70, mac));
    set("db.array.5", std::string("hex:001122334455"));
    EXPECT_EQ(-1, DB_GetArray(5, mac));
    EXPECT_EQ(-1, DB_GetArray(110, nullptr));
    fail("DB_GetArray", -1);
    EXPECT_EQ(-1, DB_GetArray(110, mac));
    EXPECT_EQ("09:09:09:09:09:09", mac_text(mac));
}

TEST_F(Items, BytesComeFromTheFileAndAreZeroWhenNotSet) {
    EXPECT_EQ(0, DB_GetByte(DB_ITEM_WIFI_RPC_MODE));
    EXPECT_EQ(0, NVM_GetByte(NVM_BYTE_BOARD_MODE));
    set("db.byte.72", 5);
    set("nvm.byte.60", 255);
    EXPECT_EQ(5, DB_GetByte(DB_ITEM_WIFI_RPC_MODE));
    EXPECT_EQ(255, NVM_GetByte(NVM_BYTE_BOARD_MODE));
    set("nvm.byte.60", 256);
    EXPECT_EQ(0, NVM_GetByte(NVM_BYTE_BOARD_MODE));
}

TEST_F(Items, AccessCanFail) {
    EXPECT_EQ(0, DB_RetrieveAccess());
    EXPECT_EQ(0, NVM_RetrieveAccess());
    EXPECT_EQ(0, ProductionDb_RetrieveAccess());
    for (const char *call : {"DB_RetrieveAccess", "NVM_RetrieveAccess", "ProductionDb_RetrieveAccess"})
        fail(call, -1);
    EXPECT_EQ(-1, DB_RetrieveAccess());
    EXPECT_EQ(-1, NVM_RetrieveAccess());
    EXPECT_EQ(-1, ProductionDb_RetrieveAccess());
}

TEST_F(Items, AFailureThatIsNoNumberIsMinusOne) {
    set("fail.DB_RetrieveAccess", std::string("yes"));
    EXPECT_EQ(-1, DB_RetrieveAccess());
}

TEST_F(Items, ProductionDataComesFromTheFile) {
    ASSERT_EQ(0, ProdDb_GetCmMacAddress(mac));
    EXPECT_EQ("00:11:22:33:44:58", mac_text(mac));
    set("production.cm_mac", std::string("none"));
    EXPECT_EQ(-1, ProdDb_GetCmMacAddress(mac));
    unset("production.cm_mac");
    EXPECT_EQ(-1, ProdDb_GetCmMacAddress(mac));
    EXPECT_EQ(-1, ProdDb_GetCmMacAddress(nullptr));
    set("production.cm_mac", std::string("00:00:00:00:00:01"));
    fail("ProdDb_GetCmMacAddress", -1);
    EXPECT_EQ(-1, ProdDb_GetCmMacAddress(mac));
    EXPECT_EQ("00:11:22:33:44:58", mac_text(mac));
}

class Uptime : public GatewayTest {};

TEST_F(Uptime, IsTheMachines) {
    timespec before = {};
    clock_gettime(CLOCK_BOOTTIME, &before);
    uint32_t seconds = 0;
    ASSERT_EQ(0, MAIN_getSysUpTime(&seconds));
    EXPECT_GE(seconds, static_cast<uint32_t>(before.tv_sec));
    EXPECT_LE(seconds, static_cast<uint32_t>(before.tv_sec) + 5);
}

TEST_F(Uptime, CanBeGivenAndCanFail) {
    uint32_t seconds = 0;
    set("uptime", 12345);
    ASSERT_EQ(0, MAIN_getSysUpTime(&seconds));
    EXPECT_EQ(12345u, seconds);
    set("uptime", std::string("long"));
    EXPECT_EQ(-1, MAIN_getSysUpTime(&seconds));
    unset("uptime");
    fail("MAIN_getSysUpTime", -1);
    EXPECT_EQ(-1, MAIN_getSysUpTime(&seconds));
    EXPECT_EQ(-1, MAIN_getSysUpTime(nullptr));
    EXPECT_EQ(12345u, seconds);
}

class NetworkNames : public GatewayTest {};

TEST_F(NetworkNames, FollowTheNumberAndCanFail) {
    char name[NETIF_NAME_SIZE] = "untouched";
    EXPECT_EQ(-1, NETIF_GetLanName(256, name));
    EXPECT_EQ(-1, NETIF_GetLanName(0, nullptr));
    fail("NETIF_GetLanName", -7);
    EXPECT_EQ(-7, NETIF_GetLanName(0, name));
    EXPECT_STREQ("untouched", name);
    succeed("NETIF_GetLanName");
    EXPECT_EQ(0, NETIF_GetLanName(255, name));
    EXPECT_STREQ("l2sd0.257", name);
}

} // namespace settings_test
