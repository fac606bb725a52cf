// Whether the DHCP server that a pid file names can be told of static leases.
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "linux/router_log.h"
#include "linux_server.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace server_test {

constexpr const char *pid_file = "/tmp/server.pid";

struct LinuxServer : testing::Test {
    LinuxServer() {
        (void)std::remove(pid_file);
        router_logged.clear();
    }
    ~LinuxServer() override { (void)std::remove(pid_file); }
    static void write(const std::string &text) { std::ofstream(pid_file) << text; }
};

TEST_F(LinuxServer, ThatDoesNotRunHasNothingToBeTold) {
    EXPECT_TRUE(linux_server_tell(pid_file));
    EXPECT_THAT(router_logged, IsEmpty());
}

TEST_F(LinuxServer, WhoseFileIsStillEmptyIsToldLater) {
    write("");
    EXPECT_FALSE(linux_server_tell(pid_file));
    EXPECT_FALSE(linux_server_tell(pid_file));
    EXPECT_THAT(router_logged, IsEmpty());
}

TEST_F(LinuxServer, WhoseFileIsNoneIsLeftAloneAndNamedOnce) {
    ASSERT_EQ(0, symlink("server.pid", pid_file)); // to itself
    EXPECT_TRUE(linux_server_tell(pid_file));
    EXPECT_TRUE(linux_server_tell("/dev/null/server.pid"));
    EXPECT_TRUE(linux_server_tell("/tmp"));
    EXPECT_THAT(router_logged, ElementsAre("/tmp/server.pid names no process, dnsmasq is not told of static "
                                           "leases: Too many levels of symbolic links"));
    EXPECT_TRUE(linux_server_tell("/tmp/none"));
    EXPECT_TRUE(linux_server_tell("/tmp"));
    EXPECT_THAT(router_logged,
                ElementsAre(HasSubstr("server.pid names"), HasSubstr("/tmp names no process")));
}

TEST_F(LinuxServer, WhoseFileHoldsNoProcessIsLeftAlone) {
    for (const char *text : {"x\n", "0\n", "1\n", "-7\n", "\n"}) {
        write(text);
        EXPECT_TRUE(linux_server_tell(pid_file)) << text;
    }
    EXPECT_THAT(router_logged, ElementsAre(HasSubstr("names no process")));
}

TEST_F(LinuxServer, ThatIsAnotherProgramIsNotTold) {
    write(std::to_string(getpid()) + "\n");
    EXPECT_TRUE(linux_server_tell(pid_file));
    EXPECT_THAT(router_logged, ElementsAre(HasSubstr("is not known to be dnsmasq")));
}

} // namespace server_test
