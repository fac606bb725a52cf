// The numbers of a router's ports, where the kernel's tables make no sense.
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "linux_conf.h"
#include "linux_ports.h"
#include "linux_view.h"

namespace ports_test {

constexpr int bridge = 2;
constexpr unsigned patience = 10; // seconds, after which the numbering counts as endless

// A network of one bridge, and the devices that each test puts there.
struct LinuxPorts : testing::Test {
    linux_conf conf;
    linux_view view = {};
    linux_ports ports = {};
    LinuxPorts() {
        linux_conf_preset(&conf);
        add(bridge, "br0", 0)->bridge = true;
        view.address[view.addresses++] = {bridge, AF_INET, 24, {192, 168, 1, 1}};
    }
    linux_link *add(int index, const std::string &name, int master) {
        linux_link *link = &view.link[view.links++];
        *link = {};
        link->index = index;
        link->master = master;
        link->running = true;
        (void)snprintf(link->name, sizeof link->name, "%s", name.c_str());
        return link;
    }
    // What is found under the port's name is no port.
    void add_with_repeated_name(int index, const std::string &name) {
        add(index, name, 0);
        add(index + 1, name, bridge);
    }
    void remove(const std::string &name) {
        for (size_t i = 0; i < view.links; i++)
            if (view.link[i].name == name)
                view.link[i] = view.link[--view.links];
    }
    void add_as_many_as_there_are_numbers() {
        for (int i = 1; i <= EXTSWT_PORTS; i++)
            add(10 + i, "eth" + std::to_string(i), bridge);
        update();
    }
    void update() {
        linux_dips dips = {};
        (void)alarm(patience);
        linux_ports_update(&ports, &view, &conf, &dips);
        (void)alarm(0);
    }
};

TEST_F(LinuxPorts, DevicesWithoutAnIndexGetNoNumbers) {
    for (int i = 0; i <= EXTSWT_PORTS; i++)
        add(0, "eth" + std::to_string(i), bridge);
    update();
    for (const linux_port &port : ports.port)
        EXPECT_STREQ("", port.name);
    EXPECT_EQ(0u, linux_port_of(&ports, 0)) << "no index is no device";
}

TEST_F(LinuxPorts, DevicesWithRepeatedNamesGetNoNumbers) {
    for (int i = 1; i < EXTSWT_PORTS; i++)
        add(10 + i, "eth" + std::to_string(i), bridge);
    add_with_repeated_name(100, "twice1");
    add_with_repeated_name(102, "twice2");
    update();
    for (unsigned i = 1; i < EXTSWT_PORTS; i++)
        EXPECT_EQ(i, linux_port_of(&ports, static_cast<int>(10 + i))) << "those that make sense keep theirs";
    for (int i = 100; i < 104; i++)
        EXPECT_EQ(0u, linux_port_of(&ports, i));
}

TEST_F(LinuxPorts, TablesWithoutSenseLeaveTheNumbersToTheNextOnes) {
    add_with_repeated_name(100, "twice1");
    for (int i = 0; i < EXTSWT_PORTS; i++)
        add(0, "eth" + std::to_string(i), bridge);
    update();
    view.links = 1;
    add(20, "lan0", bridge);
    update();
    EXPECT_EQ(1u, linux_port_of(&ports, 20));
}

TEST_F(LinuxPorts, WhoseDeviceHasBeenGoneLongestGivesItsNumberAway) {
    add_as_many_as_there_are_numbers();
    for (const char *gone : {"eth3", "eth4", "eth1"}) {
        remove(gone);
        update();
    }
    for (const auto &[index, number] : {std::pair(200, 3u), {201, 4u}, {202, 1u}, {203, 0u}}) {
        add(index, "new" + std::to_string(index), bridge);
        update();
        EXPECT_EQ(number, linux_port_of(&ports, index));
    }
}

TEST_F(LinuxPorts, ANumberOfTheSettingsIsNotGivenAway) {
    constexpr int last = 10 + EXTSWT_PORTS;
    (void)snprintf(conf.port[0], sizeof conf.port[0], "eth1");
    (void)snprintf(conf.port[1], sizeof conf.port[1], "later");
    add_as_many_as_there_are_numbers();
    EXPECT_EQ(0u, linux_port_of(&ports, last)) << "one is kept for a device that is not there yet";
    for (const char *gone : {"eth1", "eth2"}) {
        EXPECT_EQ(0u, linux_port_of(&ports, last)) << gone;
        remove(gone);
        update();
    }
    EXPECT_EQ(3u, linux_port_of(&ports, last)) << "that of eth2";
    add(200, "later", bridge);
    add(201, "eth1", bridge);
    update();
    EXPECT_EQ(2u, linux_port_of(&ports, 200));
    EXPECT_EQ(1u, linux_port_of(&ports, 201));
}

} // namespace ports_test
