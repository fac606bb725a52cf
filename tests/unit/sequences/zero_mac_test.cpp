// Six zero bytes are no MAC: a request that names them as one is refused, and nothing is changed by it.
#include <string>

#include "base/paths.h"
#include "support/management.h"

namespace zero_mac_test {

constexpr const char *NO_MAC = "00:00:00:00:00:00";

class ZeroMac : public ManagementTest {
  protected:
    void SetUp() override {
        ManagementTest::SetUp();
        if (HasFatalFailure())
            return;
        for (const char *path : files)
            before_.push_back(read_file(path));
    }

    // No client in any list, nothing for readers, no file touched.
    void expect_nothing_changed() const {
        EXPECT_EQ(nullptr, hbs_client_first());
        EXPECT_EQ(nullptr, hbs_nomac_first());
        size_t clients = 1;
        EXPECT_EQ(HOSTBASE_OK, hostbase_get_clients(nullptr, 0, &clients));
        EXPECT_EQ(0u, clients);
        EXPECT_TRUE(rules().empty());
        for (size_t i = 0; i < before_.size(); i++)
            EXPECT_EQ(before_[i], read_file(files[i])) << files[i];
    }

    static hbs_static_lease_request lease(uint8_t nwidx) {
        hbs_static_lease_request request{};
        request.family = AF_INET;
        request.nwidx = nwidx;
        const Ipv4 address = ipv4_of("192.168.0.50");
        std::copy(address.begin(), address.end(), request.address);
        request.comment = "comment";
        request.host = "host";
        return request;
    }

  private:
    static constexpr const char *files[] = {
        HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES, "/nvram/8/client_trusted_device_tr69instance.txt",
        STATIC_LEASES,   HOST_RECORDS};
    std::vector<std::string> before_;
};

TEST_F(ZeroMac, Trust_IsRefused) {
    EXPECT_EQ(-1, trust(NO_MAC, "comment"));
    EXPECT_EQ(-1, distrust(NO_MAC));
    expect_nothing_changed();
}

TEST_F(ZeroMac, Filter_IsRefusedOnEveryList) {
    for (const uint8_t list : {0, HBS_LIST_WHITE, HBS_LIST_BLACK, 3}) {
        const hbs_filter_request request = filter(list, NO_MAC, {1, 2, 3, 4, 5, 6});
        EXPECT_EQ(-1, hbs_api_set_mac_filter(&request)) << int{list};
    }
    expect_nothing_changed();
}

TEST_F(ZeroMac, StaticLease_IsRefusedInEveryNetwork) {
    for (const uint8_t nwidx : {0, 1, 8}) {
        const hbs_static_lease_request request = lease(nwidx);
        EXPECT_EQ(-1, hbs_api_set_static_lease(&request)) << int{nwidx};
    }
    expect_nothing_changed();
}

TEST_F(ZeroMac, RefusedStaticLease_LeavesTheHolderOfTheAddressAlone) {
    ASSERT_EQ(0, trust(LAPTOP));
    hbs_client *holder = client_of(LAPTOP);
    hbs_set_ipv4(holder, ipv4_of("192.168.0.50").data());
    hbs_publish(holder);
    const hbs_static_lease_request request = lease(0);
    EXPECT_EQ(-1, hbs_api_set_static_lease(&request));
    hbs_if_entry entry;
    size_t count = 0;
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_if_index(&entry, 1, &count));
    EXPECT_EQ(1u, count);
    EXPECT_EQ("", read_file(STATIC_LEASES));
}

} // namespace zero_mac_test
