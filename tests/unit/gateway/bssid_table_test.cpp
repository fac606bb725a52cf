// Which SSID each associated station is on.
#include <array>
#include <cstring>

#include "gateway/bssid_table.h"
#include "support/gateway.h"

namespace bssid_table_test {

using Mac = std::array<uint8_t, 6>;

constexpr const char *FULL = "HOSTBASE: hbs_wifi_bssid_table_find_empty : hbsWifiClntBssidTable is full";
constexpr const char *NO_MATCH = "HOSTBASE: hbs_del_wifi_clnt_bssid : do not match mac";

Mac station(int number) {
    return {0x02, 0xbb, 0, 0, 0, static_cast<uint8_t>(number)};
}

class BssidTable : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_wifi_bssid_table_clear();
    }

    static void associate(int first, int last) {
        for (int number = first; number <= last; ++number)
            hbs_wifi_bssid_table_set(station(number).data(), 1);
    }
};

TEST_F(BssidTable, IsZeroBytesAtFirst) {
    associate(1, 3);
    hbs_wifi_bssid_table_clear();
    static const hbs_bssid_table zero{};
    EXPECT_EQ(0, std::memcmp(&zero, &hbsWifiClntBssidTable, sizeof(zero)));
    EXPECT_EQ(-1, hbs_bssid_of(station(1).data()));
}

TEST_F(BssidTable, ZeroMacIsNotFoundInFreeRows) {
    constexpr Mac zero{};
    EXPECT_EQ(-1, hbs_wifi_bssid_table_find(zero.data()));
}

TEST_F(BssidTable, NewStationTakesTheFirstFreeRow) {
    hbs_wifi_bssid_table_set(station(1).data(), 9);
    EXPECT_EQ(0, hbs_wifi_bssid_table_find(station(1).data()));
    EXPECT_EQ(1, hbsWifiClntBssidTable.count);
    EXPECT_EQ(1, hbsWifiClntBssidTable.row[0].in_use);
    EXPECT_EQ(8, hbsWifiClntBssidTable.row[0].bssid);
    EXPECT_EQ(0, std::memcmp(station(1).data(), hbsWifiClntBssidTable.row[0].mac, 6));
    EXPECT_EQ(8, hbs_bssid_of(station(1).data()));
}

TEST_F(BssidTable, StationThatMovesKeepsItsRow) {
    associate(1, 2);
    hbs_wifi_bssid_table_set(station(1).data(), 2);
    EXPECT_EQ(2, hbsWifiClntBssidTable.count);
    EXPECT_EQ(0, hbs_wifi_bssid_table_find(station(1).data()));
    EXPECT_EQ(1, hbs_bssid_of(station(1).data()));
    EXPECT_EQ(0, hbs_bssid_of(station(2).data()));
}

TEST_F(BssidTable, RowsAreNeverMoved) {
    associate(1, 3);
    hbs_del_wifi_clnt_bssid(station(1).data());
    EXPECT_EQ(2, hbsWifiClntBssidTable.count);
    EXPECT_EQ(-1, hbs_wifi_bssid_table_find(station(1).data()));
    EXPECT_EQ(1, hbs_wifi_bssid_table_find(station(2).data()));
    EXPECT_EQ(2, hbs_wifi_bssid_table_find(station(3).data()));
    EXPECT_EQ(0, hbs_wifi_bssid_table_find_empty());
    associate(4, 4);
    EXPECT_EQ(0, hbs_wifi_bssid_table_find(station(4).data()));
}

TEST_F(BssidTable, ReleasedRowOnlyLosesItsInUseMark) {
    hbs_wifi_bssid_table_set(station(1).data(), 9);
    hbs_del_wifi_clnt_bssid(station(1).data());
    EXPECT_EQ(0, hbsWifiClntBssidTable.row[0].in_use);
    EXPECT_EQ(-1, hbs_bssid_of(station(1).data()));
    EXPECT_EQ(0u, logged_count(NO_MATCH));
}

TEST_F(BssidTable, ReleaseOfAnUnknownStationIsLogged) {
    associate(1, 1);
    hbs_del_wifi_clnt_bssid(station(2).data());
    EXPECT_EQ(1u, logged_count(NO_MATCH));
    EXPECT_EQ(1, hbsWifiClntBssidTable.count);
}

TEST_F(BssidTable, SixtyFifthStationFindsTheTableFull) {
    associate(1, 64);
    EXPECT_EQ(64, hbsWifiClntBssidTable.count);
    EXPECT_EQ(0u, logged_count(FULL));
    associate(65, 65);
    EXPECT_EQ(1u, logged_count(FULL));
    EXPECT_EQ(64, hbsWifiClntBssidTable.count);
    EXPECT_EQ(-1, hbs_bssid_of(station(65).data()));
    EXPECT_EQ(63, hbs_wifi_bssid_table_find(station(64).data()));
}

TEST_F(BssidTable, KnownStationMovesInAFullTableWithoutAMessage) {
    associate(1, 64);
    hbs_wifi_bssid_table_set(station(64).data(), 5);
    EXPECT_EQ(4, hbs_bssid_of(station(64).data()));
    EXPECT_EQ(0u, logged_count(FULL));
}

TEST_F(BssidTable, NoFreeRowWithACountBelowSixtyFourIsSkippedSilently) {
    associate(1, 64);
    hbsWifiClntBssidTable.count = 63;
    EXPECT_EQ(-1, hbs_wifi_bssid_table_find_empty());
    associate(65, 65);
    EXPECT_EQ(63, hbsWifiClntBssidTable.count);
    EXPECT_EQ(-1, hbs_bssid_of(station(65).data()));
    EXPECT_EQ(0u, logged_count(FULL));
}

TEST_F(BssidTable, SsidNumberIsStoredAsOneByteLess) {
    hbs_wifi_bssid_table_set(station(1).data(), 257);
    EXPECT_EQ(0, hbs_bssid_of(station(1).data()));
    hbs_wifi_bssid_table_set(station(1).data(), 0);
    EXPECT_EQ(255, hbs_bssid_of(station(1).data()));
}

} // namespace bssid_table_test
