// The DHCPv6 server's address database: which of its lines count, and what they leave in a client.
#include <filesystem>
#include <gmock/gmock.h>
#include <limits>
#include <sys/stat.h>

#include "base/date.h"
#include "base/paths.h"
#include "files/leasev6.h"
#include "store/client_fields.h"
#include "support/presence.h"

using testing::ElementsAre;

namespace leasev6_test {

constexpr const char *GLOBAL = "fd00:2::1975";

std::string element(const std::string &timestamp, const std::string &valid, const std::string &address) {
    return "          <AddrAddr timestamp=\"" + timestamp + "\" pref=\"8\" valid=\"" + valid +
           "\" prefix=\"128\">" + address + "</AddrAddr>\n";
}

class Leasev6 : public PresenceTest {
  protected:
    hbs_client *client_ = nullptr;

    void SetUp() override {
        PresenceTest::SetUp();
        setenv("TZ", "UTC", 1);
        client_ = add(MAC_A);
        hbs_set_ipv6(client_, ipv6_of(GLOBAL).data());
        client_->flags = 0;
        clear_log();
    }

    void find(const std::string &text) {
        write_file(HBS_LEASEV6_DATABASE, text);
        hbs_leasev6_find(client_);
    }

    bool found() const { return (client_->flags & HBS_FLAG_DYNIP6) != 0; }
};

TEST_F(Leasev6, MissingDatabase_IsLoggedAndChangesNothing) {
    const hbs_client before = *client_;
    hbs_leasev6_find(client_);
    EXPECT_THAT(log_lines(), ElementsAre("HOSTBASE: Could not found /var/lib/dibbler/server-AddrMgr.xml"));
    EXPECT_EQ("info", log_entries().at(0).severity) << "not every router has one";
    EXPECT_EQ(0, std::memcmp(&before, client_, sizeof before));
}

TEST_F(Leasev6, FifoAsDatabase_IsLoggedAtOnceAndChangesNothing) {
    (void)std::filesystem::remove(HBS_LEASEV6_DATABASE);
    ASSERT_EQ(0, mkfifo(HBS_LEASEV6_DATABASE, 0666));
    hbs_leasev6_find(client_);
    (void)std::filesystem::remove(HBS_LEASEV6_DATABASE);
    EXPECT_THAT(log_lines(), ElementsAre("HOSTBASE: Could not found /var/lib/dibbler/server-AddrMgr.xml"));
}

TEST_F(Leasev6, MatchingElement_SetsTheLeaseEndAndDynip6) {
    find(element("1800000000", "3600", GLOBAL));
    EXPECT_THAT(client_->lease_v6_end, ElementsAre(7, 235, 1, 15, 9, 0, 0, 0));
    EXPECT_EQ(HBS_FLAG_DYNIP6, state_of(client_));
}

TEST_F(Leasev6, EveryStep_IsLogged) {
    const std::string line = element("1800000000", "3600", GLOBAL);
    find("<AddrMgr>\n" + line);
    EXPECT_THAT(
        log_lines(),
        ElementsAre(
            "HOSTBASE: hbs_leasev6_find fgets: <AddrMgr>\n", "HOSTBASE: hbs_leasev6_find fgets: " + line,
            "HOSTBASE: hbs_leasev6_find fgets: timestamp:1800000000; valid:3600, ipv6_str:fd00:2::1975",
            "HOSTBASE: Found IPv6 lease 1800003600 for fd00:2::1975",
            "HOSTBASE: hbs_leasev6_set:BEGIN lease = 1800003600",
            "HOSTBASE: hbs_leasev6_set:END lease_v6_end = 7 235 1 15 9 0 0"));
}

TEST_F(Leasev6, OtherFlagsOfTheAddress_Stay) {
    client_->flags = HBS_FLAG_STIP6 | HBS_FLAG_ONLINE;
    find(element("1800000000", "3600", GLOBAL));
    EXPECT_EQ(HBS_FLAG_STIP6 | HBS_FLAG_ONLINE | HBS_FLAG_DYNIP6, state_of(client_));
}

TEST_F(Leasev6, OtherAddress_IsReadButChangesNothing) {
    find(element("1800000000", "3600", "fd00:2::1976"));
    EXPECT_EQ(1u, logged_containing("ipv6_str:fd00:2::1976"));
    EXPECT_FALSE(found());
    EXPECT_TRUE(hbs_date_is_zero(client_->lease_v6_end));
}

TEST_F(Leasev6, AddressInAnotherSpelling_Matches) {
    find(element("1800000000", "3600", "FD00:0002:0:0:0:0:0:1975"));
    EXPECT_TRUE(found());
}

TEST_F(Leasev6, TwoElementsOfOneAddress_TheLaterWins) {
    find(element("1800000000", "3600", GLOBAL) + element("1800000000", "60", GLOBAL) +
         element("1", "1", "fd00:2::1"));
    EXPECT_THAT(client_->lease_v6_end, ElementsAre(7, 235, 1, 15, 8, 1, 0, 0));
    EXPECT_EQ(2u, logged_containing("Found IPv6 lease"));
}

TEST_F(Leasev6, ClientWithoutAnAddress_MatchesOnlyTheUnspecifiedOne) {
    const uint8_t none[16] = {};
    hbs_set_ipv6(client_, none);
    find(element("1800000000", "3600", GLOBAL) + element("1800000000", "3600", "fe80::1"));
    EXPECT_FALSE(found());
    find(element("1800000000", "3600", "::"));
    EXPECT_TRUE(found());
}

TEST_F(Leasev6, EndOfZero_SetsNoDate) {
    find(element("0", "0", GLOBAL));
    EXPECT_TRUE(hbs_date_is_zero(client_->lease_v6_end));
    EXPECT_TRUE(found());
}

struct Line {
    const char *name;
    const char *text;
    bool counts;
};

class Leasev6Line : public Leasev6, public testing::WithParamInterface<Line> {};

TEST_P(Leasev6Line, Counts) {
    find(GetParam().text);
    EXPECT_EQ(GetParam().counts, found());
    EXPECT_EQ(GetParam().counts ? 1u : 0u, logged_containing("Found IPv6 lease"));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Leasev6Line,
    testing::Values(
        Line{"Plain", "<AddrAddr timestamp=\"1\" valid=\"2\">fd00:2::1975<", true},
        Line{"WithoutLineEnd", "<AddrAddr timestamp=\"1\" valid=\"2\">fd00:2::1975</AddrAddr>", true},
        Line{"Empty", "", false}, Line{"NoElement", "timestamp=\"1\" valid=\"2\">fd00:2::1975<", false},
        Line{"ElementBehindItsPieces", "timestamp=\"1\" valid=\"2\">fd00:2::1975<AddrAddr ", false},
        Line{"ValidBeforeTimestamp", "<AddrAddr valid=\"2\" timestamp=\"1\">fd00:2::1975<", false},
        Line{"NoTimestamp", "<AddrAddr valid=\"2\">fd00:2::1975<", false},
        Line{"OtherNameOfTimestamp", "<AddrAddr time=\"1\" valid=\"2\">fd00:2::1975<", false},
        Line{"OtherNameOfValid", "<AddrAddr timestamp=\"1\" val=\"2\">fd00:2::1975<", false},
        Line{"NoValid", "<AddrAddr timestamp=\"1\">fd00:2::1975<", false},
        Line{"AddressBeforeAttributes", "<AddrAddr>fd00:2::1975< timestamp=\"1\" valid=\"2\"", false},
        Line{"NoQuotes", "<AddrAddr timestamp=1 valid=2>fd00:2::1975<", false},
        Line{"OpenQuote", "<AddrAddr timestamp=\"1 valid=2>fd00:2::1975<", false},
        Line{"NoClosingBracket", "<AddrAddr timestamp=\"1\" valid=\"2\" fd00:2::1975<", false},
        Line{"NoOpeningBracket", "<AddrAddr timestamp=\"1\" valid=\"2\">fd00:2::1975", false},
        Line{"NoAddress", "<AddrAddr timestamp=\"1\" valid=\"2\"><", false},
        Line{"BlankBeforeAddress", "<AddrAddr timestamp=\"1\" valid=\"2\"> fd00:2::1975<", false},
        Line{"Ipv4Address", "<AddrAddr timestamp=\"1\" valid=\"2\">192.168.0.20<", false},
        Line{"LongAddress",
             "<AddrAddr timestamp=\"1\" valid=\"2\">fd00:0002:0000:0000:0000:0000:0000:1975:"
             "0000:0000:0000:0000:0000<",
             false},
        Line{"OtherAttributesBetween",
             "<AddrAddr a=\"x\" timestamp=\"1\" b=\"y\" valid=\"2\" c=\"z\">fd00:2::1975<", true},
        Line{"LongNumbers",
             "<AddrAddr timestamp=\"00000000000000000000000000000000000000000000001\" valid=\"2\">"
             "fd00:2::1975<",
             true}),
    [](const auto &test) { return test.param.name; });

// --- bad input ---

TEST_F(Leasev6, NumbersBeyondEveryRange_AreHarmless) {
    const std::string large = "99999999999999999999999999";
    for (const auto &[timestamp, valid] : {std::pair{large, std::string("3600")},
                                           {"-" + large, "-3600"},
                                           {"1800000000", large},
                                           {large, large}}) {
        client_->flags = 0;
        find(element(timestamp, valid, GLOBAL));
        EXPECT_TRUE(found());
    }
}

TEST_F(Leasev6, LineLongerThanTheBuffer_IsReadInPieces) {
    // The element lies behind the first 1023 characters and is whole in the second piece.
    find(std::string(1023, 'x') + element("1800000000", "3600", GLOBAL));
    EXPECT_TRUE(found());
}

TEST_F(Leasev6, ElementThatStraddlesTheBuffer_IsSkipped) {
    find(std::string(1000, 'x') + element("1800000000", "3600", GLOBAL));
    EXPECT_FALSE(found());
}

TEST_F(Leasev6, CutAtEveryByte_NeverMatchesHalfAnAddress) {
    const std::string whole = "<AddrAddr timestamp=\"1800000000\" valid=\"3600\">fd00:2::1975<";
    for (size_t length = 0; length < whole.size(); ++length) {
        find(whole.substr(0, length));
        EXPECT_FALSE(found()) << length;
    }
    find(whole);
    EXPECT_TRUE(found());
}

TEST_F(Leasev6, NulBytes_EndTheLineOnly) {
    find(std::string("<AddrAddr \0timestamp=\"1\" valid=\"2\">fd00:2::1975<\n", 49) +
         element("1800000000", "3600", GLOBAL));
    EXPECT_EQ(1u, logged_containing("Found IPv6 lease"));
}

TEST_F(Leasev6, TenMegabytesCutInTheMiddleOfALine_AreReadToTheEnd) {
    std::string text;
    text.reserve(10 << 20);
    while (text.size() < (10 << 20) - 200)
        text += std::string(900, 'x') + "<AddrAddr valid=\"1\" timestamp=\"2\">" + GLOBAL + "<\n";
    text += element("1800000000", "3600", GLOBAL);
    text += element("1800000000", "60", GLOBAL).substr(0, 60);
    set("log.delay_ms", 0);
    find(text);
    EXPECT_THAT(client_->lease_v6_end, ElementsAre(7, 235, 1, 15, 9, 0, 0, 0));
}

} // namespace leasev6_test
