// The gateway's own range of MAC addresses and the LAN-client test.
#include <string>

#include "base/text.h"
#include "gateway/own_macs.h"
#include "support/gateway.h"

namespace own_macs_test {

class OwnMacs : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_internal_mac_low = 0;
        hbs_internal_mac_high = 0;
    }

    void base_is(const std::string &hex) {
        set("db.array.70", "hex:" + hex);
        hostbase_set_internal_mac_range();
    }
};

bool is_lan_client(const char *text) {
    uint8_t mac[6];
    EXPECT_EQ(6, hbs_text_to_mac(text, mac));
    return hbs_mac_is_lan_client(mac);
}

TEST_F(OwnMacs, RangeGoesFromTwoBelowTheBaseToFourteenAboveInclusive) {
    base_is("001122334455");
    EXPECT_EQ(0x001122334453u, hbs_internal_mac_low);
    EXPECT_EQ(0x001122334463u, hbs_internal_mac_high);
    EXPECT_TRUE(is_lan_client("00:11:22:33:44:52"));
    EXPECT_FALSE(is_lan_client("00:11:22:33:44:53"));
    EXPECT_FALSE(is_lan_client("00:11:22:33:44:55"));
    EXPECT_FALSE(is_lan_client("00:11:22:33:44:63"));
    EXPECT_TRUE(is_lan_client("00:11:22:33:44:64"));
}

TEST_F(OwnMacs, BaseEndingInZeroBorrowsFromTheNextByteUp) {
    base_is("001122334400");
    EXPECT_EQ(0x0011223343feu, hbs_internal_mac_low);
    EXPECT_EQ(0x00112233440eu, hbs_internal_mac_high);
    EXPECT_FALSE(is_lan_client("00:11:22:33:43:fe"));
    EXPECT_TRUE(is_lan_client("00:11:22:33:43:fd"));
}

TEST_F(OwnMacs, BaseEndingInOneBorrowsFromTheNextByteUp) {
    base_is("001122000001");
    EXPECT_EQ(0x001121ffffffu, hbs_internal_mac_low);
    EXPECT_FALSE(is_lan_client("00:11:21:ff:ff:ff"));
    EXPECT_TRUE(is_lan_client("00:11:21:ff:ff:fe"));
}

TEST_F(OwnMacs, BaseNearTheEndOfAByteCarriesIntoTheNextByteUp) {
    base_is("0011223344f8");
    EXPECT_EQ(0x001122334506u, hbs_internal_mac_high);
    EXPECT_FALSE(is_lan_client("00:11:22:33:45:06"));
    EXPECT_TRUE(is_lan_client("00:11:22:33:45:07"));
}

TEST_F(OwnMacs, MissingMacPasses) {
    base_is("001122334455");
    EXPECT_TRUE(hbs_mac_is_lan_client(nullptr));
}

TEST_F(OwnMacs, OtherVendorsWithTheSameLastBytesPass) {
    base_is("001122334455");
    EXPECT_TRUE(is_lan_client("02:11:22:33:44:55"));
    EXPECT_TRUE(is_lan_client("ff:ff:ff:ff:ff:ff"));
}

TEST_F(OwnMacs, BaseThatCannotBeReadLeavesTheRangeAsItWas) {
    base_is("001122334455");
    fail("DB_GetArray", -1);
    set("db.array.70", "hex:0a0000000000");
    hostbase_set_internal_mac_range();
    EXPECT_EQ(0x001122334453u, hbs_internal_mac_low);
    EXPECT_EQ(0x001122334463u, hbs_internal_mac_high);
}

TEST_F(OwnMacs, SixZeroBytesAreNoClient) {
    const uint8_t zero[6] = {};
    EXPECT_FALSE(hbs_mac_is_lan_client(zero));
    const uint8_t nearly[6] = {0, 0, 0, 0, 0, 1};
    EXPECT_TRUE(hbs_mac_is_lan_client(nearly));
}

} // namespace own_macs_test
