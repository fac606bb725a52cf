// Who made a device, by the list of makers.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "tools/maker.h"

namespace maker_test {

TEST(Maker, IsWhatTheListSays) {
    const char *list = "/tmp/hbsctl_makers";
    std::filesystem::create_directories(list);
    std::ofstream(std::string(list) + "/oui.txt")
        << "OUI/MA-L                                                    Organization\n\n"
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
    std::filesystem::remove_all(list);
}

// Blocks that makers have parts of stand in the list of whole ones, too, under the registry's own name.
TEST(Maker, OfAPartOfABlockIsWhoHasThePart) {
    const std::string lists = "/tmp/hbsctl_parts";
    std::filesystem::create_directories(lists);
    std::ofstream(lists + "/oui.txt")
        << "70-B3-D5   (hex)\t\tThe registry\r\n70B3D5     (base 16)\t\tThe registry\r\n"
        << "20-85-93   (hex)\t\tThe registry\r\n";
    std::ofstream(lists + "/oui36.txt") << "OUI-36/MA-S Range\n\r\n70-B3-D5   (hex)\t\tSmall\r\n"
                                        << "F2F000-F2FFFF     (base 16)\t\tSmall\r\n\t\t\t\tA Street 1\r\n";
    std::ofstream(lists + "/mam.txt")
        << "20-85-93   (hex)\t\tMiddle\r\nB00000-BFFFFF     (base 16)\t\tMiddle\r\n"
        << "nonsense     (base 16)\t\tNobody\r\n";
    std::ofstream(lists + "/iab.txt")
        << "00-50-C2                      (hex)                         Old Ltd    \n"
        << "7D5000-7D5FFF                 (base 16)                     Old Ltd    \n";
    const struct {
        uint8_t mac[6];
        const char *maker;
    } rows[] = {{{0x70, 0xB3, 0xD5, 0xF2, 0xF1, 2}, "Small"},
                {{0x70, 0xB3, 0xD5, 0xF2, 0xE1, 2}, "The registry"},
                {{0x20, 0x85, 0x93, 0xBF, 0xFF, 0xFF}, "Middle"},
                {{0x20, 0x85, 0x93, 0xC0, 0, 0}, "The registry"},
                {{0x00, 0x50, 0xC2, 0x7D, 0x50, 0x01}, "Old Ltd"},
                {{0x00, 0x50, 0xC2, 0x7D, 0x60, 0x01}, ""}};
    for (const auto &row : rows)
        EXPECT_EQ(maker_of(row.mac, lists.c_str()), row.maker);
    std::filesystem::remove_all(lists);
}

TEST(Maker, OfAMacThatWasMadeUpIsNobody) {
    const uint8_t random[6] = {0xDA, 0, 0, 0, 0, 1}, real[6] = {0xD8, 0, 0, 0, 0, 1};
    EXPECT_TRUE(is_random_mac(random));
    EXPECT_FALSE(is_random_mac(real));
}

} // namespace maker_test
