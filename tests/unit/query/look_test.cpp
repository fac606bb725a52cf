// Reading while a writer is at work, with one and with more holders of the semaphore.
#include <atomic>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

#include "support/gateway.h"
#include "support/query_segment.h"

using namespace std::chrono_literals;

namespace look_test {

constexpr unsigned enough_looks = 400;

class QueryLook : public QuerySegment {};

// --- a writer at work -------------------------------------------------------------------------------------

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
    (void)wait_until([&] { return good >= enough_looks || torn != 0; });
    stop = true;
    writer.join();
    first.join();
    second.join();
    EXPECT_EQ(torn, 0u);
    EXPECT_GE(good, enough_looks) << "of " << good + other;
    EXPECT_EQ(holders_to_spare(), static_cast<int>(GetParam()));
}

std::string name_of(const testing::TestParamInfo<unsigned> &info) {
    return std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(Holders, QueryBesideAWriter, testing::Values(1u, 2u, 3u), name_of);

// Writers that stop in the middle of a record, beside a reader.
class QueryBesideAStop : public QuerySegment {
  protected:
    hbs_client *client = nullptr;
    hbs_client seen = {};

    void SetUp() override {
        QuerySegment::SetUp();
        client = publish(0, 3);
        write_generation(client, 1);
    }

    int find() { return hostbase_find_by_mac(mac_of(3).data(), &seen); }

    // Another process attaches the segment and admits one more holder, as a daemon that starts.
    void start_a_daemon() {
        const pid_t child = fork();
        if (child == 0)
            _exit(shmat(shm_id, nullptr, 0) != reinterpret_cast<void *>(-1) && sem_post(semaphore) == 0 ? 0
                                                                                                        : 1);
        int status = -1;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0);
    }

    // `longest`: a round in which the machine kept the writer away for longer is another one and counts for
    // nothing.
    void stop_in_records(unsigned wanted, std::chrono::milliseconds longest, auto before_each);
};

void QueryBesideAStop::stop_in_records(unsigned wanted, std::chrono::milliseconds longest, auto before_each) {
    unsigned rounds = 0;
    uint32_t generation = 1;
    const auto one_round = [&] {
        before_each();
        const auto begin = std::chrono::steady_clock::now();
        sem_wait(semaphore);
        generation++;
        hbs_client next = *client;
        write_generation(&next, generation);
        memcpy(reinterpret_cast<uint8_t *>(client) + 8, reinterpret_cast<uint8_t *>(&next) + 8, 300);
        auto end = begin;
        std::thread rest([&] {
            std::this_thread::sleep_for(500us);
            *client = next;
            sem_post(semaphore);
            end = std::chrono::steady_clock::now();
        });
        const int result = find();
        rest.join();
        if (end - begin > longest) {
            // The reader may have taken the writer for lost: it finds out now that two are admitted.
            EXPECT_EQ(find(), HOSTBASE_OK);
            return HasFailure();
        }
        rounds++;
        EXPECT_EQ(result, HOSTBASE_OK);
        EXPECT_TRUE(is_of_one_generation(seen)) << "generation " << generation;
        return rounds == wanted || HasFailure();
    };
    EXPECT_TRUE(wait_until(one_round)) << "rounds: " << rounds;
}

TEST_F(QueryBesideAStop, IsWaitedFor) {
    sem_post(semaphore); // two holders
    ASSERT_EQ(find(), HOSTBASE_OK);
    stop_in_records(48, 5ms, [] {});
}

TEST_F(QueryBesideAStop, AfterADaemonStarted_IsWaitedFor) {
    // Three pauses of a millisecond are what a reader learns from how many are admitted.
    stop_in_records(8, 3ms, [&] {
        while (holders_to_spare() > 1)
            (void)sem_trywait(semaphore);
        ASSERT_EQ(find(), HOSTBASE_OK);
        ASSERT_EQ(find(), HOSTBASE_OK) << "knows by now that one is admitted";
        start_a_daemon();
    });
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
        EXPECT_TRUE(wait_until([&] { return good > before; })) << "nobody reads segment " << i;
    }
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(holders_to_spare(), 1);
}

} // namespace look_test
