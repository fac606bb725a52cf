// What readers can find between two holds of the semaphore while a client is published.
#include <dlfcn.h>
#include <semaphore.h>

#include "store/pools.h"
#include "support/events.h"

namespace {

bool watching;
int posts;
int clients_without_entry; // seen at any post

bool has_entry(hbs_pool index, uint32_t dbpos) {
    for (const void *at = hbs_list_first(index); at != nullptr; at = hbs_list_next(index, at)) {
        const bool is_of = index == hbs_pool::ip ? static_cast<const hbs_ip_entry *>(at)->dbpos == dbpos
                                                 : static_cast<const hbs_if_entry *>(at)->dbpos == dbpos;
        if (is_of)
            return true;
    }
    return false;
}

// At the moment of a post the database is what the next reader will find.
void look() {
    ++posts;
    for (const void *at = hbs_list_first(hbs_pool::clients); at != nullptr;
         at = hbs_list_next(hbs_pool::clients, at)) {
        const auto *slot = static_cast<const hbs_client *>(at);
        const bool has_address = !hbs_ipv4_is_zero(slot->ipv4);
        if (!has_entry(hbs_pool::interface, slot->dbpos) ||
            (has_address && !has_entry(hbs_pool::ip, slot->dbpos)))
            ++clients_without_entry;
    }
}

} // namespace

// Stands before the system's own.
extern "C" int sem_post(sem_t *semaphore) noexcept {
    static const auto real = reinterpret_cast<int (*)(sem_t *)>(dlsym(RTLD_NEXT, "sem_post"));
    if (watching)
        look();
    return real(semaphore);
}

class PublishHold : public EventTest {
  protected:
    void SetUp() override {
        EventTest::SetUp();
        posts = clients_without_entry = 0;
    }
    void TearDown() override {
        watching = false;
        EventTest::TearDown();
    }
};

TEST_F(PublishHold, NewClientAndItsEntriesBecomeVisibleTogether) {
    watching = true;
    published_client("02:ab:00:00:00:11", "192.168.0.20", HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE);
    EXPECT_EQ(1, posts);
    EXPECT_EQ(0, clients_without_entry);
}

TEST_F(PublishHold, FirstAddressAndItsEntryBecomeVisibleTogether) {
    hbs_client *client = hbs_add(mac_of("02:ab:00:00:00:11").data());
    hbs_publish(client);
    memcpy(client->ipv4, ipv4_of("192.168.0.20").data(), 4);
    watching = true;
    hbs_publish(client);
    EXPECT_EQ(1, posts);
    EXPECT_EQ(0, clients_without_entry);
}

TEST_F(PublishHold, PublishingAgainIsOneHoldToo_AndPublishesNobodyAnew) {
    hbs_client *client = hbs_add(mac_of("02:ab:00:00:00:11").data());
    hbs_publish_again(client);
    EXPECT_EQ(0U, clients_seen());
    hbs_publish(client);
    memcpy(client->ipv4, ipv4_of("192.168.0.20").data(), 4);
    watching = true;
    hbs_publish_again(client);
    EXPECT_EQ(1, posts);
    EXPECT_EQ(0, clients_without_entry);
    watching = false;
    EXPECT_EQ(0, memcmp(client->ipv4, seen("02:ab:00:00:00:11")->ipv4, 4));
}

TEST_F(PublishHold, LeaseThatTheFilesTellOfBecomesVisibleWithItsEntry) {
    write_file("/var/lib/misc/landhcps00.192.168.0.1.leases",
               "02:ab:00:00:00:11 192.168.0.20 900 laptop 1 a b c\n");
    hbs_client *client = hbs_add(mac_of("02:ab:00:00:00:11").data());
    hbs_publish(client);
    hbs_lease_timer_start(client, HBS_TIMER_DHCP_WAIT, 600);
    watching = true;
    hbs_lease_timer_expire(client, HBS_TIMER_DHCP_WAIT);
    EXPECT_EQ(0, clients_without_entry);
    watching = false;
    EXPECT_EQ(std::vector<std::string>{"200 1 4 192 168 0 20"}, ip_keys());
}
