// No two working copies ever share a slot, whatever is done to them in whatever order.
#include <map>
#include <random>

#include "store/client_fields.h"
#include "store/merge.h"
#include "store/pools.h"
#include "support/working_clients.h"

namespace slot_owners_test {

// Long random sequences of everything that moves slots about.
class SlotOwners : public ClientsTest, public testing::WithParamInterface<unsigned> {
  protected:
    static void check_slots() {
        std::map<uint32_t, const hbs_client *> owner_of;
        std::vector<hbs_client *> all = working_clients();
        for (hbs_client *nomac : nomac_clients())
            all.push_back(nomac);
        for (const hbs_client *client : all) {
            if (hbs_slot_of(client) == nullptr)
                continue;
            EXPECT_TRUE(owner_of.emplace(client->dbpos, client).second) << "two owners of " << client->dbpos;
        }
        const auto slots = published_clients();
        ASSERT_LE(slots.size(), static_cast<size_t>(HBS_MAX_CLIENTS));
        for (const hbs_client *slot : slots) {
            EXPECT_EQ(slot, slot_at(slot->dbpos)) << "a slot holds its own offset";
            ASSERT_EQ(1U, owner_of.count(slot->dbpos)) << "a published slot without owner";
            EXPECT_EQ(slot->client_id, owner_of[slot->dbpos]->client_id);
        }
        EXPECT_EQ(slots.size(), owner_of.size());
        EXPECT_EQ(slots.size() + static_cast<size_t>(hbs_pool_free_count(hbs_pool::clients)),
                  static_cast<size_t>(HBS_MAX_CLIENTS));
        check_references(owner_of);
    }
    static void check_references(const std::map<uint32_t, const hbs_client *> &owner_of) {
        for (const hbs_ip_entry *entry : ip_entries())
            EXPECT_EQ(1U, owner_of.count(entry->dbpos));
        for (const hbs_ip_entry *entry : dhcp_entries())
            EXPECT_EQ(1U, owner_of.count(entry->dbpos));
        for (const hbs_if_entry *entry : if_entries())
            EXPECT_EQ(1U, owner_of.count(entry->dbpos));
        for (const hbs_pri_entry *entry : pri_entries())
            EXPECT_EQ(1U, owner_of.count(entry->dbpos));
    }

    unsigned roll(unsigned sides) { return static_cast<unsigned>(random_() % sides); }
    hbs_client *pick() {
        std::vector<hbs_client *> all = working_clients();
        for (hbs_client *nomac : nomac_clients())
            all.push_back(nomac);
        return all.empty() ? nullptr : all[roll(static_cast<unsigned>(all.size()))];
    }
    void change(hbs_client *client) {
        switch (roll(6)) {
        case 0:
            hbs_set_ipv4(client, ipv4_number(roll(200)).data());
            break;
        case 1:
            hbs_set_ipv6(client, ipv6_number(roll(200)).data());
            break;
        case 2:
            hbs_set_ll(client, ll_number(roll(200)).data());
            break;
        case 3:
            hbs_set_nwidx(client, static_cast<uint8_t>(roll(16)));
            break;
        case 4:
            hbs_set_flags(client, 0, roll(0x2000));
            break;
        default:
            hbs_clear_flags(client, 0xF, 0x1FFF);
            break;
        }
    }
    bool rarely(unsigned sides) { return roll(sides) == 0; }
    void remove(hbs_client *client, bool for_good) {
        hbs_shm_remove(client);
        if (for_good)
            hbs_client_free(client);
    }
    void step() {
        hbs_client *client = pick();
        switch (client == nullptr ? 0 : roll(12)) {
        case 0:
        case 1:
            (void)add_client(roll(400));
            break;
        case 2:
            (void)hbs_add(nullptr);
            break;
        case 3:
            (void)hbs_set_mac(client, mac_number(roll(400)).data());
            break;
        case 4:
            if (rarely(4))
                remove(client, rarely(2));
            break;
        case 5:
            if (rarely(40))
                hbs_shm_flush();
            break;
        case 6:
            change(client);
            break;
        default:
            change(client);
            hbs_publish(client);
            break;
        }
    }

    std::minstd_rand random_{GetParam()};
};

TEST_P(SlotOwners, EveryPublishedSlotHasExactlyOneOwner) {
    for (unsigned n = 0; n < HBS_MAX_CLIENTS; ++n)
        (void)add_published(n);
    for (int i = 0; i < 1200 && !HasFailure(); ++i) {
        step();
        check_slots();
        if (i % 10 == 0)
            expect_store_sound();
    }
    EXPECT_GT(logged_containing("HOSTBASE: reclaiming client"), 0U) << "the pool was never full";
    EXPECT_GT(logged_containing("HOSTBASE: flush client list"), 0U);
}

INSTANTIATE_TEST_SUITE_P(Seed, SlotOwners, testing::Values(1U, 2U, 3U, 4U));

} // namespace slot_owners_test
