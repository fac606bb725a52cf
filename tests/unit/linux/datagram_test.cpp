// A datagram to a receiver whose queue is full.
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "linux_datagram.h"

namespace datagram_test {

constexpr const char *name = "@full-queue";

struct LinuxDatagram : testing::Test {
    int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    LinuxDatagram() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path + 1, name + 1, strlen(name) - 1);
        EXPECT_EQ(0, bind(receiver, reinterpret_cast<sockaddr *>(&address),
                          static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(name))));
        while (send_now()) {}
    }
    ~LinuxDatagram() override { (void)close(receiver); }
    static bool send_now() { return linux_datagram_send(name, "x", 1, 0); }
};

TEST_F(LinuxDatagram, IsLostAtOnceWhereNobodyIsWaitedFor) {
    EXPECT_FALSE(send_now());
    char byte = 0;
    EXPECT_EQ(1, recv(receiver, &byte, 1, 0));
    EXPECT_TRUE(send_now());
}

TEST_F(LinuxDatagram, ArrivesOnceThereIsRoom) {
    std::thread reader([this] {
        for (char byte = 0; byte != '!';)
            EXPECT_EQ(1, recv(receiver, &byte, 1, 0));
    });
    EXPECT_TRUE(linux_datagram_send(name, "!", 1, 60));
    reader.join();
}

TEST_F(LinuxDatagram, IsGivenUpInTheEnd) {
    EXPECT_FALSE(linux_datagram_send(name, "!", 1, 1));
}

TEST(LinuxDatagramAddress, NobodyIsNotWaitedFor) {
    EXPECT_FALSE(linux_datagram_send("/tmp/nobody", "!", 1, 60));
    EXPECT_FALSE(linux_datagram_send("", "!", 1, 60));
    EXPECT_FALSE(linux_datagram_send(
        "/tmp/x/../x/../x/../x/../x/../x/../x/../x/../x/../x/../x/../x/../x/../x/../x/../x/"
        "../x/../x/../x/../x/too-long",
        "!", 1, 60));
}

} // namespace datagram_test
