// When a client's leases began and end.
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "base/clock.h"
#include "base/date.h"
#include "store/client_dates.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "support/working_clients.h"

namespace client_dates_test {

std::atomic<uint32_t> expired_id{0};
void note_expiry(hbs_client *client) {
    expired_id = client->client_id;
}

using Date = std::array<uint8_t, 8>;

class ClientDates : public ClientsTest {
  protected:
    void SetUp() override {
        ClientsTest::SetUp();
        setenv("TZ", "UTC0", 1);
        hbs_lease_timers_register(note_expiry, note_expiry, note_expiry);
        clear_log();
    }

    // A new client, and the log empty.
    hbs_client *add_client(int number) {
        hbs_client *client = ::add_client(number);
        clear_log();
        return client;
    }

    static std::string text_of(const hbs_client *client) { return hbs_client_log_text(client).text; }

    static Date array_of(const uint8_t date[8]) {
        Date copy;
        memcpy(copy.data(), date, 8);
        return copy;
    }
    static bool is_about(const uint8_t date[8], time_t when) {
        for (time_t t = when - 2; t <= when + 2; ++t) {
            Date at;
            hbs_date_from_time(t, at.data());
            if (array_of(date) == at)
                return true;
        }
        return false;
    }
};

TEST_F(ClientDates, StartTimeIsTheUptime) {
    hbs_client *client = add_client(1);
    set("uptime", 12345);
    hbs_set_start_time(client);
    EXPECT_EQ(12345u, client->lease_start_uptime);
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: Added lease start time for  " + text_of(client)}),
              log_lines());
}

TEST_F(ClientDates, StartTimeStaysWhenThereIsNoUptime) {
    hbs_client *client = add_client(1);
    client->lease_start_uptime = 77;
    fail("MAIN_getSysUpTime", -1);
    hbs_set_start_time(client);
    EXPECT_EQ(77u, client->lease_start_uptime);
    EXPECT_EQ(
        (std::vector<std::string>{"hbs_set_start_time - failed to get system uptime from the kernel\n"}),
        log_lines());
}

TEST_F(ClientDates, LeaseSetsBothDatesAndTheTimer) {
    hbs_client *client = add_client(1);
    hbs_lease_set(client, 86400);
    EXPECT_TRUE(is_about(client->status_time, hbs_time()));
    EXPECT_TRUE(is_about(client->lease_end, hbs_time() + 86400));
    EXPECT_NE(0u, client->flags & HBS_FLAG_TIMER_LEASE);
    EXPECT_NE(0u, client->lease_timer);
    EXPECT_EQ(0u, client->dhcp_wait_timer | client->online_timer);
}

TEST_F(ClientDates, SecondLeaseKeepsTheStatusTimeAndMovesTheEnd) {
    hbs_client *client = add_client(1);
    hbs_lease_set(client, 100);
    const auto status = array_of(client->status_time);
    hbs_clock_advance(1000);
    hbs_lease_set(client, 100);
    EXPECT_EQ(status, array_of(client->status_time));
    EXPECT_TRUE(is_about(client->lease_end, hbs_time() + 100));
}

TEST_F(ClientDates, LeaseTimerFiresForTheClient) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer cannot follow the threads that the C library makes";
#endif
    hbs_client *client = add_client(1);
    hbs_lease_set(client, 1);
    EXPECT_TRUE(wait_until([&] { return expired_id == client->client_id; }));
}

TEST_F(ClientDates, LeaseOfNoSecondsDoesNothing) {
    hbs_client *client = add_client(1);
    hbs_lease_set(client, 0);
    EXPECT_TRUE(hbs_date_is_zero(client->status_time));
    EXPECT_TRUE(hbs_date_is_zero(client->lease_end));
    EXPECT_EQ(0u, client->flags & HBS_FLAG_TIMER_LEASE);
}

TEST_F(ClientDates, LeaseWithoutEndHasADate) {
    hbs_client *client = add_client(1);
    hbs_lease_set(client, 0xFFFFFFFFu);
    EXPECT_FALSE(hbs_date_is_zero(client->lease_end));
    if (sizeof(time_t) > 4)
        EXPECT_TRUE(is_about(client->lease_end, hbs_time() + static_cast<time_t>(0xFFFFFFFFu)));
}

TEST_F(ClientDates, LeaseV6EndIsAnAbsoluteTime) {
    hbs_client *client = add_client(1);
    hbs_leasev6_set(client, 1795222923); // 2026-11-21 01:02:03 UTC
    EXPECT_EQ((std::array<uint8_t, 8>{7, 0xEA, 11, 21, 1, 2, 3, 0}), array_of(client->lease_v6_end));
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: hbs_leasev6_set:BEGIN lease = 1795222923",
                                        "HOSTBASE: hbs_leasev6_set:END lease_v6_end = 7 234 11 21 1 2 3"}),
              log_lines());
    EXPECT_TRUE(hbs_date_is_zero(client->lease_end));
}

TEST_F(ClientDates, LeaseV6EndOfZeroSetsNoDate) {
    hbs_client *client = add_client(1);
    hbs_leasev6_set(client, 1795222923);
    clear_log();
    hbs_leasev6_set(client, 0);
    EXPECT_EQ((std::array<uint8_t, 8>{7, 0xEA, 11, 21, 1, 2, 3, 0}), array_of(client->lease_v6_end));
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: hbs_leasev6_set:BEGIN lease = 0"}), log_lines());
}

TEST_F(ClientDates, EndsAreCleared) {
    hbs_client *client = add_client(1);
    memset(client->lease_end, 1, 8);
    memset(client->lease_v6_end, 2, 8);
    hbs_clear_lease_end(client);
    EXPECT_TRUE(hbs_date_is_zero(client->lease_end));
    EXPECT_FALSE(hbs_date_is_zero(client->lease_v6_end));
    hbs_clear_lease_v6_end(client);
    EXPECT_TRUE(hbs_date_is_zero(client->lease_v6_end));
}

} // namespace client_dates_test
