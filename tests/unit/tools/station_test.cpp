// What an access point says of a station now.
#include <gtest/gtest.h>
#include <string>

#include "tools/station.h"

namespace station_test {

const std::string mac = "02:aa:00:00:00:11";

TEST(Station, WithAllThatIsKnown) {
    const auto entry =
        parse_station(mac + "\nflags=[AUTH][ASSOC][AUTHORIZED]\nsignal=-43\ninactive_msec=120\n"
                            "connected_time=55\nrx_rate_info=60 mcs 1\ntx_rate_info=4333 shortGI\n",
                      mac, "wlan0");
    ASSERT_TRUE(entry);
    EXPECT_EQ(station_text(*entry),
              "wlan0: signal -43 dBm, inactive for 120 ms, connected for 55 s, receives from it "
              "at 6.0 Mbit/s, sends to it at 433.3 Mbit/s");
}

TEST(Station, ThatHasNotLoggedIn) {
    const auto entry = parse_station(mac + "\nflags=[AUTH][ASSOC]\nsignal=x\n", mac, "wlan0");
    ASSERT_TRUE(entry);
    EXPECT_EQ(station_text(*entry), "wlan0: not logged in");
    EXPECT_TRUE(parse_station(mac, mac, "wlan0")->authorized) << "it does not say";
}

TEST(Station, ThatIsNoneOrAnother) {
    for (const std::string &answer :
         {std::string(), std::string("FAIL\n"), std::string("02:aa:00:00:00:12\n"), std::string("\0\xff", 2),
          std::string("\nsignal=-43\n")})
        EXPECT_FALSE(parse_station(answer, mac, "wlan0")) << answer;
}

} // namespace station_test
