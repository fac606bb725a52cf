// Whose a published copy is.
#include "store/pools.h"
#include "store/published.h"
#include "store/slots.h"
#include "support/store.h"

namespace slots_test {

using Slots = StoreTest;

TEST_F(Slots, SlotOfAWorkingCopyIsItsOwnOnly) {
    hbs_client *a = publish(make());
    hbs_client *b = make();
    EXPECT_EQ(a->dbpos, hbs_pool_offset(hbs_slot_of(a)));
    EXPECT_EQ(nullptr, hbs_slot_of(b)) << "not published";
    b->dbpos = a->dbpos;
    EXPECT_EQ(nullptr, hbs_slot_of(b)) << "another client's slot";
    b->dbpos = HBS_DBPOS_INVALID;
    EXPECT_EQ(nullptr, hbs_slot_of(b));
    b->dbpos = a->dbpos + 4;
    EXPECT_EQ(nullptr, hbs_slot_of(b)) << "no start of a slot";
    EXPECT_EQ(nullptr, hbs_slot_of(nullptr));
}

TEST_F(Slots, SlotOffTheListIsNobodysReference) {
    hbs_client *client = publish(make());
    const hbs_slot *slot = hbs_slot_of(client);
    EXPECT_EQ(client->dbpos, hbs_slot_reference(slot));
    EXPECT_TRUE(hbs_reference_is_published(client->dbpos));
    hbs_slot_unlink(slot);
    EXPECT_EQ(0u, hbs_slot_reference(slot));
    EXPECT_EQ(0u, hbs_slot_reference(nullptr));
    EXPECT_FALSE(hbs_reference_is_published(client->dbpos));
    EXPECT_EQ(nullptr, hbs_slot_of(client));
    hbs_slot_give_back(slot);
}

TEST_F(Slots, AfterTheSlotWasGivenBack_TheOwnerIsForgotten) {
    hbs_client *a = publish(make());
    const hbs_slot *slot = hbs_slot_of(a);
    EXPECT_EQ(a, hbs_slot_owner(slot));
    unpublish(a);
    EXPECT_EQ(nullptr, hbs_slot_of(a));
    EXPECT_EQ(nullptr, hbs_slot_owner(slot));
    for (int i = 0; i < 96; i++)
        publish(make());
    EXPECT_EQ(nullptr, hbs_slot_of(a)) << "its old slot is another client's by now";
    EXPECT_EQ(nullptr, hbs_slot_owner(nullptr));
}

TEST_F(Slots, WhatReadersFindByAClientsMac) {
    hbs_client *a = publish(make());
    hbs_client *b = publish(make());
    EXPECT_EQ(a->client_id, hbs_published_of(a)->client_id);
    EXPECT_EQ(b->client_id, hbs_published_of(b)->client_id);
    hbs_client stranger = {};
    EXPECT_EQ(nullptr, hbs_published_of(&stranger)) << "the zero MAC is nobody's";
    memcpy(stranger.mac, b->mac, sizeof stranger.mac);
    stranger.dbpos = a->dbpos;
    EXPECT_EQ(b->client_id, hbs_published_of(&stranger)->client_id) << "by the MAC, whatever the slot says";
    stranger.mac[0] ^= 4;
    EXPECT_EQ(nullptr, hbs_published_of(&stranger));
    memcpy(b->mac, stranger.mac, sizeof b->mac);
    EXPECT_EQ(nullptr, hbs_published_of(b)) << "its slot has the MAC that it had";
}

TEST_F(Slots, AfterTheSegmentWasOpenedAgain_NobodyOwnsASlot) {
    hbs_client *client = publish(make());
    const hbs_slot *slot = hbs_slot_of(client);
    hbs_shm_init();
    EXPECT_EQ(nullptr, hbs_slot_owner(slot));
    EXPECT_EQ(nullptr, hbs_slot_of(client)) << "its dbpos is stale";
}

} // namespace slots_test
