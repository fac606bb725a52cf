// What a DHCPv4 release and a DHCP information request do to a client.
#include "store/client_fields.h"
#include "support/dhcpv4.h"

namespace dhcpv4_release_test {

// --- release ---

class Dhcpv4Release : public Dhcpv4Lease {
  protected:
    hbs_client *client_ = nullptr;

    void SetUp() override {
        Dhcpv4Lease::SetUp();
        if (HasFatalFailure())
            return;
        client_ = handle();
        ASSERT_NE(nullptr, client_);
        hbs_set_flags(client_, 0, HBS_FLAG_REACH_2 | HBS_FLAG_STIP4 | HBS_FLAG_USRIP4 | HBS_FLAG_ASSOC);
        hbs_publish(client_);
    }

    static hbs_client *release(const std::string &ipv4, int32_t a, int32_t b, const std::string &mac = MAC) {
        return hbs_handle_dhcpv4_release(mac_of(mac).data(), ipv4_of(ipv4).data(), a, b);
    }

    bool still_online() { return (published().flags & HBS_FLAG_ONLINE) != 0; }
};

TEST_F(Dhcpv4Release, ClearsTheLeaseAndKeepsStaticAndAddress) {
    EXPECT_EQ(client_, release("192.168.0.20", 1, 1));
    const hbs_client copy = published();
    EXPECT_EQ(HBS_FLAG_STIP4 | HBS_FLAG_ASSOC | HBS_FLAG_TIMER_LEASE, copy.flags & ~HBS_CHANGED_MASK);
    EXPECT_EQ("192.168.0.20", text_of(copy.ipv4));
    EXPECT_EQ(Keys{"200 1 4 192 168 0 20"}, ip_keys());
}

TEST_F(Dhcpv4Release, FirstValueOfZeroIsEnough) {
    EXPECT_EQ(client_, release("192.168.0.20", 0, 1));
    EXPECT_FALSE(still_online());
}

TEST_F(Dhcpv4Release, SecondValueBelowOneOrNegativeFirstValueDoesNothing) {
    EXPECT_EQ(nullptr, release("192.168.0.20", 1, 0));
    EXPECT_EQ(nullptr, release("192.168.0.20", 1, -1));
    EXPECT_EQ(nullptr, release("192.168.0.20", -1, 1));
    EXPECT_TRUE(still_online());
}

TEST_F(Dhcpv4Release, OtherAddressLeavesTheClientUnchanged) {
    EXPECT_EQ(client_, release("192.168.0.21", 1, 1));
    EXPECT_TRUE(still_online());
}

TEST_F(Dhcpv4Release, UnknownMacGivesNone) {
    EXPECT_EQ(nullptr, release("192.168.0.20", 1, 1, "02:ab:00:00:00:99"));
    EXPECT_TRUE(still_online());
}

TEST_F(Dhcpv4Release, MacOfTheGatewayGivesNone) {
    hbs_client *own = hbs_add(mac_of("00:11:22:33:44:60").data());
    EXPECT_EQ(nullptr, release("0.0.0.0", 1, 1, "00:11:22:33:44:60"));
    EXPECT_EQ(HBS_DBPOS_NONE, own->dbpos);
}

// --- information ---

class Dhcpv4Info : public Dhcpv4Lease {
  protected:
    hbs_client *client_ = nullptr;
    hbs_dhcpv4_identity identity_{};

    void SetUp() override {
        Dhcpv4Lease::SetUp();
        if (HasFatalFailure())
            return;
        client_ = handle();
        ASSERT_NE(nullptr, client_);
        std::memset(&identity_, '#', sizeof(identity_));
    }

    hbs_client *inform(const std::string &mac = MAC, const std::string &ipv4 = "192.168.0.20",
                       int32_t nwidx = -1, int32_t adapter_type = -1) {
        return hbs_handle_dhcpv4_info(mac_of(mac).data(), ipv4_of(ipv4).data(), nwidx, adapter_type,
                                      &identity_);
    }

    void expect_nothing_happened() {
        EXPECT_EQ("192.168.0.20", text_of(published().ipv4));
        EXPECT_EQ('#', identity_.oui[0]);
        EXPECT_EQ('#', identity_.serial_number[0]);
        EXPECT_EQ('#', identity_.product_class[0]);
    }
};

TEST_F(Dhcpv4Info, TakesTheAddressAwayAndHandsTheIdentityOut) {
    EXPECT_EQ(client_, inform());
    EXPECT_STREQ("A1B2C3", identity_.oui);
    EXPECT_STREQ("SN-1", identity_.serial_number);
    EXPECT_STREQ("PC-1", identity_.product_class);
    EXPECT_EQ("0.0.0.0", text_of(published().ipv4));
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_TRUE(dhcp_keys().empty());
    EXPECT_EQ(Keys{"200 1"}, if_keys());
    EXPECT_EQ(Keys{"1"}, pri_keys());
}

TEST_F(Dhcpv4Info, LongestIdentityEndsInItsFields) {
    const std::string longest(64, 'y');
    hbs_set_oui(client_, "123456");
    hbs_set_serial_number(client_, longest.c_str());
    hbs_set_product_class(client_, longest.c_str());
    EXPECT_EQ(client_, inform());
    EXPECT_STREQ("123456", identity_.oui);
    EXPECT_EQ(longest, identity_.serial_number);
    EXPECT_EQ(longest, identity_.product_class);
}

TEST_F(Dhcpv4Info, NetworkAndAdapterOfTheEventAreNotStored) {
    EXPECT_EQ(client_, inform(MAC, "192.168.1.9", 3, HBS_ADAPTER_USB));
    EXPECT_EQ(0, published().nwidx);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, published().adapter_type);
}

TEST_F(Dhcpv4Info, AddressInNoNetworkGivesNone) {
    EXPECT_EQ(nullptr, inform(MAC, "10.9.8.7"));
    EXPECT_EQ(nullptr, inform(MAC, "192.168.0.20", -2));
    expect_nothing_happened();
}

TEST_F(Dhcpv4Info, UnknownAdapterGivesNone) {
    EXPECT_EQ(nullptr, inform(MAC, "192.168.0.20", 0, 0));
    unset("switch.mac.02:ab:00:00:00:11");
    EXPECT_EQ(nullptr, inform());
    expect_nothing_happened();
}

TEST_F(Dhcpv4Info, UnknownClientGivesNoneAndIsNotAdded) {
    learn("02:ab:00:00:00:99", 1);
    EXPECT_EQ(nullptr, inform("02:ab:00:00:00:99"));
    EXPECT_EQ(1u, working_clients());
    expect_nothing_happened();
}

TEST_F(Dhcpv4Info, MacOfTheGatewayGivesNone) {
    EXPECT_EQ(nullptr, inform("00:11:22:33:44:60", "192.168.0.20", 0, 1));
    expect_nothing_happened();
}

} // namespace dhcpv4_release_test
