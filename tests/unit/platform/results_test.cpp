// What a call of the gateway writes counts, whatever number it returns: the libraries of gateways differ in
// that. The calls here stand in for the host's.
#include <cstring>

#include <db.h>
#include <extswt.h>
#include <gwdb.h>
#include <proddb.h>

#include "gateway/docsis_bridge.h"
#include "gateway/hotspot.h"
#include "gateway/own_macs.h"
#include "gateway/switch_ports.h"
#include "support/bridge.h"
#include "support/events.h"

namespace {

int result; // of every call
bool writes;

int give(void *to, const void *from, size_t size) {
    if (writes)
        memcpy(to, from, size);
    return result;
}

int give_mac(uint8_t *to, uint8_t last) {
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, last};
    return give(to, mac, sizeof mac);
}

const std::string STATION = "02:aa:00:00:00:21";
constexpr int RESULTS[] = {0, 1, 6, -1};

} // namespace

int DB_RetrieveAccess() {
    return result;
}
int DB_GetArray(int item, uint8_t *buffer) {
    const uint8_t last = item == DB_ITEM_BASE_MAC ? 0x55 : item == DB_ITEM_EROUTER_MAC ? 0x70 : 0x71;
    return give_mac(buffer, last);
}
uint8_t DB_GetByte(int) {
    return 0;
}
int ProductionDb_RetrieveAccess() {
    return 0;
}
int ProdDb_GetCmMacAddress(uint8_t mac[6]) {
    return give_mac(mac, 0x72);
}
int EXTSWT_RegisterLinkStatusCb(extswt_link_cb) {
    return 0;
}
int extSwitchSearchMac(const uint8_t *, uint16_t *hit, uint32_t *port) {
    const uint16_t found = 1;
    const uint32_t where = 3;
    (void)give(hit, &found, sizeof found);
    return give(port, &where, sizeof where);
}
int GWDB_XWIFI_GET_ENABLED_IFNAME(int group, gwdb_xwifi_names *names) {
    gwdb_xwifi_names enabled{};
    if (group == 2)
        strcpy(enabled.name[0], "wlan0.4");
    return give(names, &enabled, sizeof enabled);
}
int GWDB_FLAPLISTCFG_ENABLE_GET(uint32_t *) {
    return -1;
}
int GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET(uint32_t *) {
    return -1;
}
int GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET(uint32_t *) {
    return -1;
}
int GWDB_FLAPLISTCFG_REPORT_PERIOD_GET(uint32_t *) {
    return -1;
}

namespace {

class PlatformResults : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_internal_mac_low = hbs_internal_mac_high = 0;
    }
};

TEST_F(PlatformResults, WhatIsWrittenCountsWhateverIsReturned) {
    writes = true;
    for (const int number : RESULTS) {
        SCOPED_TRACE(number);
        result = number;
        clear_log();
        hbs_internal_mac_low = hbs_internal_mac_high = 0;
        hostbase_set_internal_mac_range();
        EXPECT_EQ(0x001122334453u, hbs_internal_mac_low);
        EXPECT_EQ(0x001122334463u, hbs_internal_mac_high);
        for (const char *own : {"00:11:22:33:44:70", "00:11:22:33:44:71", "00:11:22:33:44:72"})
            hbs_remove_cpe_from_docsis_bridge(mac_of(own).data());
        EXPECT_EQ(3u, logged_containing("can't allow to be removed"));
        EXPECT_EQ(0u, logged_containing("removing"));
        EXPECT_EQ(3u, hbs_ext_switch_port_of(mac_of(STATION).data()));
        EXPECT_EQ(1, decide_if_by_ExtSwPort(mac_of(STATION).data()));
        EXPECT_TRUE(hbs_is_hotspot_interface("wlan0.4"));
    }
}

TEST_F(PlatformResults, WhatIsNotWrittenIsNotThereWhateverIsReturned) {
    writes = false;
    for (const int number : RESULTS) {
        SCOPED_TRACE(number);
        result = number;
        clear_log();
        hostbase_set_internal_mac_range();
        EXPECT_EQ(0u, hbs_internal_mac_low);
        EXPECT_EQ(0u, hbs_internal_mac_high);
        for (const char *mac : {"00:11:22:33:44:70", "00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff"})
            hbs_remove_cpe_from_docsis_bridge(mac_of(mac).data());
        EXPECT_EQ(0u, logged_containing("can't allow to be removed"));
        EXPECT_EQ(3u, logged_containing("removing"));
        EXPECT_EQ(0u, hbs_ext_switch_port_of(mac_of(STATION).data()));
        EXPECT_EQ(0, decide_if_by_ExtSwPort(mac_of(STATION).data()));
        EXPECT_FALSE(hbs_is_hotspot_interface("wlan0.4"));
    }
}

} // namespace
