// Who made a device, by the list of makers.
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "tools/maker.h"

namespace maker_test {

TEST(Maker, IsWhatTheListSays) {
    const char *list = "/tmp/hbsctl_maker_test.txt";
    std::ofstream(list) << "OUI/MA-L                                                    Organization\n\n"
                        << "00-22-72   (hex)\t\tFuel Devices Corp.\r\n"
                        << "002272     (base 16)\t\tFuel Devices Corp.\r\n"
                        << "(hex)\n00-D0-EF   (hex)\t\tIGT\n08-61-95   (hex)\n";
    const uint8_t fuel[6] = {0x00, 0x22, 0x72, 1, 2, 3}, games[6] = {0x00, 0xD0, 0xEF, 0, 0, 0};
    const uint8_t nameless[6] = {0x08, 0x61, 0x95, 0, 0, 0}, random[6] = {0x02, 0x22, 0x72, 1, 2, 3};
    EXPECT_EQ(maker_of(fuel, list), "Fuel Devices Corp.");
    EXPECT_EQ(maker_of(games, list), "IGT");
    EXPECT_EQ(maker_of(nameless, list), "");
    EXPECT_EQ(maker_of(random, list), "");
    EXPECT_EQ(maker_of(fuel, "/nowhere"), "");
    (void)remove(list);
}

TEST(Maker, OfAMacThatWasMadeUpIsNobody) {
    const uint8_t random[6] = {0xDA, 0, 0, 0, 0, 1}, real[6] = {0xD8, 0, 0, 0, 0, 1};
    EXPECT_TRUE(is_random_mac(random));
    EXPECT_FALSE(is_random_mac(real));
}

} // namespace maker_test
