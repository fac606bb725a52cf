// The file that keeps the networks' numbers, and the address that a network is known by.
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

#include "base/paths.h"
#include "linux_conf.h"
#include "linux_lans.h"

using testing::ElementsAre;

namespace lans_test {

struct LinuxNumbers : testing::Test {
    linux_conf conf;
    linux_lan_numbers numbers = {};
    LinuxNumbers() { linux_conf_preset(&conf); }
};

TEST_F(LinuxNumbers, ALineOfTheNumbersThatMakesNoSenseCostsNoOther) {
    const char *path = "/tmp/networks";
    FILE *file = fopen(path, "we");
    (void)fprintf(file, "garbage\n%s\n9 nine\n3 br0\n3 br1\n\n2\n4 br0\n5 lan\n",
                  std::string(200, 'x').c_str());
    (void)fclose(file);
    ASSERT_TRUE(linux_lan_numbers_load(path, &conf, &numbers));
    EXPECT_STREQ("br0", numbers.name[2]);
    EXPECT_STREQ("lan", numbers.name[4]);
    for (const int free : {0, 1, 3, 5, 6, 7})
        EXPECT_STREQ("", numbers.name[free]);
}

TEST_F(LinuxNumbers, NumbersThatCannotBeReadAreNoMissingOnes) {
    EXPECT_TRUE(linux_lan_numbers_load("/tmp/no-such-networks", &conf, &numbers));
    EXPECT_FALSE(linux_lan_numbers_load("/tmp", &conf, &numbers)) << "can be opened, but not read";
    EXPECT_FALSE(linux_lan_numbers_load("/dev/null/networks", &conf, &numbers));
}

// One bridge with addresses in the kernel's order.
struct LinuxLanAddress : LinuxNumbers {
    linux_view view = {};
    LinuxLanAddress() {
        std::filesystem::create_directories(HBS_PERSISTENT_DIR "/dhcpd");
        view.links = 1;
        view.link[0].index = 2;
        view.link[0].bridge = true;
        (void)snprintf(view.link[0].name, IFNAMSIZ, "lan0");
        (void)snprintf(numbers.name[0], IFNAMSIZ, "lan0");
    }
    ~LinuxLanAddress() override {
        for (const char *address : {"192.168.10.1", "10.77.0.1", "172.16.0.1"})
            std::filesystem::remove(file_of(address));
    }
    static std::string file_of(const std::string &address) {
        return HBS_STATIC_LEASES_BEFORE + address + HBS_STATIC_LEASES_AFTER;
    }
    static void write_leases(const std::string &address, const std::string &text) {
        std::ofstream(file_of(address)) << text;
    }
    static std::string text_of(const uint8_t *address) {
        char text[INET_ADDRSTRLEN];
        return inet_ntop(AF_INET, address, text, sizeof text);
    }
    // All in the order of the table, that of the network first.
    std::vector<std::string> order_of(std::initializer_list<const char *> addresses) {
        view.addresses = 0;
        for (const char *text : addresses) {
            linux_address &address = view.address[view.addresses++];
            address = {2, AF_INET, 24, {}};
            EXPECT_EQ(1, inet_pton(AF_INET, text, address.bytes));
        }
        common_router_table table;
        linux_lans_table(&view, &conf, &numbers, &table);
        EXPECT_EQ(1u, table.count);
        EXPECT_EQ(24u, table.entry[0].params.prefix_length);
        std::vector<std::string> order = {text_of(table.entry[0].params.ipv4)};
        for (size_t i = 0; i < table.entry[0].others; i++)
            order.push_back(text_of(table.entry[0].other[i].address));
        return order;
    }
};

TEST_F(LinuxLanAddress, IsTheFirstOne) {
    EXPECT_THAT(order_of({"192.168.10.1", "10.77.0.1"}), ElementsAre("192.168.10.1", "10.77.0.1"));
    EXPECT_THAT(order_of({"10.77.0.1", "192.168.10.1"}), ElementsAre("10.77.0.1", "192.168.10.1"));
}

TEST_F(LinuxLanAddress, IsTheOneWithStaticLeases) {
    write_leases("192.168.10.1", "02:aa:00:00:00:11 192.168.10.77\n");
    EXPECT_THAT(order_of({"192.168.10.1", "10.77.0.1"}), ElementsAre("192.168.10.1", "10.77.0.1"));
    EXPECT_THAT(order_of({"10.77.0.1"}), ElementsAre("10.77.0.1")) << "while the other one is away";
    EXPECT_THAT(order_of({"10.77.0.1", "172.16.0.1", "192.168.10.1"}),
                ElementsAre("192.168.10.1", "10.77.0.1", "172.16.0.1"));
}

TEST_F(LinuxLanAddress, WhoseStaticLeasesAreClearedIsOneWithout) {
    write_leases("192.168.10.1", "");
    EXPECT_THAT(order_of({"10.77.0.1", "192.168.10.1"}), ElementsAre("10.77.0.1", "192.168.10.1"));
    write_leases("172.16.0.1", "02:aa:00:00:00:11 172.16.0.77\n");
    EXPECT_THAT(order_of({"192.168.10.1", "10.77.0.1", "172.16.0.1"}),
                ElementsAre("172.16.0.1", "192.168.10.1", "10.77.0.1"));
}

TEST_F(LinuxLanAddress, IsTheFirstOfSeveralWithStaticLeases) {
    for (const char *address : {"192.168.10.1", "172.16.0.1"})
        write_leases(address, "02:aa:00:00:00:11 192.168.10.77\n");
    EXPECT_EQ("172.16.0.1", order_of({"10.77.0.1", "172.16.0.1", "192.168.10.1"}).at(0));
}

} // namespace lans_test
