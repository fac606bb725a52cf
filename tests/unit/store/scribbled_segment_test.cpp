// Another process writes into the segment, which every process may: what it wrote is gone with the next
// publication of any client, and the daemon never goes by it.
#include <functional>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <hostbase_query.h>

#include "store/publish.h"
#include "store/rule_index.h"
#include "support/working_clients.h"

namespace scribbled_segment_test {

class ScribbledSegment : public PublishTest {
  protected:
    void SetUp() override {
        PublishTest::SetUp();
        if (HasFatalFailure())
            return;
        const int id = shmget(ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID), 0, 0);
        db_ = static_cast<hbs_db *>(shmat(id, nullptr, 0));
        ASSERT_NE(reinterpret_cast<hbs_db *>(intptr_t{-1}), db_);
        for (unsigned n = 1; n <= 6; n++) {
            hbs_client *client = add_client(n);
            client->ipv4[0] = 10;
            client->ipv4[3] = client->ll[15] = static_cast<uint8_t>(n);
            client->flags = HBS_FLAG_DYNIP4 | HBS_FLAG_DYNIP6;
            hbs_publish(client);
            const uint32_t p[7] = {n};
            hbs_file_update_rule_idx(1, client->mac, p);
        }
        before_ = snapshot();
        ASSERT_EQ(HOSTBASE_OK, before_.first);
    }

    void TearDown() override {
        (void)shmdt(db_);
        PublishTest::TearDown();
    }

    static std::pair<int, std::string> snapshot() {
        static hbs_db copy;
        const int result = hostbase_snapshot(&copy);
        return {result, std::string(reinterpret_cast<const char *>(&copy), sizeof copy)};
    }

    // Whether a reader is led astray, and is not any more once some client was published again.
    void expect_healed(const std::string &what) {
        EXPECT_NE(before_, snapshot()) << what << ": nothing was damaged";
        hbs_shm_commit(hbs_client_first());
        EXPECT_TRUE(before_ == snapshot()) << what;
    }

    hbs_db *db_ = nullptr; // mapped as another process maps it
    std::pair<int, std::string> before_;
};

TEST_F(ScribbledSegment, LinksOfAllListsAreSoundAfterTheNextPublication) {
    struct {
        const char *what;
        hbs_list_head *head;
        uint32_t *next, *prev; // of an element that is listed
    } lists[] = {
        {"clients", &db_->clients, &db_->client_pool[2].next, &db_->client_pool[3].prev},
        {"IP index", &db_->ip_index, &db_->ip_pool[2].next, &db_->ip_pool[3].prev},
        {"interface index", &db_->if_index, &db_->if_pool[2].next, &db_->if_pool[3].prev},
        {"DHCP-option index", &db_->dhcp_index, &db_->dhcp_pool[2].next, &db_->dhcp_pool[3].prev},
        {"rule index", &db_->rule_index, &db_->rule_pool[2].next, &db_->rule_pool[3].prev},
        {"primary index", &db_->pri_index, &db_->pri_pool[2].next, &db_->pri_pool[3].prev},
    };
    for (auto &list : lists) {
        for (uint32_t word : {0u, 53u, 0xFFFFFFFFu, *list.prev}) {
            *list.next = word;
            expect_healed(list.what);
            *list.prev = word + 1;
            expect_healed(list.what);
            list.head->next = word;
            expect_healed(list.what);
            list.head->prev = word + 1;
            expect_healed(list.what);
        }
    }
}

TEST_F(ScribbledSegment, KeysAndReferencesAreRightAfterTheNextPublication) {
    db_->ip_pool[1].count = 0;
    expect_healed("count of an IP entry");
    db_->ip_pool[1].key[6] ^= 1;
    expect_healed("key of an IP entry");
    db_->client_pool[4].dbpos = 0;
    expect_healed("dbpos of a client");
    memset(db_->client_pool[1].host, 'x', sizeof db_->client_pool[1].host);
    expect_healed("text of a client");
}

TEST_F(ScribbledSegment, WholeSegmentOverwritten_IsWholeAfterTheNextPublication) {
    memset(reinterpret_cast<uint8_t *>(db_) + sizeof db_->reserved, 0xFF, sizeof *db_ - sizeof db_->reserved);
    expect_healed("all of it");
}

TEST_F(ScribbledSegment, ChangesAreMadeByTheDaemonsOwnKnowledge) {
    hbs_client *moved = working_clients()[3];
    memset(reinterpret_cast<uint8_t *>(db_) + sizeof db_->reserved, 0x77, sizeof *db_ - sizeof db_->reserved);
    hbs_shm_remove(moved);
    size_t clients = 0, ip = 0, interface = 0, dhcp = 0, rules = 0, primary = 0;
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_clients(nullptr, 0, &clients));
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_ip_index(nullptr, 0, &ip));
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_if_index(nullptr, 0, &interface));
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_dhcp_index(nullptr, 0, &dhcp));
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_rule_index(nullptr, 0, &rules));
    EXPECT_EQ(HOSTBASE_OK, hostbase_get_pri_index(nullptr, 0, &primary));
    EXPECT_EQ((std::vector<size_t>{5, 10, 5, 10, 6, 5}),
              (std::vector<size_t>{clients, ip, interface, dhcp, rules, primary}));
    EXPECT_EQ(HOSTBASE_OK, snapshot().first);
}

} // namespace scribbled_segment_test
