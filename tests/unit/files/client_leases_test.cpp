// What the lease files say of a client.
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/date.h"
#include "base/paths.h"
#include "base/state.h"
#include "base/text.h"
#include "files/client_leases.h"
#include "gateway/networks.h"
#include "gateway/own_macs.h"
#include "gateway/userconf.h"
#include "store/client_add.h"
#include "store/client_fields.h"
#include "store/client_text.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/publish.h"
#include "store/shm.h"
#include "support/netbios.h"
#include "support/probes.h"

namespace client_leases_test {

const std::string STATIC_1 = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";
const std::string STATIC_2 = "/nvram/8/dhcpd/udhcpd.192.168.1.1.static_leases";
const std::string HOST_1 = "/nvram/8/dhcpd/udhcpd.192.168.0.1.host";
const std::string DYNAMIC_1 = "/var/lib/misc/landhcps00.192.168.0.1.leases";
const std::string DYNAMIC_2 = "/var/lib/misc/landhcps00.192.168.1.1.leases";
constexpr uint8_t MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
constexpr uint32_t STATE =
    ~HBS_CHANGED_MASK & ~(HBS_FLAG_TIMER_LEASE | HBS_FLAG_TIMER_ONLINE | HBS_FLAG_TIMER_DHCPWAIT);

void ignore(hbs_client *) {}

class ClientLeases : public NetbiosTest {
  protected:
    void SetUp() override {
        NetbiosTest::SetUp();
        setenv("TZ", "UTC0", 1);
        hbs_list_mutex_init();
        hbs_rnd_status = -1;
        hbs_clients_init();
        hbs_shm_init();
        hbs_lease_timers_register(ignore, ignore, ignore);
        hostbase_set_internal_mac_range();
        open_probes();
        clear_log();
    }

    // Whether a lease was found or not: to the end of the check.
    static void check(hbs_client *client) {
        hbs_check_lease(client);
        (void)serve_probes();
    }

    hbs_client *add_client(const char *address = nullptr) {
        hbs_client *client = hbs_add(MAC);
        if (address != nullptr)
            hbs_set_ipv4(client, bytes_of(address).data());
        clear_log();
        return client;
    }

    static std::array<uint8_t, 4> bytes_of(const char *text) {
        std::array<unsigned, 4> parts{};
        sscanf(text, "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]);
        std::array<uint8_t, 4> bytes;
        for (size_t i = 0; i < 4; ++i)
            bytes[i] = static_cast<uint8_t>(parts[i]);
        return bytes;
    }

    static std::string address_of(const hbs_client *client) { return hbs_ipv4_to_text(client->ipv4).text; }
    static std::string text_of(const hbs_client *client) { return hbs_client_log_text(client).text; }
    static uint32_t state_of(const hbs_client *client) { return client->flags & STATE; }

    static std::array<uint8_t, 8> date_at(time_t when) {
        std::array<uint8_t, 8> date;
        hbs_date_from_time(when, date.data());
        return date;
    }
    static std::array<uint8_t, 8> array_of(const uint8_t date[8]) {
        std::array<uint8_t, 8> copy;
        memcpy(copy.data(), date, 8);
        return copy;
    }
    static bool is_about(const uint8_t date[8], time_t when) {
        for (time_t t = when - 2; t <= when + 2; ++t)
            if (array_of(date) == date_at(t))
                return true;
        return false;
    }

    // Published clients, in the order of the segment.
    static std::vector<const hbs_client *> published() {
        std::vector<const hbs_client *> found;
        const auto *base = reinterpret_cast<const char *>(hbs_segment());
        for (uint32_t at = hbs_segment()->clients.next; at != offsetof(hbs_db, clients);
             at = found.back()->next)
            found.push_back(reinterpret_cast<const hbs_client *>(base + at));
        return found;
    }

    // Index entries whose key ends with this IPv4 address.
    static int entries_of(const char *address) {
        const auto bytes = bytes_of(address);
        const auto *base = reinterpret_cast<const char *>(hbs_segment());
        int count = 0;
        for (uint32_t at = hbs_segment()->ip_index.next; at != offsetof(hbs_db, ip_index);) {
            const auto *entry = reinterpret_cast<const hbs_ip_entry *>(base + at);
            bool same = entry->count >= 4;
            for (uint32_t i = 0; same && i < 4; ++i)
                same = entry->key[entry->count - 4 + i] == bytes[i];
            count += same;
            at = entry->next;
        }
        return count;
    }
};

// --- hbs_check_lease ---
TEST_F(ClientLeases, CheckTakesADynamicLease) {
    hbs_client *client = add_client();
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4 | HBS_FLAG_STIP4);
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.50 3600 laptop 1 a b c\n");
    check(client);
    EXPECT_EQ(HBS_FLAG_DYNIP4, state_of(client));
    EXPECT_EQ("192.168.0.50", address_of(client));
    EXPECT_STREQ("laptop", client->host);
    EXPECT_TRUE(is_about(client->lease_end, hbs_time() + 3600));
    EXPECT_NE(0u, client->flags & HBS_FLAG_TIMER_LEASE);
    EXPECT_TRUE(logged("HOSTBASE: found dynamic lease (3600) for " + text_of(client)));
    EXPECT_TRUE(asked().empty());
}

TEST_F(ClientLeases, CheckTakesAStaticLease) {
    hbs_client *client = add_client("192.168.0.7");
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4 | HBS_FLAG_DYNIP4);
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.50\n");
    check(client);
    EXPECT_EQ(HBS_FLAG_STIP4, state_of(client));
    EXPECT_EQ("192.168.0.7", address_of(client)) << "only the flag comes from the static lease";
    EXPECT_TRUE(logged("HOSTBASE: found static lease for " + text_of(client)));
    EXPECT_EQ(0u, client->flags & HBS_FLAG_TIMER_LEASE);
}

TEST_F(ClientLeases, CheckOfAStaticLeaseSetsNoTimeInAnyBoardMode) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.50\n");
    hbs_client *client = add_client();
    for (int mode : {0, 7, 8, 9}) {
        set("nvm.byte.60", mode);
        check(client);
        EXPECT_TRUE(hbs_date_is_zero(client->lease_end)) << mode;
        EXPECT_EQ(0u, client->flags & HBS_FLAG_TIMER_LEASE) << mode;
    }
}

TEST_F(ClientLeases, CheckWithBothLeasesTakesHostAndAddressOfTheDynamicOne) {
    hbs_client *client = add_client();
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.50\n");
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.60 3600 laptop 1 a b c\n");
    check(client);
    EXPECT_EQ(HBS_FLAG_STIP4, state_of(client));
    EXPECT_EQ("192.168.0.60", address_of(client));
    EXPECT_STREQ("laptop", client->host);
    EXPECT_TRUE(hbs_date_is_zero(client->lease_end));
}

TEST_F(ClientLeases, CheckOfAClientInNoFileAsksNetbios) {
    hbs_client *client = add_client("192.168.0.50");
    hbs_set_flags(client, 0, HBS_FLAG_DYNIP4);
    set_answer("192.168.0.50 LAPTOP 02:aa:00:00:00:11\n");
    check(client);
    EXPECT_EQ(HBS_FLAG_USRIP4, state_of(client));
    EXPECT_STREQ("LAPTOP", client->host);
    EXPECT_EQ((std::vector<std::string>{"2 -q 192.168.0.50"}), asked());
    EXPECT_TRUE(logged("HOSTBASE: no lease for " + text_of(client)));
}

TEST_F(ClientLeases, CheckOfAClientWithoutAddressAsksNobody) {
    hbs_client *client = add_client();
    hbs_check_lease(client);
    EXPECT_EQ(HBS_FLAG_USRIP4, state_of(client));
    EXPECT_TRUE(logged("HOSTBASE: no lease for " + text_of(client)));
    EXPECT_EQ(0, serve_probes());
    EXPECT_FALSE(file_exists("/var/tmp/nbtlist"));
}

TEST_F(ClientLeases, CheckTakesALeaseOfNoSecondsForNone) {
    hbs_client *client = add_client();
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.50 0 laptop 1 a b c\n");
    check(client);
    EXPECT_EQ(HBS_FLAG_USRIP4, state_of(client));
    EXPECT_EQ("192.168.0.50", address_of(client));
    EXPECT_STREQ("laptop", client->host);
    EXPECT_EQ((std::vector<std::string>{"2 -q 192.168.0.50"}), asked());
    EXPECT_TRUE(hbs_date_is_zero(client->lease_end));
}

TEST_F(ClientLeases, CheckLeavesNoEntryOfAnOldAddress) {
    hbs_client *client = add_client("192.168.0.50");
    hbs_publish(client);
    ASSERT_EQ(1, entries_of("192.168.0.50"));
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.60 3600 laptop 1 a b c\n");
    check(client);
    EXPECT_EQ(0, entries_of("192.168.0.50"));
    EXPECT_EQ(1, entries_of("192.168.0.60"));
}

// --- static addresses ---
TEST_F(ClientLeases, StaticAddressComesFromTheStaticLeaseFiles) {
    hbs_client *client = add_client("192.168.0.7");
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4 | HBS_FLAG_DYNIP4 | HBS_FLAG_REACH);
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.50\n");
    EXPECT_EQ(1, hbs_check_static_ip(client));
    EXPECT_EQ("192.168.0.50", address_of(client));
    EXPECT_EQ(HBS_FLAG_STIP4 | HBS_FLAG_REACH, state_of(client));
    EXPECT_TRUE(logged("HOSTBASE: found static lease for " + text_of(client)));
}

TEST_F(ClientLeases, StaticAddressMayComeFromFilesOfTheUserConfiguration) {
    hbs_client *client = add_client("192.168.0.7");
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4);
    write_file(HBS_USERCONF, "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.203=$0A000001;\n");
    write_file("/nvram/8/dhcpd/udhcpd.10.0.0.1.static_leases", "02:aa:00:00:00:11 10.0.0.50\n");
    EXPECT_EQ(1, hbs_check_find_static_ip(client));
    EXPECT_EQ("10.0.0.50", address_of(client));
    EXPECT_EQ(HBS_FLAG_STIP4, state_of(client));
    EXPECT_TRUE(logged("HOSTBASE: (hbs_check_find_static_ip) found static lease for " + text_of(client)));
}

TEST_F(ClientLeases, WithoutAStaticLeaseNothingChanges) {
    hbs_client *client = add_client("192.168.0.7");
    hbs_set_flags(client, 0, HBS_FLAG_USRIP4);
    EXPECT_EQ(0, hbs_check_static_ip(client));
    EXPECT_EQ(0, hbs_check_find_static_ip(client));
    EXPECT_EQ("192.168.0.7", address_of(client));
    EXPECT_EQ(HBS_FLAG_USRIP4, state_of(client));
    EXPECT_EQ(0u, logged_containing("found static lease"));
}

TEST_F(ClientLeases, AStaticAddressLeavesNoEntryOfTheOldOne) {
    hbs_client *client = add_client("192.168.0.7");
    hbs_publish(client);
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.50\n");
    EXPECT_EQ(1, hbs_check_static_ip(client));
    EXPECT_EQ(0, entries_of("192.168.0.7"));
    hbs_publish(client);
    EXPECT_EQ(1, entries_of("192.168.0.50"));
}

TEST_F(ClientLeases, AClientsStaticLeasesAreDeletedByItsMac) {
    write_file(STATIC_1, "02:aa:00:00:00:11 192.168.0.50\n02:aa:00:00:00:12 192.168.0.51\n");
    write_file(HOST_1, "02:aa:00:00:00:11 192.168.0.50 0 laptop 1 a b c\n");
    hbs_lease_delete_client_static(add_client()->mac);
    EXPECT_EQ("02:aa:00:00:00:12 192.168.0.51\n", read_file(STATIC_1));
    EXPECT_EQ("", read_file(HOST_1));
}

// --- start-up from dynamic leases ---
TEST_F(ClientLeases, StartUpBuildsClientsFromAllFiles) {
    set("uptime", 500);
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.50 3600 laptop 7 a b c\n");
    write_file(DYNAMIC_2, "02:aa:00:00:00:12 192.168.1.50 0 phone 4294967295 d e f\n");
    write_file(STATIC_2, "02:aa:00:00:00:12 192.168.1.50\n");
    hbs_handle_dynamic_leases_from_file();

    ASSERT_EQ(2u, published().size());
    const hbs_client *laptop = hbs_client_first();
    EXPECT_EQ("02:aa:00:00:00:11", std::string(hbs_mac_to_text(laptop->mac).text));
    EXPECT_EQ(0, laptop->nwidx);
    EXPECT_EQ("192.168.0.50", address_of(laptop));
    EXPECT_STREQ("laptop", laptop->host);
    EXPECT_EQ(HBS_FLAG_DYNIP4 | HBS_FLAG_ONLINE, state_of(laptop));
    EXPECT_EQ(500u, laptop->lease_start_uptime);
    EXPECT_TRUE(is_about(laptop->lease_end, hbs_time() + 3600));
    EXPECT_NE(0u, laptop->flags & HBS_FLAG_TIMER_LEASE);
    EXPECT_EQ(1, entries_of("192.168.0.50"));

    const hbs_client *phone = hbs_client_next(laptop);
    ASSERT_NE(nullptr, phone);
    EXPECT_EQ("02:aa:00:00:00:12", std::string(hbs_mac_to_text(phone->mac).text));
    EXPECT_EQ(1, phone->nwidx);
    EXPECT_EQ(HBS_FLAG_STIP4, state_of(phone)) << "no lease time: not on line";
    EXPECT_EQ(0u, phone->lease_start_uptime);
    EXPECT_TRUE(hbs_date_is_zero(phone->lease_end));
    EXPECT_EQ(nullptr, hbs_client_next(phone));

    EXPECT_TRUE(logged("HOSTBASE: handle dynamic lease from file " + DYNAMIC_1 +
                       " : 02:aa:00:00:00:11, 192.168.0.50, laptop, 7, a, b, c"));
    EXPECT_TRUE(logged("HOSTBASE: handle dynamic lease from file " + DYNAMIC_2 +
                       " : 02:aa:00:00:00:12, 192.168.1.50, phone, -1, d, e, f"));
}

TEST_F(ClientLeases, StartUpSharesTheFilesWithOtherReaders) {
    write_file(DYNAMIC_1, "02:aa:00:00:00:11 192.168.0.50 0 laptop 7 a b c\n");
    const int other = open(DYNAMIC_1.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(other, LOCK_SH));
    hbs_handle_dynamic_leases_from_file(); // would wait for ever for an exclusive lock
    EXPECT_EQ(1u, published().size());
    close(other);
}

TEST_F(ClientLeases, StartUpLogsAMissingFile) {
    write_file(DYNAMIC_1, "");
    hbs_handle_dynamic_leases_from_file();
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: can't open " + DYNAMIC_2}), log_lines());
}

TEST_F(ClientLeases, StartUpIgnoresTheGatewaysOwnMacs) {
    write_file(DYNAMIC_1, "00:11:22:33:44:58 192.168.0.50 3600 self 1 a b c\n");
    hbs_handle_dynamic_leases_from_file();
    EXPECT_EQ(nullptr, hbs_client_first());
    EXPECT_TRUE(logged("HOSTBASE:  - ignore external mac 00:11:22:33:44:58, 192.168.0.50"));
}

TEST_F(ClientLeases, StartUpMakesNoClientFromGarbage) {
    write_file(DYNAMIC_1, "00:00:00:00:00:00 192.168.0.50 3600 zero 1 a b c\n"
                          "02:aa:00:00:00 192.168.0.51 3600 short 1 a b c\n"
                          "nonsense 192.168.0.52 3600 none 1 a b c\n"
                          "02:aa:00:00:00:13 nonsense 3600 noaddress 1 a b c\n"
                          "02:aa:00:00:00:14 192.168.0.54 3600 fewer 1 a b\n" +
                              std::string("02:aa:00:00:00:15 192.168.0.55 3600 n\0ul 1 a b c\n", 48) +
                              std::string(1 << 20, 'x') +
                              " 02:aa:00:00:00:16 192.168.0.56 3600 long 1 a b c\n" +
                              "02:aa:00:00:00:11 192.168.0.50 3600 $(reboot)'%n 1 a b c");
    hbs_handle_dynamic_leases_from_file();
    ASSERT_EQ(1u, published().size());
    EXPECT_STREQ("$(reboot)'%n", published()[0]->host);
    EXPECT_EQ(1u, logged_containing("ignore external mac"));
    EXPECT_TRUE(logged("HOSTBASE:  - ignore external mac 00:00:00:00:00:00, 192.168.0.50"));
}

TEST_F(ClientLeases, StartUpSurvivesAFullPool) {
    std::string text;
    for (int i = 0; i < HBS_MAX_WORKING + 3; ++i) {
        char line[128];
        snprintf(line, sizeof line, "02:aa:00:00:%02x:%02x 192.168.0.%d 0 h 1 a b c\n", i >> 8, i & 0xff,
                 1 + i % 250);
        text += line;
    }
    write_file(DYNAMIC_1, text);
    hbs_handle_dynamic_leases_from_file();
    EXPECT_LE(published().size(), static_cast<size_t>(HBS_MAX_CLIENTS));
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_WORKING + 3), logged_containing("handle dynamic lease from file"));
}

// Devices that the file calls on line, but that nobody has seen, must not keep newcomers out.
TEST_F(ClientLeases, StartUpTakesAsManyOnLineAsThereAreSlots) {
    std::string text;
    for (int i = 0; i < HBS_MAX_WORKING + 3; ++i) {
        char line[128];
        snprintf(line, sizeof line, "02:aa:00:00:%02x:%02x 192.168.0.%d 900 h 1 a b c\n", i >> 8, i & 0xff,
                 1 + i % 250);
        text += line;
    }
    write_file(DYNAMIC_1, text);
    hbs_handle_dynamic_leases_from_file();
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_CLIENTS), published().size());
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_WORKING + 3), logged_containing("handle dynamic lease from file"));
    for (int i = 0; i < HBS_MAX_WORKING - HBS_MAX_CLIENTS; ++i) {
        const uint8_t mac[6] = {0x02, 0xcc, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        hbs_client *client = hbs_add(mac);
        ASSERT_NE(nullptr, client) << i;
        client->flags = HBS_FLAG_ONLINE;
    }
}

} // namespace client_leases_test
