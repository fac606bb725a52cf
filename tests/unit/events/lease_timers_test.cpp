// What happens to a client when one of its timers expires.
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

#include "base/clock.h"
#include "base/date.h"
#include "files/rule_files.h"
#include "store/client_dates.h"
#include "store/client_fields.h"
#include "support/events.h"
#include "support/probes.h"

namespace lease_timers_test {

constexpr const char *MAC = "02:ab:00:00:00:11";
constexpr const char *LINE = "[02:ab:00:00:00:11] on Ethernet: index: 0 192.168.0.20 - no IPv6 - (no LL) - |";
constexpr const char *STATIC_LEASES = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
constexpr const char *DYNAMIC_LEASES = "/var/lib/misc/landhcps00.192.168.0.1.leases";

#ifdef __SANITIZE_THREAD__
constexpr bool TIMERS_CAN_RUN = false; // the sanitizer cannot follow the threads that the C library makes
#else
constexpr bool TIMERS_CAN_RUN = true;
#endif

class LeaseTimers : public EventTest {
  protected:
    hbs_client *client_ = nullptr;

    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        open_probes();
        client_ = published_client(MAC, "192.168.0.20", HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE);
        client_->lease_start_uptime = 5000;
        hbs_publish(client_);
        clear_log();
    }

    // Arms a kind for long and lets its expiry run now.
    void expire(int kind) {
        const hbs_list_hold hold;
        hbs_lease_timer_start(client_, kind, 600);
        hbs_lease_timer_expire(client_, kind);
        (void)serve_probes();
    }

    hbs_client published() {
        const std::optional<hbs_client> client = seen(MAC);
        EXPECT_TRUE(client.has_value());
        return client.value_or(hbs_client{});
    }

    bool is_gone() { return hbs_find_by_mac(mac_of(MAC).data()) == nullptr && !seen(MAC).has_value(); }
};

// --- any kind ---

struct Kind {
    int kind;
    const char *name;
};

class LeaseTimerKind : public LeaseTimers, public testing::WithParamInterface<Kind> {};

TEST_P(LeaseTimerKind, ExpiryReleasesTheHandleAndTheLock) {
    client_->trust = HBS_TRUST_SITE; // so that it stays
    expire(GetParam().kind);
    EXPECT_FALSE(hbs_client_timer_slot(client_, GetParam().kind)->exists);
    EXPECT_EQ(0u, client_->dhcp_wait_timer | client_->lease_timer | client_->online_timer);
    ASSERT_EQ(0, pthread_mutex_trylock(&hbs_list_mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&hbs_list_mutex));
}

TEST_P(LeaseTimerKind, RealTimerExpiresByItselfAndTheActionFindsTheClient) {
    if (!TIMERS_CAN_RUN)
        GTEST_SKIP();
    {
        const hbs_list_hold hold;
        client_->trust = HBS_TRUST_SITE;
        hbs_lease_timer_start(client_, GetParam().kind, 1);
    }
    const auto handle_is_gone = [&] {
        const hbs_list_hold hold;
        return !hbs_client_timer_slot(client_, GetParam().kind)->exists;
    };
    EXPECT_TRUE(wait_until(handle_is_gone));
}

INSTANTIATE_TEST_SUITE_P(Kinds, LeaseTimerKind,
                         testing::Values(Kind{HBS_TIMER_DHCP_WAIT, "DhcpWait"},
                                         Kind{HBS_TIMER_LEASE, "Lease"}, Kind{HBS_TIMER_ONLINE, "Online"}),
                         [](const auto &test) { return test.param.name; });

// --- DHCP wait ---

TEST_F(LeaseTimers, DhcpWaitFindsAStaticLease) {
    write_file(STATIC_LEASES, std::string(MAC) + " 192.168.0.77\n");
    expire(HBS_TIMER_DHCP_WAIT);
    EXPECT_EQ(HBS_FLAG_STIP4, published().flags & HBS_FLAGS_IP4);
    EXPECT_EQ(0u, published().flags & HBS_FLAG_TIMER_DHCPWAIT);
    EXPECT_EQ(1u, logged_containing("HOSTBASE: found static lease for [02:ab:00:00:00:11]"));
}

TEST_F(LeaseTimers, DhcpWaitFindsADynamicLease) {
    write_file(DYNAMIC_LEASES, std::string(MAC) + " 192.168.0.20 900 laptop 1 a b c\n");
    expire(HBS_TIMER_DHCP_WAIT);
    EXPECT_EQ(HBS_FLAG_DYNIP4, published().flags & HBS_FLAGS_IP4);
    EXPECT_STREQ("laptop", published().host);
    EXPECT_FALSE(hbs_date_is_zero(published().lease_end));
    EXPECT_NE(0u, published().flags & HBS_FLAG_TIMER_LEASE);
    EXPECT_EQ(1u, logged_containing("HOSTBASE: found dynamic lease (900) for [02:ab:00:00:00:11]"));
}

TEST_F(LeaseTimers, DhcpWaitWithoutALeaseMakesTheAddressTheUsers) {
    client_->ipv4[0] = client_->ipv4[1] = client_->ipv4[2] = client_->ipv4[3] = 0; // nobody to ask by NetBIOS
    expire(HBS_TIMER_DHCP_WAIT);
    EXPECT_EQ(HBS_FLAG_USRIP4, published().flags & HBS_FLAGS_IP4);
    EXPECT_NE(0u, published().flags & HBS_CHANGED);
    EXPECT_EQ(1u, logged_containing("HOSTBASE: no lease for [02:ab:00:00:00:11]"));
}

TEST_F(LeaseTimers, DhcpWaitThatWasStoppedMeanwhileLooksNothingUp) {
    write_file(STATIC_LEASES, std::string(MAC) + " 192.168.0.77\n");
    hbs_lease_timer_start(client_, HBS_TIMER_DHCP_WAIT, 600);
    hbs_clear_flags(client_, 0, HBS_FLAG_TIMER_DHCPWAIT);
    hbs_lease_timer_expire(client_, HBS_TIMER_DHCP_WAIT);
    EXPECT_EQ(HBS_FLAG_DYNIP4, client_->flags & HBS_FLAGS_IP4);
    EXPECT_EQ(0u, logged_containing("lease for"));
    EXPECT_FALSE(hbs_client_timer_slot(client_, HBS_TIMER_DHCP_WAIT)->exists);
}

// The files may hold placeholder lines with a MAC of zeros.
TEST_F(LeaseTimers, DhcpWaitOfAClientWithoutAMacTakesNoPlaceholdersLease) {
    write_file(STATIC_LEASES, "00:00:00:00:00:00 192.168.0.77\n");
    write_file(DYNAMIC_LEASES, "00:00:00:00:00:00 192.168.0.78 900 laptop 1 a b c\n");
    hbs_client *nomac = hbs_add(nullptr);
    hbs_publish(nomac);
    hbs_lease_timer_start(nomac, HBS_TIMER_DHCP_WAIT, 600);
    hbs_lease_timer_expire(nomac, HBS_TIMER_DHCP_WAIT);
    EXPECT_EQ(HBS_FLAG_USRIP4, nomac->flags & HBS_FLAGS_IP4);
    EXPECT_EQ(0U, nomac->flags & HBS_FLAG_TIMER_DHCPWAIT);
    EXPECT_STREQ("", nomac->host);
}

// --- a name that is asked for by NetBIOS ---

class LeaseTimersName : public LeaseTimers {
  protected:
    static constexpr const char *FOUND =
        "HOSTBASE:  Found HOSTNAME for 02:ab:00:00:00:11 through NBTSCAN as LAPTOP";

    void SetUp() override {
        LeaseTimers::SetUp();
        const std::string program = directory() + "/bin/nbtscan";
        write_file(program, "#!/bin/sh\ntouch " + directory() + "/asking\nwhile [ -e " + directory() +
                                "/wait ]; do sleep 0.01; done\necho $2 LAPTOP " + MAC + "\n");
        ASSERT_EQ(0, chmod(program.c_str(), 0755));
        setenv("PATH", (directory() + "/bin:/usr/bin:/bin").c_str(), 1);
    }

    void ask() {
        const hbs_list_hold hold;
        hbs_lease_timer_start(client_, HBS_TIMER_DHCP_WAIT, 600);
        hbs_lease_timer_expire(client_, HBS_TIMER_DHCP_WAIT);
    }
    bool was_asked() const { return file_exists(directory() + "/asking"); }
};

TEST_F(LeaseTimersName, IsTakenBeforeTheCheckEnds) {
    ask();
    EXPECT_EQ(HBS_FLAG_USRIP4, published().flags & HBS_FLAGS_IP4);
    EXPECT_EQ(0u, logged_containing("no lease for"));
    (void)serve_probes();
    EXPECT_STREQ("LAPTOP", published().host);
    const std::vector<std::string> lines = log_lines();
    const auto found = std::find(lines.begin(), lines.end(), FOUND);
    ASSERT_NE(lines.end(), found);
    EXPECT_EQ(0u, (found + 1)->find("HOSTBASE: no lease for [02:ab:00:00:00:11]")) << *(found + 1);
    EXPECT_NE(std::string::npos, (found + 1)->find("(LAPTOP)"));
}

TEST_F(LeaseTimersName, LockIsFreeWhileTheDeviceIsAsked) {
    write_file(directory() + "/wait", "");
    std::thread asker([this] {
        ask();
        (void)serve_probes();
    });
    EXPECT_TRUE(wait_until([this] { return was_asked(); }));
    const int taken = pthread_mutex_trylock(&hbs_list_mutex);
    if (taken == 0)
        (void)pthread_mutex_unlock(&hbs_list_mutex);
    std::filesystem::remove(directory() + "/wait");
    asker.join();
    EXPECT_EQ(0, taken);
    EXPECT_STREQ("LAPTOP", published().host);
}

TEST_F(LeaseTimersName, OfAClientThatIsGone_IsDropped) {
    ask();
    hbs_client_free(client_);
    (void)serve_probes();
    EXPECT_TRUE(was_asked());
    EXPECT_EQ(0u, logged_containing("LAPTOP"));
    EXPECT_EQ(0u, logged_containing("no lease for"));
}

// Several may have no MAC: each is known by its address.
TEST_F(LeaseTimersName, OfAClientWithoutMac_GoesToTheClientOfTheAddress) {
    const std::string program = directory() + "/bin/nbtscan";
    write_file(program, "#!/bin/sh\necho $2 NAME${2##*.} 00:00:00:00:00:00\n");
    hbs_client *clients[2];
    for (uint8_t i = 0; i < 2; ++i) {
        clients[i] = hbs_add(nullptr);
        hbs_set_ipv4(clients[i], ipv4_of("192.168.0.3" + std::to_string(i)).data());
        hbs_lease_timer_start(clients[i], HBS_TIMER_DHCP_WAIT, 600);
        hbs_lease_timer_expire(clients[i], HBS_TIMER_DHCP_WAIT);
    }
    EXPECT_EQ(2, serve_probes());
    EXPECT_STREQ("NAME30", clients[0]->host);
    EXPECT_STREQ("NAME31", clients[1]->host);
}

TEST_F(LeaseTimersName, DoesNotReplaceWhatALeaseSaidMeanwhile) {
    ask();
    hbs_clear_flags(client_, 0, HBS_FLAGS_IP4);
    hbs_set_flags(client_, 0, HBS_FLAG_DYNIP4);
    (void)serve_probes();
    EXPECT_STREQ("", client_->host);
    EXPECT_EQ(0u, logged_containing("no lease for"));
}

TEST_F(LeaseTimersName, ThatCannotBeAskedForInTime_CountsAsNone) {
    ask();
    hbs_clock_advance(2);
    (void)serve_probes();
    EXPECT_FALSE(was_asked());
    EXPECT_STREQ("", published().host);
    EXPECT_EQ(1u, logged_containing("HOSTBASE: no lease for [02:ab:00:00:00:11]"));
}

TEST_F(LeaseTimersName, BeyondTheShareOfAMinute_CountsAsNone) {
    for (int i = 0; i < 10; ++i) {
        ask();
        (void)serve_probes();
    }
    clear_log();
    ask();
    EXPECT_EQ(1u, logged_containing("HOSTBASE: no lease for [02:ab:00:00:00:11]"));
    EXPECT_EQ(0, serve_probes());
}

// --- lease ---

TEST_F(LeaseTimers, UnRememberedClientIsAnnouncedAndDeleted) {
    write_file("/var/tmp/lease.20", "x");
    std::strcpy(client_->lease_file, "lease.20");
    std::strcpy(client_->oui, "A1B2C3");
    std::strcpy(client_->serial_number, "SN-1");
    std::strcpy(client_->product_class, "PC-1");
    expire(HBS_TIMER_LEASE);
    EXPECT_TRUE(is_gone());
    EXPECT_TRUE(
        logged(std::string("HOSTBASE: Lease expired for un-remembered CPE ") + LINE + "DYNIP4|ONLINE|"));
    EXPECT_EQ(
        (std::vector<std::string>{
            "tr69 event 105 mac=\"02:AB:00:00:00:11\" number=0 adapter=1 ipv4=\"\" ipv6=\"\" ll=\"\" "
            "host=\"\" flag=0 oui=\"A1B2C3\" serial=\"SN-1\" class=\"PC-1\" format=1 head=zero tail=zero"}),
        journal_lines());
    EXPECT_FALSE(file_exists("/var/tmp/lease.20"));
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_TRUE(if_keys().empty());
}

TEST_F(LeaseTimers, DeletionLeavesTheOtherClients) {
    published_client("02:ab:00:00:00:12", "192.168.0.21", HBS_FLAG_DYNIP4);
    expire(HBS_TIMER_LEASE);
    EXPECT_TRUE(is_gone());
    EXPECT_TRUE(seen("02:ab:00:00:00:12").has_value());
    EXPECT_EQ(std::vector<std::string>{"200 1 4 192 168 0 21"}, ip_keys());
}

TEST_F(LeaseTimers, RealLeaseThatExpiresTakesTheClientAway) {
    if (!TIMERS_CAN_RUN)
        GTEST_SKIP();
    {
        const hbs_list_hold hold;
        hbs_lease_timer_start(client_, HBS_TIMER_LEASE, 1);
    }
    EXPECT_TRUE(wait_until([] { return clients_seen() == 0; }));
    EXPECT_TRUE(wait_until([this] { return journal_lines("tr69 event 105 ").size() == 1; }));
}

// Where servers tell leases again: the one of an address from before the user fixed another.
class LeaseTimersBesideAStaticLease : public LeaseTimers {
  protected:
    static constexpr const char *HOST_RECORDS = "/nvram/8/dhcpd/udhcpd.192.168.0.1.host";

    void SetUp() override {
        LeaseTimers::SetUp();
        set("leases.told_again", 1);
        write_file(STATIC_LEASES, std::string(MAC) + " 192.168.0.77\n");
        write_file(HOST_RECORDS, std::string(MAC) + " 192.168.0.77 0 null 1 null null null\n");
    }
    void expect_lease_alone_ended() {
        EXPECT_FALSE(is_gone());
        EXPECT_EQ(0u, published().flags & (HBS_FLAG_DYNIP4 | HBS_FLAG_TIMER_LEASE));
        EXPECT_TRUE(hbs_date_is_zero(published().lease_end));
        EXPECT_EQ(1u, journal_lines("tr69 event 105 ").size());
    }
};

TEST_F(LeaseTimersBesideAStaticLease, ClientAndLinesStay) {
    hbs_lease_set(client_, 600);
    expire(HBS_TIMER_LEASE);
    expect_lease_alone_ended();
    EXPECT_EQ(0u, published().flags & HBS_FLAG_ONLINE);
    EXPECT_EQ(std::string(MAC) + " 192.168.0.77\n", read_file(STATIC_LEASES));
    EXPECT_EQ(std::string(MAC) + " 192.168.0.77 0 null 1 null null null\n", read_file(HOST_RECORDS));
}

TEST_F(LeaseTimersBesideAStaticLease, OfACommandIsEnough) {
    write_file(STATIC_LEASES, "");
    hbs_set_commanded_lease(client_, true);
    expire(HBS_TIMER_LEASE);
    expect_lease_alone_ended();
}

TEST_F(LeaseTimersBesideAStaticLease, WhoIsStillHeardStaysOnLine) {
    set("presence.by_traffic", 1);
    learn(MAC, 1);
    expire(HBS_TIMER_LEASE);
    expect_lease_alone_ended();
    EXPECT_NE(0u, published().flags & HBS_FLAG_ONLINE);
}

TEST_F(LeaseTimersBesideAStaticLease, OfAnotherDeviceKeepsNobody) {
    write_file(STATIC_LEASES, "02:ab:00:00:00:12 192.168.0.77\n");
    expire(HBS_TIMER_LEASE);
    EXPECT_TRUE(is_gone());
}

TEST_F(LeaseTimersBesideAStaticLease, OnAGatewayTheClientGoesWithItsLines) {
    set("leases.told_again", 0);
    expire(HBS_TIMER_LEASE);
    EXPECT_TRUE(is_gone());
    EXPECT_EQ("", read_file(STATIC_LEASES));
}

class LeaseTimerTrust : public LeaseTimers, public testing::WithParamInterface<uint32_t> {};

TEST_P(LeaseTimerTrust, RememberedClientStays) {
    client_->trust = GetParam();
    expire(HBS_TIMER_LEASE);
    EXPECT_FALSE(is_gone());
    EXPECT_EQ(1u, logged_containing(std::string("HOSTBASE: Lease expired for remembered CPE ") + LINE));
    EXPECT_EQ(0u, logged_containing("un-remembered"));
    EXPECT_TRUE(journal_lines().empty());
}

INSTANTIATE_TEST_SUITE_P(Bits, LeaseTimerTrust, testing::Values(1u, 2u, 4u, 8u, 0x10u, 0x20u));

TEST_F(LeaseTimers, TrustBitAboveTheRememberedOnesDoesNotKeepTheClient) {
    client_->trust = 0x40;
    expire(HBS_TIMER_LEASE);
    EXPECT_TRUE(is_gone());
}

class LeaseTimerBoard : public LeaseTimers, public testing::WithParamInterface<int> {};

TEST_P(LeaseTimerBoard, UnRememberedClientIsOnlyLogged) {
    set("nvm.byte.60", GetParam());
    expire(HBS_TIMER_LEASE);
    EXPECT_FALSE(is_gone());
    EXPECT_EQ(1u, logged_containing(std::string("HOSTBASE: Lease expired for un-remembered CPE ") + LINE));
    EXPECT_TRUE(journal_lines().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, LeaseTimerBoard, testing::Values(7, 8, 9));

class LeaseTimerPlainBoard : public LeaseTimers, public testing::WithParamInterface<int> {};

TEST_P(LeaseTimerPlainBoard, UnRememberedClientIsDeleted) {
    set("nvm.byte.60", GetParam());
    expire(HBS_TIMER_LEASE);
    EXPECT_TRUE(is_gone());
    EXPECT_EQ(1u, journal_lines("tr69 event 105 ").size());
}

INSTANTIATE_TEST_SUITE_P(Modes, LeaseTimerPlainBoard, testing::Values(0, 6, 10));

// --- online ---

TEST_F(LeaseTimers, OnlineExpiryTakesTheClientOffLine) {
    const uint32_t since = client_->online_time;
    hbs_clock_advance(50);
    expire(HBS_TIMER_ONLINE);
    EXPECT_EQ(0u, published().flags & HBS_FLAG_ONLINE);
    EXPECT_EQ(0u, published().lease_start_uptime);
    EXPECT_GE(published().online_time, since + 50);
    EXPECT_EQ(HBS_FLAG_DYNIP4, published().flags & HBS_FLAGS_IP4);
}

TEST_F(LeaseTimers, OnlineExpiryOfAClientThatIsOffLineChangesNothing) {
    hbs_clear_flags(client_, 0, HBS_FLAG_ONLINE);
    const uint32_t since = client_->online_time;
    hbs_clock_advance(50);
    expire(HBS_TIMER_ONLINE);
    EXPECT_EQ(5000u, client_->lease_start_uptime);
    EXPECT_EQ(since, client_->online_time);
}

} // namespace lease_timers_test
