// The server of the live page ends, whatever became of its listener.
#ifdef HBSCTL_SERVE
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

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

// The first line of the answer.
std::string answer_to(int port, const std::string &path) {
    sockaddr_in where = {};
    where.sin_family = AF_INET;
    where.sin_port = htons(static_cast<uint16_t>(port));
    where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    std::string text;
    if (connect(fd, reinterpret_cast<sockaddr *>(&where), sizeof where) == 0 &&
        write(fd, request.data(), request.size()) == static_cast<ssize_t>(request.size())) {
        char block[4096];
        for (ssize_t size = 0; (size = read(fd, block, sizeof block)) > 0;)
            text.append(block, static_cast<size_t>(size));
    }
    close(fd);
    return text.substr(0, text.find('\r'));
}

TEST_F(PageServer, TellsProgramsThatTheDatabaseCannotBeRead) {
    EXPECT_THROW(source.look(), database_error) << "there is no segment";
    for (const char *path : {"/metrics", "/clients.json"})
        EXPECT_EQ(answer_to(server.address().port, path), "HTTP/1.1 503 Service Unavailable") << path;
    EXPECT_EQ(answer_to(server.address().port, "/"), "HTTP/1.1 200 OK") << "the page stays";
}

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
