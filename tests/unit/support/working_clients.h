// Fixture and helpers of the tests that work on clients: a fresh segment, empty lists, made-up clients, and
// the published database read back as a reader process would, by offset.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <semaphore.h>
#include <string>
#include <vector>

#include <hbs_db.h>

#include "base/state.h"
#include "files/client_removal.h"
#include "store/client_add.h"
#include "store/client_text.h"
#include "store/clients.h"
#include "store/publish.h"
#include "store/segment.h"
#include "store/shm.h"
#include "support/gateway.h"
#include "support/store_invariants.h"

using Mac = std::array<uint8_t, 6>;
using Ipv4 = std::array<uint8_t, 4>;
using Ipv6 = std::array<uint8_t, 16>;

inline Mac mac_number(unsigned n) {
    return {0x02, 0xaa, 0, 0, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
}

inline Ipv4 ipv4_number(unsigned n) {
    return {192, 168, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
}

inline Ipv6 ipv6_number(unsigned n) {
    return {
        0xfd, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
}

inline Ipv6 ll_number(unsigned n) {
    return {0xfe,
            0x80,
            0,
            0,
            0,
            0,
            0,
            0,
            0,
            0,
            0,
            0,
            0,
            0,
            static_cast<uint8_t>(n >> 8),
            static_cast<uint8_t>(n)};
}

inline hbs_client *add_client(unsigned n) {
    return hbs_add(mac_number(n).data());
}

inline hbs_client *add_published(unsigned n) {
    hbs_client *client = add_client(n);
    hbs_publish(client);
    return client;
}

// Elements of one shared list, walked by offset from its head; at most `limit` of them.
template <typename Entry>
std::vector<const Entry *> shared_list(const hbs_list_head &head, size_t limit = 400) {
    const uint8_t *base = reinterpret_cast<const uint8_t *>(hbs_segment());
    const uint32_t end = static_cast<uint32_t>(reinterpret_cast<const uint8_t *>(&head) - base);
    std::vector<const Entry *> entries;
    for (uint32_t offset = head.next; offset != end && entries.size() < limit;) {
        const void *at = base + offset;
        entries.push_back(static_cast<const Entry *>(at));
        offset = entries.back()->next;
    }
    return entries;
}

inline std::vector<const hbs_client *> published_clients() {
    return shared_list<hbs_client>(hbs_segment()->clients);
}

inline std::vector<const hbs_ip_entry *> ip_entries() {
    return shared_list<hbs_ip_entry>(hbs_segment()->ip_index);
}

inline std::vector<const hbs_ip_entry *> dhcp_entries() {
    return shared_list<hbs_ip_entry>(hbs_segment()->dhcp_index);
}

inline std::vector<const hbs_if_entry *> if_entries() {
    return shared_list<hbs_if_entry>(hbs_segment()->if_index);
}

inline std::vector<const hbs_pri_entry *> pri_entries() {
    return shared_list<hbs_pri_entry>(hbs_segment()->pri_index);
}

inline std::vector<const hbs_rule_entry *> rule_entries() {
    return shared_list<hbs_rule_entry>(hbs_segment()->rule_index);
}

// Published slot that holds the MAC, or null.
inline const hbs_client *published_of(const uint8_t mac[6]) {
    for (const hbs_client *slot : published_clients())
        if (memcmp(slot->mac, mac, 6) == 0)
            return slot;
    return nullptr;
}

inline std::vector<hbs_client *> working_clients() {
    std::vector<hbs_client *> clients;
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
        clients.push_back(client);
    return clients;
}

inline std::vector<hbs_client *> nomac_clients() {
    std::vector<hbs_client *> clients;
    for (hbs_client *client = hbs_nomac_first(); client != nullptr; client = hbs_nomac_next(client))
        clients.push_back(client);
    return clients;
}

// Value of the database semaphore: 1 = free.
inline int semaphore_value() {
    sem_t *semaphore = sem_open(HBS_SEMAPHORE_NAME, 0);
    if (semaphore == SEM_FAILED)
        return -1;
    int value = -1;
    sem_getvalue(semaphore, &value);
    sem_close(semaphore);
    return value;
}

// The text that "%p" gives for a position in the segment.
inline std::string position_text(uint32_t dbpos) {
    char text[32];
    snprintf(text, sizeof text, "%p", hbs_dbpos_for_log(dbpos));
    return text;
}

// The published copy at a position of the segment.
inline const hbs_client *slot_at(uint32_t dbpos) {
    const void *at = reinterpret_cast<const uint8_t *>(hbs_segment()) + dbpos;
    return static_cast<const hbs_client *>(at);
}

// Whether two records are equal behind their links.
inline bool same_record(const hbs_client *a, const hbs_client *b) {
    constexpr size_t links = offsetof(hbs_client, dbpos);
    return memcmp(reinterpret_cast<const char *>(a) + links, reinterpret_cast<const char *>(b) + links,
                  sizeof *a - links) == 0;
}

// All bytes of the segment, to tell that nothing in it has changed.
inline std::string segment_bytes() {
    return {reinterpret_cast<const char *>(hbs_segment()), HBS_SHM_SIZE};
}

constexpr const char *NO_SLOT = "HOSTBASE: Failed to alloc new client from shared memory";

class ClientsTest : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        if (HasFatalFailure())
            return;
        hbs_list_mutex_init();
        hbs_clients_init();
        hbs_client_end_register(hbs_client_drop_files);
        hbs_shm_init();
        ASSERT_NE(nullptr, hbs_segment());
        clear_log();
    }

    // Every operation leaves the database sound and the semaphore as it found it.
    void TearDown() override {
        if (!HasFatalFailure())
            expect_store_sound();
        EXPECT_EQ(1, semaphore_value());
        GatewayTest::TearDown();
    }
};

// One client, its flags and the log empty.
class OneClientTest : public ClientsTest {
  protected:
    void SetUp() override {
        ClientsTest::SetUp();
        client_ = add_client(1);
        client_->flags = 0;
        clear_log();
    }
    hbs_client *client_ = nullptr;
};

// A client pool that can be filled.
class PublishTest : public ClientsTest {
  protected:
    // 96 published clients with MAC numbers 1-96, all on line.
    static std::vector<hbs_client *> fill() {
        std::vector<hbs_client *> clients;
        for (unsigned n = 1; n <= HBS_MAX_CLIENTS; ++n) {
            clients.push_back(add_client(n));
            clients.back()->flags = HBS_FLAG_ONLINE;
            clients.back()->online_time = 1000 + n;
            hbs_publish(clients.back());
        }
        EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), published_clients().size());
        return clients;
    }
    static void go_offline(hbs_client *client, uint32_t online_time) {
        client->flags &= ~HBS_FLAG_ONLINE;
        client->online_time = online_time;
        hbs_shm_commit(client);
    }
};
