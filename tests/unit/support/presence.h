// Two wired devices and a Wi-Fi one, and what handlers that hear of their addresses leave behind.
#pragma once

#include <cstring>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "events/neighbours.h"
#include "store/client_fields.h"
#include "support/events.h"

inline constexpr const char *MAC_A = "02:ab:00:00:00:11";
inline constexpr const char *MAC_B = "02:ab:00:00:00:12";
inline constexpr const char *MAC_WIFI = "02:ab:00:00:00:21";
inline constexpr const char *MAC_UNKNOWN = "02:ab:00:00:00:31"; // neither switch has it
inline constexpr const char *MAC_OWN = "00:11:22:33:44:60";     // the gateway's own range
inline constexpr int LOOPBACK = 1;                              // the only kernel interface of a fresh box

using Keys = std::vector<std::string>;

class PresenceTest : public EventTest {
  protected:
    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        learn(MAC_A, 1);
        learn(MAC_B, 2);
        set(std::string("l2switch.mac.") + MAC_WIFI, "0x01");
    }

    static std::string address_text(const uint8_t (&address)[16]) { return hbs_ipv6_to_text(address).text; }

    // A dynamic one, as a DHCP server tells of it.
    static hbs_dhcpv4_lease lease_of(const char *mac, const std::string &address) {
        hbs_dhcpv4_lease lease{};
        memcpy(lease.mac, mac_of(mac).data(), sizeof lease.mac);
        memcpy(lease.ipv4, ipv4_of(address).data(), sizeof lease.ipv4);
        lease.dynamic = true;
        lease.seconds = 600;
        lease.nwidx = lease.adapter_type = -1;
        return lease;
    }

    static hbs_client *add(const char *mac) { return hbs_add(mac != nullptr ? mac_of(mac).data() : nullptr); }

    static hbs_client *add_with_ll(const char *mac, const std::string &ll) {
        hbs_client *client = add(mac);
        hbs_set_ll(client, ipv6_of(ll).data());
        hbs_publish(client);
        return client;
    }

    static size_t nomac_clients() {
        size_t count = 0;
        for (const hbs_client *client = hbs_nomac_first(); client != nullptr; client = hbs_nomac_next(client))
            ++count;
        return count;
    }

    static uint32_t state_of(const hbs_client *client) { return client->flags & ~HBS_CHANGED_MASK; }

    // Seconds that a timer of the client still has to run; 0 when it does not.
    static long seconds_left(hbs_client *client, hbs_timer_kind kind) {
        const hbs_timer_slot *slot = hbs_client_timer_slot(client, kind);
        itimerspec now{};
        if (!slot->exists || timer_gettime(slot->handle, &now) != 0)
            return 0;
        return now.it_value.tv_sec + (now.it_value.tv_nsec > 0 ? 1 : 0);
    }

    // The published copy; a test goes on with an empty one when there is none.
    static hbs_client published(const char *mac) {
        const std::optional<hbs_client> client = seen(mac);
        EXPECT_TRUE(client.has_value()) << mac;
        return client.value_or(hbs_client{});
    }

    // Codes of the events that the agent was told, in order.
    std::vector<std::string> tr69_codes() const {
        std::vector<std::string> codes;
        for (const std::string &line : journal_lines("tr69 event "))
            codes.push_back(line.substr(11, 3));
        return codes;
    }
};
