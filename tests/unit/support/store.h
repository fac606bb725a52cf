// Tests of the store's lower half: an attached, empty segment, and clients published by hand.
#pragma once

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <hbs_db.h>

#include "store/client_text.h"
#include "store/index.h"
#include "store/pools.h"
#include "store/shm.h"
#include "store/slots.h"
#include "support/gateway.h"
#include "support/store_invariants.h"

class StoreTest : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_shm_init();
        ASSERT_NE(nullptr, hbs_segment());
        clear_log();
    }

    void TearDown() override {
        expect_store_sound();
        GatewayTest::TearDown();
    }

    // A working copy on a network; its address and MAC come from the running number of the client.
    hbs_client *make(uint8_t nwidx = 0) {
        hbs_client &client = working_.emplace_back();
        auto number = static_cast<uint8_t>(working_.size());
        client.client_id = number;
        client.nwidx = nwidx;
        const uint8_t mac[6] = {0x02, 0, 0, 0, 0, number};
        memcpy(client.mac, mac, sizeof mac);
        return &client;
    }

    hbs_client *make(uint8_t nwidx, const char *ipv4) {
        hbs_client *client = make(nwidx);
        EXPECT_EQ(1, inet_pton(AF_INET, ipv4, client->ipv4));
        return client;
    }

    // Gives the client a slot on the client list.
    hbs_client *publish(hbs_client *client) {
        auto *slot = static_cast<hbs_slot *>(hbs_pool_take(hbs_pool::clients));
        if (slot == nullptr) {
            ADD_FAILURE() << "no slot";
            return client;
        }
        hbs_slot_give_to(slot, client);
        return client;
    }

    // Takes the slot back; the client keeps its dbpos.
    void unpublish(hbs_client *client) {
        const hbs_slot *slot = hbs_slot_of(client);
        hbs_slot_unlink(slot);
        hbs_slot_give_back(slot);
    }

    template <typename Entry> std::vector<Entry> entries(hbs_pool pool) {
        std::vector<Entry> found;
        for (const void *at = hbs_list_first(pool); at != nullptr; at = hbs_list_next(pool, at))
            found.push_back(*static_cast<const Entry *>(at));
        return found;
    }

    std::vector<std::string> ip_keys() {
        std::vector<std::string> keys;
        for (const hbs_ip_entry &entry : entries<hbs_ip_entry>(hbs_pool::ip))
            keys.emplace_back(hbs_ip_entry_text(&entry).text);
        return keys;
    }

    std::vector<std::string> dhcp_keys() {
        std::vector<std::string> keys;
        for (const hbs_ip_entry &entry : entries<hbs_ip_entry>(hbs_pool::dhcp))
            keys.emplace_back(hbs_dhcp_entry_text(&entry).text);
        return keys;
    }

    std::vector<std::string> if_keys() {
        std::vector<std::string> keys;
        for (const hbs_if_entry &entry : entries<hbs_if_entry>(hbs_pool::interface))
            keys.emplace_back(hbs_if_entry_text(&entry).text);
        return keys;
    }

    std::vector<std::string> pri_keys() {
        std::vector<std::string> keys;
        for (const hbs_pri_entry &entry : entries<hbs_pri_entry>(hbs_pool::primary))
            keys.emplace_back(hbs_pri_entry_text(&entry).text);
        return keys;
    }

    // How the messages print a dbpos.
    static std::string pos(const hbs_client *client) {
        char text[32];
        (void)snprintf(text, sizeof text, "%p", hbs_dbpos_for_log(client->dbpos));
        return text;
    }

  private:
    std::deque<hbs_client> working_;
};

inline void set_ipv6(uint8_t field[16], const char *text) {
    ASSERT_EQ(1, inet_pton(AF_INET6, text, field));
}
