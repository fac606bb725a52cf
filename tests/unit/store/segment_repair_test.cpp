// What the segment holds after a hold, whoever wrote to it in between.
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <semaphore.h>

#include "store/index.h"
#include "store/publish.h"
#include "store/rule_index.h"
#include "store/segment.h"
#include "support/working_clients.h"

namespace segment_repair_test {

class SegmentRepair : public PublishTest {
  protected:
    void SetUp() override {
        PublishTest::SetUp();
        (void)add_published(100);
        hbs_segment_repair();
    }

    // As another process does.
    static void scribble() {
        memset(&hbs_segment_shared()->client_pool[0].mac, 0xEE, 6);
        memset(hbs_segment_shared()->pri_pool, 0xEE, sizeof hbs_db::pri_pool);
    }

    static void storm() {
        for (int i = 0; i < 2 * HBS_WHOLE_BURST; i++)
            const hbs_shm_hold hold;
    }

    static bool is_sound() {
        constexpr size_t reserved = offsetof(hbs_db, clients);
        return memcmp(reinterpret_cast<const uint8_t *>(hbs_segment_shared()) + reserved,
                      reinterpret_cast<const uint8_t *>(hbs_segment()) + reserved,
                      HBS_SHM_SIZE - reserved) == 0;
    }
};

TEST_F(SegmentRepair, TheNextHoldPutsAllOfItRight) {
    scribble();
    { const hbs_shm_hold next; }
    EXPECT_TRUE(is_sound());
}

// A reader that is killed inside, as others see it.
TEST_F(SegmentRepair, SemaphoreThatIsTakenAtTwoLooks_IsTakenOver) {
    sem_t *readers = sem_open(HBS_SEMAPHORE_NAME, 0);
    ASSERT_NE(SEM_FAILED, readers);
    const auto value = [readers] {
        int number = -1;
        (void)sem_getvalue(readers, &number);
        return number;
    };
    while (value() > 0)
        ASSERT_EQ(0, sem_trywait(readers));
    scribble();
    hbs_segment_repair();
    EXPECT_EQ(0, value()) << "it may only be slow";
    hbs_segment_repair();
    EXPECT_EQ(1, value());
    EXPECT_TRUE(is_sound());
    EXPECT_EQ(1u, logged_containing("database semaphore not released"));
    ASSERT_EQ(0, sem_trywait(readers)); // one that lets go in time is left alone
    hbs_segment_repair();
    ASSERT_EQ(0, sem_post(readers));
    hbs_segment_repair();
    ASSERT_EQ(0, sem_trywait(readers));
    hbs_segment_repair();
    ASSERT_EQ(0, sem_post(readers));
    EXPECT_EQ(1, value());
    EXPECT_EQ(1u, logged_containing("database semaphore not released"));
    (void)sem_close(readers);
}

TEST_F(SegmentRepair, InAStorm_AFewHoldsPutItRight) {
    storm();
    scribble();
    int holds = 0;
    for (; !is_sound() && holds < 32; holds++)
        const hbs_shm_hold next;
    EXPECT_TRUE(is_sound());
}

TEST_F(SegmentRepair, WhatIsEditedIsThereAtTheNextPost_AlsoInAStorm) {
    const char *text = "told";
    storm();
    for (uint32_t at : {0u, 1u, 94u, 95u}) {
        {
            const hbs_shm_hold hold;
            const uint32_t place =
                offsetof(hbs_db, client_pool) + at * sizeof(hbs_client) + offsetof(hbs_client, host);
            memcpy(hbs_segment_edit(place, sizeof hbs_client::host), text, strlen(text));
            EXPECT_STREQ("", hbs_segment_shared()->client_pool[at].host) << "not before the post";
        }
        EXPECT_STREQ(text, hbs_segment_shared()->client_pool[at].host);
    }
}

TEST_F(SegmentRepair, WhateverTheStoreDoes_IsThereAtTheNextPost_AlsoInAStorm) {
    storm();
    hbs_client *client = hbs_add(mac_number(1).data());
    client->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6;
    const uint32_t p[7] = {1, 2, 3, 4, 5, 6, 7};
    const std::function<void()> steps[] = {
        [&] { hbs_publish(client); },
        [&] {
            client->ipv4[3] = 20;
            hbs_publish(client);
        },
        [&] { hbs_shm_commit(client); },
        [&] { hbs_file_update_rule_idx(1, client->mac, p); },
        [&] { hbs_file_update_rule_idx(2, client->mac, p); },
        [&] { hbs_file_remove_rule_idx(1, client->mac, 1, 2, 3); },
        [&] { hbs_shm_mark_hotspot(); },
        [&] { hbs_file_remove_if_idx_locked(client); },
        [&] { hbs_shm_remove(client); },
        [&] { hbs_publish(client); },
        [&] { hbs_shm_flush(); },
    };
    for (const auto &step : steps) {
        step();
        EXPECT_TRUE(is_sound()) << "step " << &step - steps;
    }
}

TEST_F(SegmentRepair, NobodyHasToChangeAnythingForIt) {
    scribble();
    hbs_segment_repair();
    EXPECT_TRUE(is_sound());
    hbs_segment_shared()->reserved = 0xA5A5A5A5u;
    hbs_segment_repair();
    EXPECT_EQ(0xA5A5A5A5u, hbs_segment_shared()->reserved) << "not the daemon's to write";
}

} // namespace segment_repair_test
