// The journal: one line for each call with an effect on the outside, and its form.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

#include <pcd.h>
#include <snmpa.h>
#include <tr69.h>
#include <wlan.h>

#include "support/gateway.h"

namespace journal_test {

using Lines = std::vector<std::string>;

class Journal : public GatewayTest {};

TEST_F(Journal, HoldsRegistrationAndReadiness) {
    EXPECT_EQ(0, PCD_api_register_exception_handlers("gw host\nbase", [](int) {}));
    EXPECT_EQ(0, PCD_api_send_process_ready());
    EXPECT_EQ((Lines{"pcd register gw host\\nbase", "pcd ready"}), journal_lines());
}

TEST_F(Journal, HoldsNoRefusedRegistration) {
    EXPECT_EQ(-1, PCD_api_register_exception_handlers(nullptr, [](int) {}));
    EXPECT_EQ(-1, PCD_api_register_exception_handlers("x", nullptr));
    EXPECT_TRUE(journal_lines().empty());
}

TEST_F(Journal, HoldsWifiCalls) {
    EXPECT_EQ(0, wlan_registerQuarnRpc("192.168.254.254"));
    EXPECT_EQ(0, wlan_setWpsCancel(1));
    EXPECT_EQ(0, wlan_setWpsCancel(16));
    EXPECT_EQ(-1, wlan_setWpsCancel(0));
    EXPECT_EQ(-1, wlan_setWpsCancel(17));
    EXPECT_EQ(-1, wlan_registerQuarnRpc(nullptr));
    EXPECT_EQ((Lines{"wlan register 192.168.254.254", "wlan wps-cancel 1", "wlan wps-cancel 16"}),
              journal_lines());
    EXPECT_EQ(2u, journal_lines("wlan wps-cancel ").size());
}

TEST_F(Journal, HoldsViewStorage) {
    EXPECT_EQ(0, SNMP_NV_View_2275_Add_Mod(0));
    EXPECT_EQ(0, SNMP_NV_View_2275_Add_Mod(1));
    EXPECT_EQ(0, SNMP_NV_Clean());
    EXPECT_EQ(0, SNMP_NV_Doit());
    EXPECT_EQ(-1, SNMP_NV_View_2275_Add_Mod(2));
    EXPECT_EQ((Lines{"snmp view-add", "snmp view-modify", "snmp view-clean", "snmp view-write"}),
              journal_lines());
}

TEST_F(Journal, AFailedCallLeavesNoLine) {
    fail("PCD_api_register_exception_handlers", -1);
    fail("PCD_api_send_process_ready", -1);
    fail("wlan_setWpsCancel", 3);
    fail("wlan_registerQuarnRpc", 4);
    fail("quarn_tr69SendEvent", -1);
    fail("SNMP_NV_View_2275_Add_Mod", -1);
    fail("SNMP_NV_Clean", -1);
    fail("SNMP_NV_Doit", -1);
    uint8_t payload[TR69_EVENT_SIZE] = {};
    EXPECT_EQ(-1, PCD_api_register_exception_handlers("x", [](int) {}));
    EXPECT_EQ(-1, PCD_api_send_process_ready());
    EXPECT_EQ(3, wlan_setWpsCancel(1));
    EXPECT_EQ(4, wlan_registerQuarnRpc("x"));
    EXPECT_EQ(-1, quarn_tr69SendEvent(payload));
    EXPECT_EQ(-1, SNMP_NV_View_2275_Add_Mod(0));
    EXPECT_EQ(-1, SNMP_NV_Clean());
    EXPECT_EQ(-1, SNMP_NV_Doit());
    EXPECT_TRUE(journal_lines().empty());
}

TEST_F(Journal, CanBeCleared) {
    (void)PCD_api_send_process_ready();
    clear_journal();
    EXPECT_TRUE(journal_lines().empty());
    (void)PCD_api_send_process_ready();
    EXPECT_EQ((Lines{"pcd ready"}), journal_lines());
}

TEST_F(Journal, TakesWholeLinesFromManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([] {
            for (int i = 0; i < 100; i++)
                (void)wlan_setWpsCancel(9);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    auto lines = journal_lines();
    EXPECT_EQ(400u, lines.size());
    EXPECT_EQ(400, std::count(lines.begin(), lines.end(), "wlan wps-cancel 9"));
}

// A payload as the agent gets it; offsets of the body count from byte 10.
struct Payload {
    std::array<uint8_t, TR69_EVENT_SIZE> bytes = {};

    Payload() { bytes[8] = 1; }
    void text(size_t at, const std::string &value) { memcpy(&bytes[10 + at], value.data(), value.size()); }
    void number(size_t at, int32_t value) { memcpy(&bytes[10 + at], &value, sizeof value); }
};

class EventJournal : public GatewayTest {
  protected:
    std::string line_of(const Payload &payload) {
        clear_journal();
        EXPECT_EQ(0, quarn_tr69SendEvent(payload.bytes.data()));
        auto lines = journal_lines();
        return lines.size() == 1 ? lines[0] : "not one line";
    }
};

TEST_F(EventJournal, NamesEveryField) {
    Payload payload;
    payload.bytes[9] = 106;
    payload.text(0, "02:AA:00:00:00:11");
    payload.number(20, 1);
    payload.number(24, 5);
    payload.text(28, "192.168.0.11");
    payload.text(44, "fd00:2::11");
    payload.text(90, "fe80::11");
    payload.text(136, "laptop");
    payload.bytes[10 + 200] = 1;
    payload.text(201, "00AABB");
    payload.text(208, "SN1");
    payload.text(273, "Class");
    EXPECT_EQ("tr69 event 106 mac=\"02:AA:00:00:00:11\" number=1 adapter=5 ipv4=\"192.168.0.11\" "
              "ipv6=\"fd00:2::11\" ll=\"fe80::11\" host=\"laptop\" flag=1 oui=\"00AABB\" serial=\"SN1\" "
              "class=\"Class\" format=1 head=zero tail=zero",
              line_of(payload));
}

TEST_F(EventJournal, ShowsAnEmptyBody) {
    Payload payload;
    payload.bytes[8] = 0;
    payload.bytes[9] = 2;
    EXPECT_EQ(
        "tr69 event 2 mac=\"\" number=0 adapter=0 ipv4=\"\" ipv6=\"\" ll=\"\" host=\"\" flag=0 oui=\"\" "
        "serial=\"\" class=\"\" format=0 head=zero tail=zero",
        line_of(payload));
}

TEST_F(EventJournal, EscapesTexts) {
    Payload payload;
    payload.text(136, "a\"b\\c\n\xe9$(x)");
    EXPECT_NE(std::string::npos, line_of(payload).find(" host=\"a\\\"b\\\\c\\n\\xe9$(x)\" "));
}

TEST_F(EventJournal, MarksATextThatDoesNotEnd) {
    Payload payload;
    payload.text(201, "1234567");
    payload.text(136, std::string(64, 'h'));
    std::string line = line_of(payload);
    EXPECT_NE(std::string::npos, line.find(" oui=unterminated:\"1234567\" serial=\"\""));
    EXPECT_NE(std::string::npos, line.find(" host=unterminated:\"" + std::string(64, 'h') + "\""));
}

TEST_F(EventJournal, TellsReservedBytesThatAreSet) {
    for (size_t at : {0u, 7u}) {
        Payload payload;
        payload.bytes[at] = 1;
        EXPECT_NE(std::string::npos, line_of(payload).find(" head=set tail=zero")) << at;
    }
    for (size_t at : {348u, 349u, 350u, 523u}) {
        Payload payload;
        payload.bytes[at] = 1;
        EXPECT_NE(std::string::npos, line_of(payload).find(" head=zero tail=set")) << at;
    }
}

TEST_F(EventJournal, ShowsNegativeNumbers) {
    Payload payload;
    payload.number(20, -1);
    EXPECT_NE(std::string::npos, line_of(payload).find(" number=-1 "));
}

TEST_F(EventJournal, RefusesNoPayload) {
    EXPECT_EQ(-1, quarn_tr69SendEvent(nullptr));
    EXPECT_TRUE(journal_lines().empty());
}

TEST(AgentObjects, AreFreed) {
    snmpa_oid oid = {3, static_cast<uint32_t *>(calloc(3, sizeof(uint32_t)))};
    Clean_Obj_ID(&oid);
    EXPECT_EQ(0u, oid.count);
    EXPECT_EQ(nullptr, oid.arcs);
    Clean_Obj_ID(&oid);
    Clean_Obj_ID(nullptr);
    EXPECT_STREQ("snmpa", SnmpaName);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
using FatalSignals = Journal;

TEST_F(FatalSignals, ReachTheHandler) {
    for (int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        auto die = [number] {
            (void)PCD_api_register_exception_handlers("x", [](int got) { _exit(got + 100); });
            raise(number);
        };
        EXPECT_EXIT(die(), testing::ExitedWithCode(number + 100), "");
    }
}

TEST_F(FatalSignals, EndTheProcessWhenTheHandlerReturns) {
    auto die = [] {
        (void)PCD_api_register_exception_handlers("x", [](int) {});
        abort();
    };
    EXPECT_EXIT(die(), testing::KilledBySignal(SIGABRT), "");
}

// Without the return to the default action the fault would come again for ever.
TEST_F(FatalSignals, EndTheProcessWhenTheFaultComesAgain) {
    auto die = [] {
        (void)PCD_api_register_exception_handlers("x", [](int) {});
        alarm(5);
        const char *volatile nowhere = nullptr;
        _exit(*nowhere);
    };
    EXPECT_EXIT(die(), testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(FatalSignals, StayAsTheyWereWhenRegistrationFails) {
    fail("PCD_api_register_exception_handlers", -1);
    auto die = [] {
        (void)PCD_api_register_exception_handlers("x", [](int got) { _exit(got + 100); });
        raise(SIGFPE);
    };
    EXPECT_EXIT(die(), testing::KilledBySignal(SIGFPE), "");
}
#endif

} // namespace journal_test
