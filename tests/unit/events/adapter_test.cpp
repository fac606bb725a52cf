// How a client is connected, and on which port of the switch.
#include "events/adapter.h"
#include "support/working_clients.h"

namespace adapter_test {

class AdapterType : public OneClientTest {
  protected:
    const std::string mac_ = "02:aa:00:00:00:01";
};

TEST_F(AdapterType, Ethernet_StoresTheSwitchPort) {
    learn(mac_, 3);
    hbs_set_adapter_type(client_, HBS_ADAPTER_ETHERNET);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client_->adapter_type);
    EXPECT_EQ(3, client_->switch_port);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(AdapterType, EthernetUnknownToTheSwitch_HasNoPort) {
    hbs_set_adapter_type(client_, HBS_ADAPTER_ETHERNET);
    EXPECT_EQ(HBS_ADAPTER_ETHERNET, client_->adapter_type);
    EXPECT_EQ(0, client_->switch_port);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(AdapterType, ChangedAlsoWhenOnlyThePortDiffers) {
    learn(mac_, 3);
    hbs_set_adapter_type(client_, HBS_ADAPTER_ETHERNET);
    client_->flags = 0;
    hbs_set_adapter_type(client_, HBS_ADAPTER_ETHERNET);
    EXPECT_EQ(0U, client_->flags);
    learn(mac_, 4);
    hbs_set_adapter_type(client_, HBS_ADAPTER_ETHERNET);
    EXPECT_EQ(4, client_->switch_port);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(AdapterType, LeavingTheSwitch_ForgetsThePort) {
    learn(mac_, 3);
    hbs_set_adapter_type(client_, HBS_ADAPTER_ETHERNET);
    client_->flags = 0;
    hbs_set_adapter_type(client_, HBS_ADAPTER_WIFI);
    EXPECT_EQ(HBS_ADAPTER_WIFI, client_->adapter_type);
    EXPECT_EQ(0, client_->switch_port);
    EXPECT_EQ(HBS_CHANGED, client_->flags);
}

TEST_F(AdapterType, EqualTypeOffTheSwitchDoesNothing) {
    learn(mac_, 3);
    hbs_set_adapter_type(client_, HBS_ADAPTER_MOCA);
    EXPECT_EQ(0, client_->switch_port) << "only Ethernet clients have a port";
    client_->flags = 0;
    hbs_set_adapter_type(client_, HBS_ADAPTER_MOCA);
    EXPECT_EQ(0U, client_->flags);
    hbs_set_adapter_type(nullptr, HBS_ADAPTER_ETHERNET);
}

} // namespace adapter_test
