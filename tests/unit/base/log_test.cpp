// What a message costs that nobody takes.
#include "base/log.h"
#include "support/gateway.h"

namespace log_test {

class Log : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_log_init();
    }
    int computed() { return ++computed_; }
    int computed_ = 0;
};

TEST_F(Log, ComputesTheArgumentsOfAMessageThatIsTaken) {
    HBS_LOG(HBS_DEBUG, "HOSTBASE: %d", computed());
    EXPECT_EQ(1, computed_);
    EXPECT_TRUE(logged("HOSTBASE: 1"));
}

TEST_F(Log, LeavesTheArgumentsOfAMessageAboveTheLevelAlone) {
    set("log.level", "error");
    HBS_LOG(HBS_ERROR, "HOSTBASE: %d", computed()); // the call that finds the new level
    HBS_LOG(HBS_INFO, "HOSTBASE: %d", computed());
    EXPECT_EQ(1, computed_);
    EXPECT_EQ(1u, log_lines().size());
}

TEST_F(Log, TakesEverythingAgainWhenTheLevelIsLifted) {
    set("log.level", "error");
    HBS_LOG(HBS_ERROR, "HOSTBASE: finds the level");
    unset("log.level");
    HBS_LOG(HBS_ERROR, "HOSTBASE: finds that it is gone");
    HBS_LOG(HBS_DEBUG, "HOSTBASE: %d", computed());
    EXPECT_EQ(1, computed_);
}

} // namespace log_test
