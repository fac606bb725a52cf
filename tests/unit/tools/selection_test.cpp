// Which clients a list shows, and in which order.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/client_selection.h"

namespace selection_test {

hbs_client client_of(const char *host, uint8_t network, uint8_t last, uint8_t number) {
    hbs_client client = {};
    strcpy(client.host, host);
    client.nwidx = network;
    if (last != 0) {
        client.ipv4[0] = 192;
        client.ipv4[1] = 168;
        client.ipv4[2] = network;
        client.ipv4[3] = last;
    }
    client.mac[0] = 2;
    client.mac[5] = number;
    return client;
}

std::vector<hbs_client> house() {
    std::vector<hbs_client> clients = {client_of("tv", 1, 9, 4), client_of("Laptop", 0, 200, 3),
                                       client_of("", 0, 0, 1), client_of("phone", 0, 11, 2)};
    clients[1].flags = clients[3].flags = HBS_FLAG_ONLINE;
    clients[0].adapter_type = HBS_ADAPTER_WIFI;
    clients[3].adapter_type = HBS_ADAPTER_ETHERNET;
    for (uint32_t i = 0; i < 4; i++)
        clients[i].online_time = 100 + i;
    return clients;
}

std::string shown(const client_selection &how) {
    std::string numbers;
    for (const hbs_client &client : selected(house(), how))
        numbers += std::to_string(client.mac[5]);
    return numbers;
}

client_selection sorted_by(const char *key, bool reverse = false) {
    client_selection how;
    how.sort = key;
    how.reverse = reverse;
    return how;
}

TEST(Selection, ByItself_SortsByNetworkAndAddress_WithoutAddressLast) {
    EXPECT_EQ(shown({}), "2314");
}

TEST(Selection, SortsByEachKey) {
    EXPECT_EQ(shown(sorted_by("network")), "2314");
    EXPECT_EQ(shown(sorted_by("ip")), "2341");
    EXPECT_EQ(shown(sorted_by("name")), "3241") << "capitals do not count, no name comes last";
    EXPECT_EQ(shown(sorted_by("mac")), "1234");
    EXPECT_EQ(shown(sorted_by("seen")), "2134") << "the latest first";
    EXPECT_EQ(shown(sorted_by("mac", true)), "4321");
    EXPECT_EQ(sort_keys().size(), 5u);
}

TEST(Selection, KeepsWhatIsWanted) {
    EXPECT_EQ(shown({.online = true}), "23");
    EXPECT_EQ(shown({.offline = true}), "14");
    EXPECT_EQ(shown({.online = true, .offline = true}), "2314");
    EXPECT_EQ(shown({.networks = {1}}), "4");
    EXPECT_EQ(shown({.networks = {0, 1}}), "2314");
    EXPECT_EQ(shown({.networks = {2}}), "");
    EXPECT_EQ(shown({.adapters = {"wifi", "ethernet"}}), "24");
    EXPECT_EQ(shown({.online = true, .adapters = {"unknown"}}), "3");
}

TEST(Selection, MovesTimesBeyondTheSignLikeTheDatabaseDoes) {
    std::vector<hbs_client> clients = {client_of("old", 0, 1, 1), client_of("new", 0, 2, 2)};
    clients[0].online_time = 0xFFFFFFF0u;
    clients[1].online_time = 5;
    EXPECT_STREQ(selected(clients, sorted_by("seen"))[0].host, "new");
}

} // namespace selection_test
