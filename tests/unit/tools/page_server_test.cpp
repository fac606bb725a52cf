// The server of the live page ends, whatever became of its listener.
#ifdef HBSCTL_SERVE
#include <gtest/gtest.h>
#include <sstream>
#include <sys/socket.h>

#include "support/gateway.h"
#include "tools/page_server.h"

namespace page_server_test {

int listening_socket() {
    for (int fd = 3; fd < 100; fd++) {
        int listens = 0;
        socklen_t size = sizeof listens;
        if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0)
            return fd;
    }
    return -1;
}

class PageServer : public testing::Test {
  protected:
    std::istringstream in;
    std::ostringstream out, err;
    const session run = {.in = in, .out = out, .err = err, .socket_path = "/var/tmp/nobody", .how = {}};
    live_source source{run};
    page_server server{{"127.0.0.1", 0}, source};
};

TEST_F(PageServer, EndsWhenItIsToldTo) {
    EXPECT_GT(server.address().port, 0);
    EXPECT_FALSE(server.has_ended());
}

TEST_F(PageServer, EndsWhenItsListenerHasEndedByItself) {
    ASSERT_EQ(shutdown(listening_socket(), SHUT_RDWR), 0); // as a failure of the network would do
    EXPECT_TRUE(wait_until([&] { return server.has_ended(); }, 60000));
}

} // namespace page_server_test
#endif
