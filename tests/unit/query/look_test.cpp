// Reading while a writer is at work, with one and with more holders of the semaphore.
#include <atomic>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

#include "support/query_segment.h"

using namespace std::chrono_literals;

namespace look_test {

class QueryLook : public QuerySegment {};

// --- a writer at work
// ----------------------------------------------------------------------------------------

// Every text and figure of a record comes from one number, so that a mixture of two writes shows.
void write_generation(hbs_client *client, uint32_t generation) {
    hbs_client next = *client;
    snprintf(next.host, sizeof next.host, "host-%u", generation);
    snprintf(next.domain_list, sizeof next.domain_list, "host-%u", generation);
    for (uint32_t &figure : next.wifi_link_info)
        figure = generation;
    next.client_id = generation;
    next.mac_filter = static_cast<int32_t>(generation);
    memcpy(reinterpret_cast<uint8_t *>(client) + 8, reinterpret_cast<uint8_t *>(&next) + 8, sizeof next - 8);
}

bool is_of_one_generation(const hbs_client &client) {
    std::string expected = "host-" + std::to_string(client.client_id);
    return expected == client.host && expected == client.domain_list &&
           client.wifi_link_info[0] == client.client_id && client.wifi_link_info[4] == client.client_id &&
           client.mac_filter == static_cast<int32_t>(client.client_id);
}

class QueryBesideAWriter : public QuerySegment, public testing::WithParamInterface<unsigned> {
  protected:
    std::atomic<bool> stop = false;

    void write_until_stopped() {
        for (uint32_t generation = 1; !stop; generation++) {
            (void)sem_wait(semaphore);
            write_generation(&db->client_pool[generation % 8], generation);
            (void)sem_post(semaphore);
            if (generation % 4 == 0)
                std::this_thread::sleep_for(100us);
        }
    }
};

TEST_P(QueryBesideAWriter, NoTornRecordIsEverAccepted) {
    for (unsigned i = 1; i < GetParam(); i++)
        sem_post(semaphore); // as each restart of the daemon does
    for (unsigned slot = 0; slot < 8; slot++)
        write_generation(publish(slot, slot + 1), 1);
    std::atomic<unsigned> torn = 0, good = 0, other = 0;
    auto read_records = [&] {
        while (!stop) {
            hbs_client client;
            int result = hostbase_find_by_mac(mac_of(3).data(), &client);
            (result != HOSTBASE_OK ? other : is_of_one_generation(client) ? good : torn)++;
        }
    };
    auto read_lists = [&] {
        std::vector<hbs_client> clients(HBS_MAX_CLIENTS);
        while (!stop) {
            size_t count = 0;
            int result = hostbase_get_clients(clients.data(), clients.size(), &count);
            bool whole = count == 8;
            for (size_t i = 0; i < count; i++) {
                whole = whole && is_of_one_generation(clients[i]);
            }
            (result != HOSTBASE_OK ? other : whole ? good : torn)++;
        }
    };
    std::thread writer([&] { write_until_stopped(); });
    std::thread first(read_records), second(read_lists);
    std::this_thread::sleep_for(1500ms);
    stop = true;
    writer.join();
    first.join();
    second.join();
    EXPECT_EQ(torn, 0u);
    EXPECT_GT(good, 20u) << "of " << good + other;
    EXPECT_EQ(holders_to_spare(), static_cast<int>(GetParam()));
}

std::string name_of(const testing::TestParamInfo<unsigned> &info) {
    return std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(Holders, QueryBesideAWriter, testing::Values(1u, 2u, 3u), name_of);

TEST_F(QueryLook, AWriterThatStopsInTheMiddleOfARecordIsWaitedFor) {
    sem_post(semaphore); // two holders
    hbs_client *client = publish(0, 3);
    write_generation(client, 1);
    hbs_client seen;
    ASSERT_EQ(hostbase_find_by_mac(mac_of(3).data(), &seen), HOSTBASE_OK);
    for (uint32_t generation = 2; generation < 50; generation++) {
        sem_wait(semaphore);
        hbs_client next = *client;
        write_generation(&next, generation);
        memcpy(reinterpret_cast<uint8_t *>(client) + 8, reinterpret_cast<uint8_t *>(&next) + 8, 300);
        std::thread rest([&] {
            std::this_thread::sleep_for(500us);
            *client = next;
            sem_post(semaphore);
        });
        int result = hostbase_find_by_mac(mac_of(3).data(), &seen);
        rest.join();
        ASSERT_EQ(result, HOSTBASE_OK);
        ASSERT_TRUE(is_of_one_generation(seen)) << "generation " << generation;
    }
}

TEST_F(QueryLook, ThreadsReadWhileTheSegmentIsMadeAnewAgainAndAgain) {
    std::atomic<bool> stop = false;
    std::atomic<unsigned> good = 0, wrong = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 6; i++) {
        readers.emplace_back([&] {
            while (!stop) {
                size_t count = 0;
                int result = hostbase_get_clients(nullptr, 0, &count);
                good += result == HOSTBASE_OK;
                // Between a segment's making and its first links nothing agrees; and while threads still
                // read several that are gone, there is no room for one more.
                wrong += result != HOSTBASE_OK && result != HOSTBASE_NO_SEGMENT &&
                         result != HOSTBASE_UNSTABLE && result != HOSTBASE_NO_MEMORY;
            }
        });
    }
    for (int i = 0; i < 40; i++) {
        remove_segment();
        make_segment();
        const unsigned before = good;
        for (int waited = 0; good == before && waited < 5000; waited++)
            std::this_thread::sleep_for(1ms);
        EXPECT_GT(good, before) << "nobody reads segment " << i;
    }
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(holders_to_spare(), 1);
}

} // namespace look_test
