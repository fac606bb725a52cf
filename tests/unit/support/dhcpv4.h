// A lease event to hand to the handler, and what readers see afterwards.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "events/dhcpv4_lease.h"
#include "support/events.h"

inline constexpr const char *MAC = "02:ab:00:00:00:11";
inline constexpr const char *KEY = "switch.mac.02:ab:00:00:00:11";
inline constexpr const char *WIFI_MAC = "02:ab:00:00:00:21";
inline constexpr const char *WIFI_KEY = "l2switch.mac.02:ab:00:00:00:21";

using Keys = std::vector<std::string>;

class Dhcpv4Lease : public EventTest {
  protected:
    hbs_dhcpv4_lease lease_{};

    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        learn(MAC, 1);
        set(WIFI_KEY, "0x01");
        lease_ = {.mac = {},
                  .ipv4 = {192, 168, 0, 20},
                  .dynamic = true,
                  .seconds = 3600,
                  .host = "laptop",
                  .ifname = "l2sd0.2",
                  .oui = "A1B2C3",
                  .serial_number = "SN-1",
                  .product_class = "PC-1",
                  .lease_file = "lease.20",
                  .nwidx = -1,
                  .adapter_type = -1};
        lease_for(MAC);
    }

    void lease_for(const std::string &mac) { std::memcpy(lease_.mac, mac_of(mac).data(), 6); }

    void lease_of(const std::string &ipv4) { std::memcpy(lease_.ipv4, ipv4_of(ipv4).data(), 4); }

    hbs_client *handle() { return hbs_handle_dhcpv4_lease(&lease_); }

    // The published copy after the event; a test goes on with an empty one when there is none.
    hbs_client published(const char *mac = MAC) {
        const std::optional<hbs_client> client = seen(mac);
        EXPECT_TRUE(client.has_value()) << mac;
        return client.value_or(hbs_client{});
    }

    static uint32_t source(const hbs_client &client) { return client.flags & HBS_FLAGS_IP4; }
};
