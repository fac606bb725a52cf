// A gateway on which event handlers run: the store is up, the lock is made, timers lead to their actions.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

#include "base/state.h"
#include "base/text.h"
#include "events/lease_timers.h"
#include "files/client_removal.h"
#include "gateway/bssid_table.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "store/client_add.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"
#include "store/shm.h"
#include "support/gateway.h"
#include "support/store_invariants.h"

// The longest text that a field holds.
template <size_t Size> void fill(char (&field)[Size]) {
    std::fill_n(field, Size - 1, 'x');
    field[Size - 1] = '\0';
}

using Mac = std::array<uint8_t, 6>;
using Ipv4 = std::array<uint8_t, 4>;
using Ipv6 = std::array<uint8_t, 16>;

inline Mac mac_of(const std::string &text) {
    Mac mac{};
    EXPECT_EQ(6, hbs_text_to_mac(text.c_str(), mac.data())) << text;
    return mac;
}

inline Ipv4 ipv4_of(const std::string &text) {
    Ipv4 address{};
    EXPECT_EQ(1, inet_pton(AF_INET, text.c_str(), address.data())) << text;
    return address;
}

inline Ipv6 ipv6_of(const std::string &text) {
    Ipv6 address{};
    EXPECT_EQ(1, inet_pton(AF_INET6, text.c_str(), address.data())) << text;
    return address;
}

inline std::string text_of(const uint8_t (&ipv4)[4]) {
    return hbs_ipv4_to_text(ipv4).text;
}

class EventTest : public GatewayTest {
  protected:
    // Every working copy is in use, by clients that do not make room.
    static void crowd_in() {
        for (unsigned i = 0; i < HBS_MAX_WORKING; ++i) {
            const uint8_t mac[6] = {0x02, 0xcc, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
            hbs_client *client = hbs_add(mac);
            ASSERT_NE(nullptr, client);
            client->flags = HBS_FLAG_ONLINE;
        }
    }

    void SetUp() override {
        GatewayTest::SetUp();
        if (HasFatalFailure())
            return;
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        hbs_rnd_status = -1;
        hbs_lsd_status = -1;
        hbs_clients_init();
        hbs_client_end_register(hbs_client_drop_files);
        hbs_wifi_bssid_table_clear();
        hbs_lease_timers_register(hbs_on_dhcp_wait_expired, hbs_on_lease_expired, hbs_on_online_expired);
        hbs_shm_init();
        hostbase_set_internal_mac_range();
        clear_log();
    }

    // Whatever a test did: the database is sound, and no handler kept the lock.
    void TearDown() override {
        if (!HasFatalFailure()) {
            const hbs_list_hold hold;
            expect_store_sound();
        }
        GatewayTest::TearDown();
    }

    // A client on network 0 with an IPv4 address from a source (HBS_FLAG_*IP4), published.
    static hbs_client *published_client(const std::string &mac, const std::string &ipv4, uint32_t flags,
                                        uint8_t nwidx = 0) {
        hbs_client *client = hbs_add(mac_of(mac).data());
        const Ipv4 address = ipv4_of(ipv4);
        std::copy(address.begin(), address.end(), client->ipv4);
        client->nwidx = nwidx;
        client->adapter_type = HBS_ADAPTER_ETHERNET;
        client->flags = flags;
        hbs_publish(client);
        return client;
    }

    // What readers see of a MAC address.
    static std::optional<hbs_client> seen(const std::string &mac) {
        hbs_client client;
        if (hostbase_find_by_mac(mac_of(mac).data(), &client) != HOSTBASE_OK)
            return std::nullopt;
        return client;
    }

    static size_t clients_seen() {
        size_t count = 0;
        EXPECT_EQ(HOSTBASE_OK, hostbase_get_clients(nullptr, 0, &count));
        return count;
    }

    static size_t working_clients() {
        size_t count = 0;
        for (const hbs_client *client = hbs_client_first(); client != nullptr;
             client = hbs_client_next(client))
            ++count;
        return count;
    }
};

// The keys of an index as readers see them: words in decimal, joined by blanks, in list order.
template <typename Entry>
std::vector<std::string> keys_of(int (*get)(Entry *, size_t, size_t *), size_t capacity) {
    std::vector<Entry> entries(capacity);
    size_t count = 0;
    EXPECT_EQ(HOSTBASE_OK, get(entries.data(), entries.size(), &count));
    std::vector<std::string> keys;
    for (size_t i = 0; i < count; ++i) {
        std::string key;
        for (uint32_t word = 0; word < entries[i].count; ++word)
            key += (word == 0 ? "" : " ") + std::to_string(entries[i].key[word]);
        keys.push_back(key);
    }
    return keys;
}

inline std::vector<std::string> ip_keys() {
    return keys_of(hostbase_get_ip_index, HBS_MAX_IP_ENTRIES);
}
inline std::vector<std::string> dhcp_keys() {
    return keys_of(hostbase_get_dhcp_index, HBS_MAX_DHCP_ENTRIES);
}
inline std::vector<std::string> if_keys() {
    return keys_of(hostbase_get_if_index, HBS_MAX_IF_ENTRIES);
}
inline std::vector<std::string> pri_keys() {
    return keys_of(hostbase_get_pri_index, HBS_MAX_PRI_ENTRIES);
}
