// What the SNMP agent library finds in the process that loads it.
#include <algorithm>
#include <cstring>
#include <ostream>
#include <thread>

#include "export/rwlock.h"
#include "export/snmp_callbacks.h"
#include "support/printed.h"
#include "support/waiting_call.h"

namespace snmp_callbacks_test {

using Arcs = std::vector<uint32_t>;

const Arcs UDP = {1, 3, 6, 1, 6, 1, 1};
const Arcs UDP_V4 = {1, 3, 6, 1, 2, 1, 100, 1, 1};
const Arcs UDP_V6 = {1, 3, 6, 1, 2, 1, 100, 1, 2};

snmpa_oid oid_of(Arcs &arcs) {
    return {static_cast<uint32_t>(arcs.size()), arcs.data()};
}

snmpa_octets octets_of(std::vector<uint8_t> &bytes) {
    return {static_cast<uint32_t>(bytes.size()), bytes.data()};
}

std::vector<uint8_t> ipv6_octets() {
    std::vector<uint8_t> bytes(18);
    for (uint8_t i = 0; i < 16; ++i)
        bytes[i] = static_cast<uint8_t>(0xa0 + i);
    bytes[16] = 0x12;
    bytes[17] = 0x34;
    return bytes;
}

class SnmpCallbacks : public GatewayTest {
  protected:
    // What `print` writes to standard output.
    template <typename Print> std::string printed_by(Print print) {
        const Printed printed(directory() + "/printed");
        print();
        return printed.text();
    }
};

// --- objects ---

TEST_F(SnmpCallbacks, TextsAreEmptyBuffersOf255Bytes) {
    for (const char *text : {snmp_sysDescr, snmp_sysContact, snmp_sysLocation})
        EXPECT_TRUE(std::all_of(text, text + 255, [](char byte) { return byte == 0; }));
    EXPECT_EQ(255u, sizeof snmp_sysDescr);
    EXPECT_EQ(255u, sizeof snmp_sysContact);
    EXPECT_EQ(255u, sizeof snmp_sysLocation);
}

TEST_F(SnmpCallbacks, ObjectIdIsFourteenZeroArcs) {
    ASSERT_EQ(14u, snmp_sysObjectID.count);
    EXPECT_EQ(Arcs(14, 0), Arcs(snmp_sysObjectID.arcs, snmp_sysObjectID.arcs + 14));
}

TEST_F(SnmpCallbacks, DomainsAreTheirObjectIds) {
    EXPECT_EQ(UDP, Arcs(std::begin(udpdomain), std::end(udpdomain)));
    EXPECT_EQ(UDP_V4, Arcs(std::begin(udptransportdomainV4), std::end(udptransportdomainV4)));
    EXPECT_EQ(UDP_V6, Arcs(std::begin(udptransportdomainV6), std::end(udptransportdomainV6)));
}

TEST_F(SnmpCallbacks, TreeIsThreeZeroWordsAndTheAllocationListIsEmpty) {
    EXPECT_EQ(3u, std::size(mib_root_node.word));
    for (const void *word : mib_root_node.word)
        EXPECT_EQ(nullptr, word);
    EXPECT_EQ(&snmp_allocs, snmp_allocs.next);
    EXPECT_EQ(&snmp_allocs, snmp_allocs.prev);
}

TEST_F(SnmpCallbacks, InitialisationClearsTheStatistics) {
    EXPECT_EQ(172u, sizeof snmp_stats);
    memset(&snmp_stats, 0xff, sizeof snmp_stats);
    EXPECT_EQ(0, snmpvars_init());
    EXPECT_TRUE(std::all_of(std::begin(snmp_stats.counter), std::end(snmp_stats.counter),
                            [](uint32_t counter) { return counter == 0; }));
}

// --- memory ---

TEST_F(SnmpCallbacks, MemoryCanBeTakenAndGivenBack) {
    void *memory = USER_malloc(100);
    ASSERT_NE(nullptr, memory);
    memset(memory, 1, 100);
    USER_free(memory);
    USER_free(nullptr);
}

// The address sanitizer's build tells when the block is not freed, or a word beside it is.
TEST_F(SnmpCallbacks, PrivateDataIsTheThirdWord) {
    int other = 0;
    const snmpa_object object = {{&other, &other}, USER_malloc(100)};
    static_assert(offsetof(snmpa_object, private_data) == 2 * sizeof(void *));
    ASSERT_NE(nullptr, object.private_data);
    USER_release_private(&object);
}

TEST_F(SnmpCallbacks, EncodeBufferGetsABlock) {
    snmpa_encode_buffer buffer{};
    EXPECT_EQ(0, USER_user_get_encode_buffer(nullptr, 300, &buffer));
    ASSERT_NE(nullptr, buffer.start);
    EXPECT_EQ(1, buffer.flag);
    EXPECT_EQ(buffer.start, buffer.next);
    EXPECT_EQ(300u, buffer.remaining);
    memset(buffer.start, 1, 300);
    USER_free(buffer.start);
}

TEST_F(SnmpCallbacks, DumpPrintsEveryNotedAllocation) {
    snmpa_alloc first{};
    snmpa_alloc second{};
    first = {&second, &snmp_allocs, reinterpret_cast<void *>(uintptr_t{0x1234}), 24, "oid.c", 7};
    second = {&snmp_allocs, &first, reinterpret_cast<void *>(uintptr_t{0xfedcba98}), 1000, "pdu.c", 321};
    snmp_allocs.next = &first;
    snmp_allocs.prev = &second;
    EXPECT_EQ("USER_free_dump - enter\n"
              "SNMP MEM DUMP : have alloc at 0x00001234 size 24 from oid.c, line 7\n"
              "SNMP MEM DUMP : have alloc at 0xfedcba98 size 1000 from pdu.c, line 321\n"
              "USER_free_dump - exit\n",
              printed_by(USER_free_dump));
    snmp_allocs.next = snmp_allocs.prev = &snmp_allocs;
    EXPECT_EQ("USER_free_dump - enter\nUSER_free_dump - exit\n", printed_by(USER_free_dump));
}

TEST_F(SnmpCallbacks, DumpWaitsForTheListLock) {
    snmpa_alloc note = {&snmp_allocs, &snmp_allocs, nullptr, 1, "a.c", 1};
    const Printed printed(directory() + "/printed");
    pthread_mutex_lock(&listlock);
    WaitingCall dumper(USER_free_dump);
    EXPECT_TRUE(wait_until([&] { return printed.text() == "USER_free_dump - enter\n"; }));
    EXPECT_TRUE(dumper.is_waiting());
    EXPECT_EQ("USER_free_dump - enter\n", printed.text());
    snmp_allocs.next = snmp_allocs.prev = &note;
    pthread_mutex_unlock(&listlock);
    dumper.join();
    EXPECT_NE(std::string::npos, printed.text().find("size 1 from a.c, line 1\nUSER_free_dump - exit\n"));
    EXPECT_EQ(0, pthread_mutex_trylock(&listlock));
    pthread_mutex_unlock(&listlock);
    snmp_allocs.next = snmp_allocs.prev = &snmp_allocs;
}

// --- time ---

uint32_t wall_clock_ms() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec / 1000);
}

TEST_F(SnmpCallbacks, NowIsTheWallClockInMilliseconds) {
    const uint32_t before = wall_clock_ms();
    const uint32_t now = USER_now();
    const uint32_t after = wall_clock_ms();
    EXPECT_LE(now - before, after - before);
}

std::vector<int32_t> expiries;

void note_expiry(int32_t remaining) {
    expiries.push_back(remaining);
}

void note_and_set_again(int32_t remaining) {
    expiries.push_back(remaining);
    USER_Call_Timer(60000, note_expiry);
}

class SnmpTimer : public SnmpCallbacks {
  protected:
    timeval wait_{77, 77};

    void SetUp() override {
        SnmpCallbacks::SetUp();
        expiries.clear();
    }

    void process() { EXPECT_EQ(1, USER_Process_Timeout(&wait_)); }

    void expect_a_second() const {
        EXPECT_EQ(1, wait_.tv_sec);
        EXPECT_EQ(0, wait_.tv_usec);
    }
};

TEST_F(SnmpTimer, NonePendingWaitsASecond) {
    process();
    expect_a_second();
}

TEST_F(SnmpTimer, FarOneWaitsASecond) {
    USER_Call_Timer(60000, note_expiry);
    process();
    expect_a_second();
    EXPECT_TRUE(expiries.empty());
}

TEST_F(SnmpTimer, NearOneWaitsForTheRest) {
    USER_Call_Timer(999, note_expiry);
    process();
    EXPECT_EQ(0, wait_.tv_sec);
    EXPECT_GT(wait_.tv_usec, 400000);
    EXPECT_LE(wait_.tv_usec, 999000);
    EXPECT_EQ(0, wait_.tv_usec % 1000);
    EXPECT_TRUE(expiries.empty());
}

TEST_F(SnmpTimer, DueOneIsCalledOnce) {
    USER_Call_Timer(0, note_expiry);
    process();
    expect_a_second();
    ASSERT_EQ(1u, expiries.size());
    EXPECT_LE(expiries[0], 0);
    EXPECT_GT(expiries[0], -1000);
    process();
    EXPECT_EQ(1u, expiries.size());
}

TEST_F(SnmpTimer, LateOneIsToldHowLate) {
    USER_Call_Timer(1, note_expiry);
    sleep_milliseconds(51);
    process();
    ASSERT_EQ(1u, expiries.size());
    EXPECT_LE(expiries[0], -50);
}

TEST_F(SnmpTimer, NewOneReplacesTheOld) {
    USER_Call_Timer(0, note_expiry);
    USER_Call_Timer(60000, note_expiry);
    process();
    EXPECT_TRUE(expiries.empty());
}

TEST_F(SnmpTimer, CallbackMaySetItAgain) {
    USER_Call_Timer(0, note_and_set_again);
    process();
    process();
    EXPECT_EQ(1u, expiries.size());
    USER_Call_Timer(0, note_expiry);
    process();
    EXPECT_EQ(2u, expiries.size());
}

// --- addresses ---

struct DomainCase {
    Arcs arcs;
    int family; // 0 = refused
};

void PrintTo(const DomainCase &of, std::ostream *out) {
    for (uint32_t arc : of.arcs)
        *out << "." << arc;
}

class SnmpDomain : public SnmpCallbacks, public testing::WithParamInterface<DomainCase> {};

TEST_P(SnmpDomain, DecidesTheFamily) {
    Arcs arcs = GetParam().arcs;
    std::vector<uint8_t> bytes = ipv6_octets();
    const snmpa_oid domain = oid_of(arcs);
    const snmpa_octets octets = octets_of(bytes);
    snmpa_address address;
    memset(&address, 0xee, sizeof address);
    const snmpa_address untouched = address;
    EXPECT_EQ(GetParam().family == 0 ? -1 : 0, USER_taddress_to_snmpaddr(&address, &domain, &octets));
    if (GetParam().family == 0)
        EXPECT_EQ(0, memcmp(&address, &untouched, sizeof address));
    else
        EXPECT_EQ(GetParam().family, address.v4.sin_family);
}

INSTANTIATE_TEST_SUITE_P(Domains, SnmpDomain,
                         testing::Values(DomainCase{UDP, 2}, DomainCase{UDP_V4, 2}, DomainCase{UDP_V6, 10},
                                         DomainCase{{}, 0}, DomainCase{{1, 3, 6, 1, 6, 1}, 0},
                                         DomainCase{{1, 3, 6, 1, 6, 1, 2}, 0},
                                         DomainCase{{1, 3, 6, 1, 6, 1, 1, 1}, 0},
                                         DomainCase{{1, 3, 6, 1, 2, 1, 100, 1, 3}, 0},
                                         DomainCase{{1, 3, 6, 1, 2, 1, 100, 1, 1, 1}, 0}));

TEST_F(SnmpCallbacks, OctetsBecomeAnIpv4SocketAddressOf16Bytes) {
    Arcs arcs = UDP;
    std::vector<uint8_t> bytes = {192, 168, 0, 9, 0x12, 0x34};
    const snmpa_oid domain = oid_of(arcs);
    const snmpa_octets octets = octets_of(bytes);
    uint8_t out[sizeof(snmpa_address)];
    memset(out, 0xee, sizeof out);
    ASSERT_EQ(0, USER_taddress_to_snmpaddr(reinterpret_cast<snmpa_address *>(out), &domain, &octets));
    sockaddr_in expected{};
    expected.sin_family = 2;
    memcpy(&expected.sin_addr, bytes.data(), 4);
    expected.sin_port = htons(0x1234);
    EXPECT_EQ(0, memcmp(&expected, out, 16));
    EXPECT_TRUE(std::all_of(out + 16, out + 28, [](uint8_t byte) { return byte == 0xee; }));
}

TEST_F(SnmpCallbacks, OctetsBecomeAnIpv6SocketAddressOf28Bytes) {
    Arcs arcs = UDP_V6;
    std::vector<uint8_t> bytes = ipv6_octets();
    const snmpa_oid domain = oid_of(arcs);
    const snmpa_octets octets = octets_of(bytes);
    snmpa_address out;
    memset(&out, 0xee, sizeof out);
    ASSERT_EQ(0, USER_taddress_to_snmpaddr(&out, &domain, &octets));
    sockaddr_in6 expected{};
    expected.sin6_family = 10;
    memcpy(&expected.sin6_addr, bytes.data(), 16);
    expected.sin6_port = htons(0x1234);
    EXPECT_EQ(0, memcmp(&expected, &out, 28));
}

TEST_F(SnmpCallbacks, TooFewOctetsAreRefused) {
    Arcs v4 = UDP_V4;
    Arcs v6 = UDP_V6;
    std::vector<uint8_t> five(5);
    std::vector<uint8_t> seventeen(17);
    snmpa_address out{};
    const snmpa_oid v4_domain = oid_of(v4);
    const snmpa_oid v6_domain = oid_of(v6);
    const snmpa_octets short4 = octets_of(five);
    const snmpa_octets short6 = octets_of(seventeen);
    EXPECT_EQ(-1, USER_taddress_to_snmpaddr(&out, &v4_domain, &short4));
    EXPECT_EQ(-1, USER_taddress_to_snmpaddr(&out, &v6_domain, &short6));
}

class SnmpSocketAddress : public SnmpCallbacks {
  protected:
    snmpa_oid domain_{};
    snmpa_octets octets_{};

    void TearDown() override {
        Clean_Obj_ID(&domain_);
        SNMPA_CleanOctets(&octets_);
        SnmpCallbacks::TearDown();
    }

    Arcs domain() const { return {domain_.arcs, domain_.arcs + domain_.count}; }
    std::vector<uint8_t> octets() const { return {octets_.bytes, octets_.bytes + octets_.length}; }

    static snmpa_address ipv4() {
        snmpa_address address{};
        const uint8_t bytes[4] = {10, 20, 30, 40};
        address.v4.sin_family = 2;
        memcpy(&address.v4.sin_addr, bytes, 4);
        address.v4.sin_port = htons(0x00a1);
        return address;
    }

    static snmpa_address ipv6() {
        snmpa_address address{};
        address.v6.sin6_family = 10;
        memcpy(&address.v6.sin6_addr, ipv6_octets().data(), 16);
        address.v6.sin6_port = htons(0x1234);
        return address;
    }
};

TEST_F(SnmpSocketAddress, Ipv4BecomesTheOldDomainAndSixOctets) {
    const snmpa_address address = ipv4();
    ASSERT_EQ(0, USER_snmpaddr_to_taddress(&address, &domain_, &octets_));
    EXPECT_EQ(UDP, domain());
    EXPECT_EQ((std::vector<uint8_t>{10, 20, 30, 40, 0x00, 0xa1}), octets());
}

TEST_F(SnmpSocketAddress, Ipv6BecomesItsDomainAnd18Octets) {
    const snmpa_address address = ipv6();
    ASSERT_EQ(0, USER_snmpaddr_to_taddress(&address, &domain_, &octets_));
    EXPECT_EQ(UDP_V6, domain());
    EXPECT_EQ(ipv6_octets(), octets());
}

TEST_F(SnmpSocketAddress, BothFamiliesComeBackAsTheyWere) {
    for (const snmpa_address &address : {ipv4(), ipv6()}) {
        snmpa_address back{};
        ASSERT_EQ(0, USER_snmpaddr_to_taddress(&address, &domain_, &octets_));
        ASSERT_EQ(0, USER_taddress_to_snmpaddr(&back, &domain_, &octets_));
        EXPECT_EQ(0, memcmp(&address, &back, sizeof back));
        Clean_Obj_ID(&domain_);
        SNMPA_CleanOctets(&octets_);
    }
}

TEST_F(SnmpSocketAddress, OtherFamiliesAreRefused) {
    for (int family : {0, 1, 3, 9, 11, 512, 2560}) {
        snmpa_address address = ipv4();
        address.v4.sin_family = static_cast<sa_family_t>(family);
        EXPECT_EQ(-1, USER_snmpaddr_to_taddress(&address, &domain_, &octets_)) << family;
    }
    EXPECT_EQ(nullptr, domain_.arcs);
    EXPECT_EQ(nullptr, octets_.bytes);
}

TEST_F(SnmpSocketAddress, DomainIsFreedWhenTheOctetsCannotBeLoaded) {
    fail("SNMPA_LoadOctets", -1);
    for (const snmpa_address &address : {ipv4(), ipv6()}) {
        EXPECT_EQ(-1, USER_snmpaddr_to_taddress(&address, &domain_, &octets_));
        EXPECT_EQ(nullptr, domain_.arcs);
        EXPECT_EQ(0u, domain_.count);
        EXPECT_EQ(0u, octets_.length);
    }
}

TEST_F(SnmpSocketAddress, DomainThatCannotBeLoadedIsAFailureToo) {
    fail("SNMPA_LoadObjID", -1);
    const snmpa_address address = ipv4();
    EXPECT_EQ(-1, USER_snmpaddr_to_taddress(&address, &domain_, &octets_));
    EXPECT_EQ(nullptr, octets_.bytes);
}

// --- requests ---

TEST_F(SnmpCallbacks, EveryCommunityIsAccepted) {
    snmpa_packet packet{};
    packet.error = 9;
    snmpa_address source;
    snmpa_address destination;
    memset(&source, 0x11, sizeof source);
    memset(&destination, 0x22, sizeof destination);
    EXPECT_EQ(0, USER_validate_community(&packet, &source, &destination));
    EXPECT_EQ(28u, sizeof source);
    EXPECT_EQ(0, memcmp(&source, &packet.source, 28));
    EXPECT_EQ(0, memcmp(&destination, &packet.destination, 28));
    EXPECT_EQ(-1, packet.view_index);
    EXPECT_EQ(0, packet.error);
}

struct ViewCase {
    int operation;
    int kind;
    const char *call; // null = none
    const char *journal;
};

void PrintTo(const ViewCase &of, std::ostream *out) {
    *out << "operation " << of.operation << " kind " << of.kind;
}

class SnmpView : public SnmpCallbacks, public testing::WithParamInterface<ViewCase> {};

TEST_P(SnmpView, GoesToTheLibrarysCall) {
    const ViewCase &of = GetParam();
    std::vector<std::string> expected;
    if (of.call != nullptr)
        expected.push_back(std::string("snmp ") + of.journal);
    EXPECT_EQ(0, USER_nv_view_op(of.operation, of.kind));
    EXPECT_EQ(expected, journal_lines("snmp "));
    if (of.call == nullptr)
        return;
    fail(of.call, -1);
    EXPECT_EQ(-1, USER_nv_view_op(of.operation, of.kind));
}

INSTANTIATE_TEST_SUITE_P(Kinds, SnmpView,
                         testing::Values(ViewCase{0, 0, "SNMP_NV_View_2275_Add_Mod", "view-add"},
                                         ViewCase{1, 0, "SNMP_NV_View_2275_Add_Mod", "view-add"},
                                         ViewCase{2, 0, "SNMP_NV_View_2275_Add_Mod", "view-modify"},
                                         ViewCase{3, 0, nullptr, nullptr}, ViewCase{-1, 0, nullptr, nullptr},
                                         ViewCase{0, 1, "SNMP_NV_Clean", "view-clean"},
                                         ViewCase{0, 3, "SNMP_NV_Clean", "view-clean"},
                                         ViewCase{0, 4, "SNMP_NV_Doit", "view-write"},
                                         ViewCase{0, 2, nullptr, nullptr}, ViewCase{0, 5, nullptr, nullptr}));

TEST_F(SnmpCallbacks, StubsAnswerSilentlyWhatTheyAlwaysAnswer) {
    EXPECT_EQ("", printed_by([] {
                  EXPECT_EQ(0, USER_validate_address());
                  EXPECT_EQ(0, USER_validate_set_pdu());
                  EXPECT_EQ(0, USER_user_pre_set());
                  EXPECT_EQ(0, USER_user_post_set());
                  EXPECT_EQ(0u, USER_get_sysuptime());
                  EXPECT_EQ(0, USER_ax_conn_entry());
                  EXPECT_EQ(0, USER_ax_get_connid());
                  EXPECT_EQ(0, sys_init());
                  EXPECT_EQ(5, USER_ax_ma_ac_add());
                  EXPECT_EQ(5, USER_ax_ma_ac_remove());
                  USER_Trace_Input();
                  USER_send_proxy_pkt();
                  USER_set_users_engine();
                  USER_ax_ma_ac_clean();
              }));
    EXPECT_TRUE(log_entries().empty());
    EXPECT_TRUE(journal_lines().empty());
}

TEST_F(SnmpCallbacks, ThreeStubsPrintTheirName) {
    EXPECT_EQ("Called USER_ax_find_mib\n", printed_by([] { EXPECT_EQ(0, USER_ax_find_mib()); }));
    EXPECT_EQ("Called NV_Op\n", printed_by([] { EXPECT_EQ(0, NV_Op()); }));
    EXPECT_EQ("Called USER_ax_transport_string\n",
              printed_by([] { EXPECT_EQ(1, USER_ax_transport_string()); }));
}

} // namespace snmp_callbacks_test
