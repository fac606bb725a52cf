// The DOCSIS bridge's files: which addresses are taken out of it, and in which form.
#include <filesystem>
#include <ostream>

#include "gateway/docsis_bridge.h"
#include "support/bridge.h"
#include "support/events.h"

namespace docsis_bridge_test {

const std::string HOST = "02:aa:00:00:00:11";
const std::string EROUTER = "00:11:22:33:44:56";
const std::string MTA = "00:11:22:33:44:57";
const std::string MODEM = "00:11:22:33:44:58";

const std::string PORT_LINE = "HOSTBASE: hbs_remove_cpe_by_port: port=";

std::string search_line(const std::string &word) {
    return "HOSTBASE: hbs_remove_cpe_by_port: Search CPE " + word + "\n";
}

class DocsisBridge : public GatewayTest {
  protected:
    static void remove(const std::string &mac) { hbs_remove_cpe_from_docsis_bridge(mac_of(mac).data()); }

    static void remove_port(uint32_t port, const std::string &cpes) {
        write_file(BRIDGE_CPES, cpes);
        hbs_remove_cpe_by_port(port);
    }
};

// Something else in the place of one of the bridge's files for as long as it lives.
class Replaced {
  public:
    explicit Replaced(const std::string &path) : path_(path) {
        std::filesystem::rename(path_, path_ + ".away");
    }
    ~Replaced() {
        std::filesystem::remove_all(path_);
        std::filesystem::rename(path_ + ".away", path_);
    }
    Replaced(const Replaced &) = delete;
    Replaced &operator=(const Replaced &) = delete;

  private:
    std::string path_;
};

// --- one address ---

TEST_F(DocsisBridge, IsToldInLowerCaseWithDashesAndOneBlank) {
    const Replaced file(BRIDGE_DELETE);
    remove("02:AA:0B:00:C0:1F");
    EXPECT_EQ("02-aa-0b-00-c0-1f ", read_file(BRIDGE_DELETE));
    EXPECT_EQ(std::vector<std::string>{"HOSTBASE: removing 02:aa:0b:00:c0:1f from docsis bridge\n"},
              log_lines());
}

TEST_F(DocsisBridge, EachAddressIsAWriteOfItsOwn) {
    remove(HOST);
    remove("02:aa:00:00:00:12");
    remove(HOST);
    expect_deletions({HOST, "02:aa:00:00:00:12", HOST});
}

TEST_F(DocsisBridge, FileThatCannotBeOpenedIsLoggedWithTheAddress) {
    const Replaced file(BRIDGE_DELETE);
    std::filesystem::create_directory(BRIDGE_DELETE);
    remove(HOST);
    EXPECT_EQ(std::vector<std::string>{"HOSTBASE: Failed to open file 02:aa:00:00:00:11\n"}, log_lines());
}

struct OwnCase {
    std::string mac;
    std::string message;
};

void PrintTo(const OwnCase &of, std::ostream *out) {
    *out << of.mac;
}

class DocsisBridgeOwn : public DocsisBridge, public testing::WithParamInterface<OwnCase> {};

TEST_P(DocsisBridgeOwn, AddressOfTheGatewayStays) {
    remove(GetParam().mac);
    const std::vector<std::string> expected = {
        "HOSTBASE: " + GetParam().message + " mac address can't allow to be removed from docsis bridge " +
            GetParam().mac + "\n",
        "HOSTBASE: Faile to remove " + GetParam().mac + " from docsis bridge\n"};
    EXPECT_EQ(expected, log_lines());
    remove(HOST);
    expect_deletions({HOST});
}

INSTANTIATE_TEST_SUITE_P(Addresses, DocsisBridgeOwn,
                         testing::Values(OwnCase{EROUTER, "Erouter"}, OwnCase{MTA, "Mta"},
                                         OwnCase{MODEM, "CM"}));

TEST_F(DocsisBridge, FirstMatchingNameIsTheOneThatIsLogged) {
    set("db.array.197", "hex:001122334456");
    set("production.cm_mac", EROUTER);
    remove(EROUTER);
    EXPECT_EQ(1u, logged_containing("Erouter mac"));
    EXPECT_EQ(0u, logged_containing("Mta mac") + logged_containing("CM mac"));
    set("db.array.110", "hex:001122334400");
    remove(EROUTER);
    EXPECT_EQ(1u, logged_containing("Mta mac"));
    EXPECT_EQ(0u, logged_containing("CM mac"));
}

TEST_F(DocsisBridge, ModemIsNotKnownWithoutTheProductionData) {
    fail("ProductionDb_RetrieveAccess", -1);
    remove(MODEM);
    expect_deletions({MODEM});
}

TEST_F(DocsisBridge, AddressThatCannotBeReadProtectsNothing) {
    fail("DB_GetArray", -1);
    fail("ProdDb_GetCmMacAddress", -1);
    remove(EROUTER);
    remove(MODEM);
    remove("00:00:00:00:00:00");
    expect_deletions({EROUTER, MODEM, "00:00:00:00:00:00"});
}

// --- all of a port ---

TEST_F(DocsisBridge, CpesOfThePortAreRemovedInTheirOrder) {
    learn("02:aa:00:00:00:11", 2);
    learn("02:aa:00:00:00:12", 3);
    learn("02:aa:00:00:00:13", 2);
    remove_port(2, "-> 02:aa:00:00:00:13 l2sd0.2\n"
                   "-> 02:aa:00:00:00:12 l2sd0.2\n"
                   "-> 02:AA:00:00:00:11 l2sd0.3 x\n"
                   "-> 02:aa:00:00:00:14 l2sd0\n");
    expect_deletions({"02:aa:00:00:00:13", "02:aa:00:00:00:11"});
    const std::vector<std::string> expected = {
        PORT_LINE + "2",
        search_line("02:aa:00:00:00:13"),
        "HOSTBASE: hbs_remove_cpe_by_port: extport=2 hit:1",
        "HOSTBASE: removing 02:aa:00:00:00:13 from docsis bridge\n",
        search_line("02:aa:00:00:00:12"),
        "HOSTBASE: hbs_remove_cpe_by_port: extport=3 hit:1",
        search_line("02:AA:00:00:00:11"),
        "HOSTBASE: hbs_remove_cpe_by_port: extport=2 hit:1",
        "HOSTBASE: removing 02:aa:00:00:00:11 from docsis bridge\n",
        search_line("02:aa:00:00:00:14"),
        "HOSTBASE: hbs_remove_cpe_by_port: extport=0 hit:0",
    };
    EXPECT_EQ(expected, log_lines());
}

TEST_F(DocsisBridge, OnlyArrowLinesOfLanInterfacesCount) {
    for (const char *mac : {"02:aa:00:00:00:11", "02:aa:00:00:00:12", "02:aa:00:00:00:13"})
        learn(mac, 1);
    remove_port(1, "CPE table\n"
                   "   02:aa:00:00:00:11 l2sd0.2\n"
                   " -> 02:aa:00:00:00:12 l2sd0.2\n"
                   "-> 02:aa:00:00:00:12 cni0\n"
                   "->\n"
                   "-> l2sd0.2\n"
                   "->dev 02:aa:00:00:00:13 l2sd0");
    expect_deletions({"02:aa:00:00:00:13"});
    EXPECT_EQ(1u, logged_containing("hit:1"));
}

TEST_F(DocsisBridge, WordThatIsNoAddressIsLookedUpAndLoggedLikeTheOthers) {
    learn(HOST, 2);
    remove_port(2, "-> l2sd0.2\n"
                   "-> nothing l2sd0.2\n"
                   "-> 02:aa:00 l2sd0.2\n"
                   "-> " +
                       HOST + " l2sd0.2\n");
    const std::string nowhere = "HOSTBASE: hbs_remove_cpe_by_port: extport=0 hit:0";
    const std::vector<std::string> expected = {
        PORT_LINE + "2",
        search_line("l2sd0.2"),
        nowhere,
        search_line("nothing"),
        nowhere,
        search_line("02:aa:00"),
        nowhere,
        search_line(HOST),
        "HOSTBASE: hbs_remove_cpe_by_port: extport=2 hit:1",
        "HOSTBASE: removing " + HOST + " from docsis bridge\n",
    };
    EXPECT_EQ(expected, log_lines());
}

TEST_F(DocsisBridge, ByteOfAnAddressHasTwoDigitsAtMost) {
    learn("02:aa:00:00:00:00", 1);
    learn("02:aa:00:00:00:11", 1);
    remove_port(1, "-> 02:aa:000:00:00:11 l2sd0.2\n"); // ends behind its third byte
    expect_deletions({"02:aa:00:00:00:00"});
}

TEST_F(DocsisBridge, LineLongerThanTheBufferIsTakenPieceByPiece) {
    learn(HOST, 1);
    // The first piece has no LAN interface, the second begins as a line of its own.
    remove_port(1, "-> " + HOST + " " + std::string(127 - 21, 'x') + "-> 02:aa:00:00:00:12 l2sd0\n");
    EXPECT_EQ(0u, logged_count(search_line(HOST)));
    EXPECT_EQ(1u, logged_count(search_line("02:aa:00:00:00:12")));
}

TEST_F(DocsisBridge, OwnAddressOnThePortStays) {
    learn(MTA, 1);
    learn(HOST, 1);
    remove_port(1, "-> " + MTA + " l2sd0.2\n-> " + HOST + " l2sd0.2\n");
    expect_deletions({HOST});
}

TEST_F(DocsisBridge, SwitchThatCannotBeAskedPlacesNothing) {
    learn(HOST, 1);
    fail("extSwitchSearchMac", -1);
    remove_port(1, "-> " + HOST + " l2sd0.2\n");
    EXPECT_TRUE(logged("HOSTBASE: hbs_remove_cpe_by_port: extport=0 hit:0"));
    remove("02:aa:00:00:00:99");
    expect_deletions({"02:aa:00:00:00:99"});
}

TEST_F(DocsisBridge, TableThatCannotBeOpenedIsLogged) {
    const Replaced file(BRIDGE_CPES);
    hbs_remove_cpe_by_port(4);
    EXPECT_EQ((std::vector<std::string>{
                  PORT_LINE + "4", "HOSTBASE: hbs_remove_cpe_by_port: open bridge cpe proc file failed !"}),
              log_lines());
}

} // namespace docsis_bridge_test
