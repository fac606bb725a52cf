// Who keeps a place when the house is full, as the handlers fill it.
#include "events/dhcpv4_lease.h"
#include "store/client_end.h"
#include "support/management.h"

namespace displacement_test {

constexpr const char *ADDRESS = "192.168.0.50";
constexpr uint32_t HOUR = 3600;

class Displacement : public ManagementTest {
  protected:
    static std::string stranger(unsigned number) {
        char text[32];
        (void)snprintf(text, sizeof text, "02:cc:00:00:%02x:%02x", number >> 8, number & 0xff);
        return text;
    }
    static hbs_client *lease(const std::string &mac, const std::string &ipv4 = "192.168.0.99") {
        hbs_dhcpv4_lease lease = {.mac = {},
                                  .ipv4 = {},
                                  .dynamic = true,
                                  .seconds = HOUR,
                                  .host = "",
                                  .ifname = "l2sd0.2",
                                  .oui = "",
                                  .serial_number = "",
                                  .product_class = "",
                                  .lease_file = "",
                                  .nwidx = -1,
                                  .adapter_type = HBS_ADAPTER_ETHERNET};
        memcpy(lease.mac, mac_of(mac).data(), sizeof lease.mac);
        memcpy(lease.ipv4, ipv4_of(ipv4).data(), sizeof lease.ipv4);
        return hbs_handle_dhcpv4_lease(&lease);
    }
    static void release(const std::string &mac, const std::string &ipv4 = "192.168.0.99") {
        (void)hbs_handle_dhcpv4_release(mac_of(mac).data(), ipv4_of(ipv4).data(), 0, 1);
    }
    // The house fills with strangers who are on line; one more than there are slots.
    static void crowd_in(unsigned first = 0) {
        for (unsigned n = first; n < first + HBS_MAX_CLIENTS + 1; ++n)
            ASSERT_NE(nullptr, lease(stranger(n))) << n;
    }
    static void leave(unsigned first, unsigned count) {
        for (unsigned n = first; n < first + count; ++n)
            release(stranger(n));
    }
    static hbs_static_lease_request request(const std::string &mac) {
        hbs_static_lease_request wanted{};
        wanted.family = AF_INET;
        memcpy(wanted.address, ipv4_of(ADDRESS).data(), 4);
        memcpy(wanted.mac, mac_of(mac).data(), 6);
        wanted.comment = wanted.host = "";
        return wanted;
    }
    static int set_static(const std::string &mac) {
        const hbs_static_lease_request wanted = request(mac);
        return hbs_api_set_static_lease(&wanted);
    }
    static int set_internal(const std::string &mac) {
        const hbs_static_lease_request wanted = request(mac);
        return hbs_api_set_internal_lease(wanted.family, wanted.address, wanted.mac);
    }
    static int trust(const std::string &mac) {
        return hbs_api_trust_by_mac(1, true, mac_of(mac).data(), "mine");
    }
};

TEST_F(Displacement, AbsentDeviceKeepsTheStaticLeaseThatACommandGaveIt) {
    ASSERT_EQ(0, set_static(LAPTOP));
    const std::string leases = read_file(STATIC_LEASES);
    const std::string records = read_file(HOST_RECORDS);
    EXPECT_NE("", leases);
    crowd_in();
    EXPECT_TRUE(seen(LAPTOP).has_value());
    EXPECT_EQ(0U, seen(LAPTOP)->flags & (HBS_FLAG_STIP4 | HBS_FLAG_ONLINE)) << "what readers see is as ever";
    EXPECT_EQ(leases, read_file(STATIC_LEASES));
    EXPECT_EQ(records, read_file(HOST_RECORDS));
}

TEST_F(Displacement, ClearedStaticLeaseProtectsNoLonger) {
    ASSERT_EQ(0, set_static(LAPTOP));
    (void)lease(LAPTOP, ADDRESS);
    (void)hbs_api_clr_static_lease(AF_INET, ipv4_of(ADDRESS).data());
    release(LAPTOP, ADDRESS);
    crowd_in();
    EXPECT_FALSE(seen(LAPTOP).has_value());
}

TEST_F(Displacement, LeaseThatMovedToAnotherDeviceProtectsThatOne) {
    ASSERT_EQ(0, set_static(LAPTOP));
    ASSERT_EQ(0, set_static(TABLET));
    crowd_in();
    EXPECT_FALSE(seen(LAPTOP).has_value());
    EXPECT_TRUE(seen(TABLET).has_value());
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.50\n", read_file(STATIC_LEASES));
}

TEST_F(Displacement, KnownDeviceKeepsAnInternalLease) {
    (void)lease(LAPTOP);
    release(LAPTOP);
    ASSERT_EQ(0, set_internal(LAPTOP));
    crowd_in();
    EXPECT_TRUE(seen(LAPTOP).has_value());
    EXPECT_EQ("02:aa:00:00:00:11 192.168.0.50\n", read_file(STATIC_LEASES));
}

TEST_F(Displacement, InternalLeaseOfNoMacProtectsNobodyAndStays) {
    ASSERT_EQ(0, set_internal("00:00:00:00:00:00"));
    const std::string leases = read_file(STATIC_LEASES);
    EXPECT_EQ("00:00:00:00:00:00 192.168.0.50\n", leases);
    crowd_in();
    EXPECT_EQ(leases, read_file(STATIC_LEASES));
}

TEST_F(Displacement, StrangersThatComeAndGoInAFullHouse_ShutNobodyOut) {
    crowd_in();
    for (unsigned n = 200; n < 200 + 430; ++n) {
        ASSERT_NE(nullptr, lease(stranger(n))) << n;
        release(stranger(n));
    }
    EXPECT_NE(nullptr, lease(LAPTOP)) << "a newcomer, while all who have a slot are on line";
    EXPECT_EQ(0, trust(TABLET));
    EXPECT_EQ(0, set_static("02:aa:00:00:00:13"));
    leave(0, HBS_MAX_CLIENTS);
    EXPECT_NE(nullptr, lease("02:aa:00:00:00:14"));
    EXPECT_TRUE(seen("02:aa:00:00:00:14").has_value());
    (void)lease(LAPTOP);
    EXPECT_TRUE(seen(LAPTOP).has_value());
    EXPECT_EQ(0, trust(TABLET));
    EXPECT_TRUE(seen(TABLET).has_value());
    EXPECT_EQ(0, set_static("02:aa:00:00:00:13"));
    EXPECT_TRUE(seen("02:aa:00:00:00:13").has_value());
}

} // namespace displacement_test
