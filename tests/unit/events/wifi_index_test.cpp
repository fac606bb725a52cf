// The SSID of a client that was first seen by its address or lease.
#include <gmock/gmock.h>

#include "events/wifi_index.h"
#include "support/presence.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace wifi_index_test {

class WifiIndex : public PresenceTest {
  protected:
    static hbs_client *client(uint8_t adapter) {
        hbs_client *made = add(MAC_A);
        made->adapter_type = adapter;
        return made;
    }
};

TEST_F(WifiIndex, WifiClientInTheTable_TakesItsSsidNumberLessOne) {
    hbs_client *made = client(HBS_ADAPTER_WIFI);
    hbs_wifi_bssid_table_set(mac_of(MAC_A).data(), 4);
    clear_log();
    hbs_take_wifi_index(made);
    EXPECT_EQ(3, made->wifi_index);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(WifiIndex, WifiClientThatIsNot_IsLogged) {
    hbs_client *made = client(HBS_ADAPTER_WIFI);
    made->wifi_index = 7;
    clear_log();
    hbs_take_wifi_index(made);
    EXPECT_EQ(7, made->wifi_index);
    EXPECT_THAT(log_lines(), ElementsAre("HOSTBASE: Got bssid failed for 02:ab:00:00:00:11"));
}

TEST_F(WifiIndex, OtherAdapters_AreLeftAlone) {
    hbs_wifi_bssid_table_set(mac_of(MAC_A).data(), 4);
    for (const uint8_t adapter :
         {HBS_ADAPTER_UNKNOWN, HBS_ADAPTER_ETHERNET, HBS_ADAPTER_USB, HBS_ADAPTER_MOCA}) {
        hbs_client *made = client(adapter);
        clear_log();
        hbs_take_wifi_index(made);
        EXPECT_EQ(0, made->wifi_index);
        EXPECT_THAT(log_lines(), IsEmpty());
    }
}

} // namespace wifi_index_test
