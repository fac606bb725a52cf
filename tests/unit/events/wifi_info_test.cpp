// Link figures of stations.
#include <cstring>
#include <ostream>

#include <rnddb.h>

#include "events/wifi.h"
#include "gateway/bssid_table.h"
#include "store/client_fields.h"
#include "store/index.h"
#include "support/events.h"

namespace wifi_info_test {

const std::string STATION = "02:aa:00:00:00:21";
const std::string OTHER = "02:aa:00:00:00:22";

using Figures = std::vector<uint32_t>;

Figures figures_of(const hbs_client &client) {
    return {std::begin(client.wifi_link_info), std::end(client.wifi_link_info)};
}

class WifiInfo : public EventTest {
  protected:
    hbs_client *client_ = nullptr;

    void SetUp() override {
        EventTest::SetUp();
        if (HasFatalFailure())
            return;
        ASSERT_EQ(0, RNDDB_Read(0, 1)); // as at the daemon's start
        client_ = published_client(STATION, "192.168.0.77", HBS_FLAG_DYNIP4);
        client_->flags &= ~HBS_CHANGED_MASK;
        clear_log();
    }

    static void update(const std::string &mac) {
        const hbs_list_hold hold;
        hbs_update_wifi_assoc_info(mac_of(mac).data());
    }
};

const Figures NONE = {0, 0, 0, 0, 0};

// --- reading from the driver ---

TEST_F(WifiInfo, FirstFigureStaysFirstAndTheOthersAreReversed) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:21 1 2 3 4 5");
    EXPECT_EQ(0, hbs_read_wifi_assoc_info(client_, 1));
    EXPECT_EQ((Figures{1, 5, 4, 3, 2}), figures_of(*client_));
    EXPECT_EQ(HBS_CHANGED, client_->flags & HBS_CHANGED_MASK);
    EXPECT_EQ(NONE, figures_of(*seen(STATION))); // the caller publishes
}

TEST_F(WifiInfo, StationIsFoundAmongOthers) {
    add("wifi.ssid.2.station", "02:AA:00:00:00:99 9 9 9 9 9");
    add("wifi.ssid.2.station", "02:AA:00:00:00:21 4294967295 2 3 4 5");
    add("wifi.ssid.2.station", "02:AA:00:00:00:21 7 7 7 7 7");
    EXPECT_EQ(0, hbs_read_wifi_assoc_info(client_, 2));
    EXPECT_EQ((Figures{4294967295, 5, 4, 3, 2}), figures_of(*client_));
}

TEST_F(WifiInfo, StationThatIsNotListedChangesNothing) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:99 9 9 9 9 9");
    EXPECT_EQ(0, hbs_read_wifi_assoc_info(client_, 1));
    EXPECT_EQ(NONE, figures_of(*client_));
    EXPECT_EQ(0u, client_->flags & HBS_CHANGED_MASK);
}

TEST_F(WifiInfo, ConnectionThatFailsDoesNotMatter) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:21 1 2 3 4 5");
    fail("wlan_rpcConnectClient", -1);
    EXPECT_EQ(0, hbs_read_wifi_assoc_info(client_, 1));
    EXPECT_EQ((Figures{1, 5, 4, 3, 2}), figures_of(*client_));
}

struct ErrorCase {
    const char *call;
    int error;
};

void PrintTo(const ErrorCase &of, std::ostream *out) {
    *out << of.call << " " << of.error;
}

class WifiInfoError : public WifiInfo, public testing::WithParamInterface<ErrorCase> {};

TEST_P(WifiInfoError, DriversErrorIsReturned) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:21 1 2 3 4 5");
    fail(GetParam().call, GetParam().error);
    EXPECT_EQ(GetParam().error, hbs_read_wifi_assoc_info(client_, 1));
    EXPECT_EQ(NONE, figures_of(*client_));
    update(STATION);
    EXPECT_EQ(NONE, figures_of(*client_));
}

// 1 is an error like any other.
INSTANTIATE_TEST_SUITE_P(Calls, WifiInfoError,
                         testing::Values(ErrorCase{"wlan_getAssocDevice", 1},
                                         ErrorCase{"wlan_getAssocDevice", -7}));

TEST_F(WifiInfo, NumberOfStationsThatIsNotGivenCountsAsNone) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:21 1 2 3 4 5");
    fail("wlan_getAssocDevicesNum", -3);
    EXPECT_EQ(0, hbs_read_wifi_assoc_info(client_, 1));
    EXPECT_EQ(NONE, figures_of(*client_));
}

TEST_F(WifiInfo, StationBehindOneThatCannotBeReadIsNotReached) {
    add("wifi.ssid.1.station", "nonsense");
    add("wifi.ssid.1.station", "02:AA:00:00:00:21 1 2 3 4 5");
    EXPECT_EQ(-1, hbs_read_wifi_assoc_info(client_, 1));
    EXPECT_EQ(NONE, figures_of(*client_));
}

TEST_F(WifiInfo, AssociationTakesTheFigures) {
    set("wifi.ssid.2.station", "02:AA:00:00:00:21 72 54 130 144 40");
    ASSERT_NE(nullptr, hbs_handle_wifi_association(mac_of(STATION).data(), 2));
    EXPECT_EQ((Figures{72, 40, 144, 130, 54}), figures_of(*seen(STATION)));
}

TEST_F(WifiInfo, AssociationGoesOnWithoutTheFigures) {
    fail("wlan_getAssocDevicesNum", -3);
    ASSERT_NE(nullptr, hbs_handle_wifi_association(mac_of(STATION).data(), 2));
    EXPECT_EQ(NONE, figures_of(*seen(STATION)));
}

// --- updates ---

TEST_F(WifiInfo, UpdateIsPublishedWithoutTouchingTheIndices) {
    const hbs_list_hold hold;
    set("wifi.ssid.1.station", "02:AA:00:00:00:21 1 2 3 4 5");
    hbs_file_remove_if_idx_locked(client_);
    update(STATION);
    EXPECT_EQ((Figures{1, 5, 4, 3, 2}), figures_of(*seen(STATION)));
    EXPECT_TRUE(if_keys().empty());
    EXPECT_TRUE(ip_keys().empty());
    EXPECT_EQ(0u, client_->flags & HBS_CHANGED_MASK);
    hbs_publish(client_);
}

TEST_F(WifiInfo, UpdateAsksForTheSsidOfTheClient) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:21 9 9 9 9 9");
    set("wifi.ssid.3.station", "02:AA:00:00:00:21 1 2 3 4 5");
    client_->wifi_index = 2;
    update(STATION);
    EXPECT_EQ((Figures{1, 5, 4, 3, 2}), figures_of(*seen(STATION)));
}

TEST_F(WifiInfo, UpdateInRegisteredModeAsksForTheSsidThatWasJoined) {
    set("db.byte.72", 5);
    set("wifi.ssid.2.station", "02:AA:00:00:00:21 1 2 3 4 5");
    hbs_wifi_bssid_table_set(mac_of(STATION).data(), 2);
    client_->wifi_index = 2; // the number itself, as a lease leaves it
    update(STATION);
    EXPECT_EQ((Figures{1, 5, 4, 3, 2}), figures_of(*seen(STATION)));
}

TEST_F(WifiInfo, UpdateOfAnUnknownClientChangesNothing) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:22 1 2 3 4 5");
    client_->wifi_link_info[0] = 5; // not published: it would be seen if the update wrote another client
    update(OTHER);
    EXPECT_EQ(NONE, figures_of(*seen(STATION)));
    EXPECT_EQ(1u, working_clients());
    client_->wifi_link_info[0] = 0;
}

// Whatever else waited to be published comes out with the update.
TEST_F(WifiInfo, UpdateWritesTheClientAlsoWhenTheDriverDoesNotListIt) {
    set("wifi.ssid.1.station", "02:AA:00:00:00:22 1 2 3 4 5");
    client_->wifi_link_info[0] = 5;
    update(STATION);
    EXPECT_EQ((Figures{5, 0, 0, 0, 0}), figures_of(*seen(STATION)));
    fail("wlan_getAssocDevice", -7);
    client_->wifi_link_info[0] = 6;
    update(STATION);
    EXPECT_EQ((Figures{6, 0, 0, 0, 0}), figures_of(*seen(STATION)));
    EXPECT_EQ(1u, working_clients());
}

} // namespace wifi_info_test
