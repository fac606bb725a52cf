// The server of the live page goes on and ends, whatever visitors and its listener do.
#ifdef HBSCTL_SERVE
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "support/gateway.h"
#include "support/query_segment.h"
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

std::string first_line(const std::string &answer) {
    return answer.substr(0, answer.find('\r'));
}

// A connection to the server; closed with it.
class Visitor {
  public:
    // One with little room has the server wait for him.
    explicit Visitor(int port, bool has_room = true) {
        if (!has_room)
            take_room();
        sockaddr_in where = {};
        where.sin_family = AF_INET;
        where.sin_port = htons(static_cast<uint16_t>(port));
        where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience = {20, 0};
        (void)setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr *>(&where), sizeof where), 0);
    }
    ~Visitor() { close(fd_); }
    Visitor(const Visitor &) = delete;
    Visitor &operator=(const Visitor &) = delete;

    bool say(const std::string &text) const {
        return send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }

    void ask(const std::string &path, const std::string &headers = "") const {
        EXPECT_TRUE(say("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n"));
    }

    // Some of the answer; nothing when it has ended.
    std::string hear(size_t most = 4096) const {
        char block[4096];
        const ssize_t size = read(fd_, block, std::min(most, sizeof block));
        return {block, size > 0 ? static_cast<size_t>(size) : 0};
    }

    bool is_closed() const {
        char next = 0;
        return recv(fd_, &next, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 || errno != EAGAIN;
    }

    std::string answer() const {
        std::string text;
        for (std::string more = hear(); !more.empty(); more = hear())
            text += more;
        return text;
    }

  private:
    void take_room() const {
        const int size = 2048, segment = 536;
        EXPECT_EQ(setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size), 0);
        EXPECT_EQ(setsockopt(fd_, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment), 0);
    }

    int fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

// They send a byte now and then, and never come to an end.
class Dawdlers {
  public:
    Dawdlers(int port, unsigned count) {
        while (all_.size() < count) {
            all_.push_back(std::make_unique<Visitor>(port));
            (void)all_.back()->say("GET / HTTP/1.1\r\nHost: localhost\r\nName: ");
        }
        sending_ = std::thread([this] { send(); });
    }
    ~Dawdlers() {
        enough_ = true;
        sending_.join();
    }
    Dawdlers(const Dawdlers &) = delete;
    Dawdlers &operator=(const Dawdlers &) = delete;

    auto closed() const {
        return std::count_if(
            all_.begin(), all_.end(), [](const auto &each) { return each->is_closed(); });
    }

  private:
    void send() const {
        for (; !enough_; sleep_milliseconds(20))
            for (const auto &each : all_)
                (void)each->say("a");
    }

    std::vector<std::unique_ptr<Visitor>> all_;
    std::atomic<bool> enough_ = false;
    std::thread sending_;
};

constexpr unsigned all_workers = 24;

class PageServer : public testing::Test {
  protected:
    explicit PageServer(const http_bounds &bounds = {})
        : server(std::make_unique<page_server>(listen_address{"127.0.0.1", 0}, source, bounds)) {}

    std::istringstream in;
    std::ostringstream out, err;
    const session run = {.in = in, .out = out, .err = err, .socket_path = "/var/tmp/nobody", .how = {}};
    live_source source{run};
    std::unique_ptr<page_server> server;
    const int port = server->address().port;

    // The first line of the answer.
    std::string answer_to(const std::string &path) const {
        const Visitor visitor(port);
        visitor.ask(path);
        return first_line(visitor.answer());
    }

    std::unique_ptr<Visitor> new_follower() const {
        auto follower = std::make_unique<Visitor>(port);
        follower->ask("/events");
        EXPECT_THAT(follower->hear(), testing::StartsWith("HTTP/1.1 200 OK"));
        return follower;
    }

    // Whoever keeps it from ending has to have gone when this returns, as it waits for the end.
    bool ends_within(int milliseconds) {
        std::atomic<bool> ended = false;
        std::thread ending([&] {
            server.reset();
            ended = true;
        });
        const bool in_time = wait_until([&] { return ended.load(); }, milliseconds);
        EXPECT_TRUE(in_time);
        ending.join();
        return in_time;
    }
};

TEST_F(PageServer, TellsProgramsThatTheDatabaseCannotBeRead) {
    EXPECT_THROW(source.look(), database_error) << "there is no segment";
    for (const char *path : {"/metrics", "/clients.json"})
        EXPECT_EQ(answer_to(path), "HTTP/1.1 503 Service Unavailable") << path;
    EXPECT_EQ(answer_to("/"), "HTTP/1.1 200 OK") << "the page stays";
}

TEST_F(PageServer, EndsWhenItIsToldTo) {
    EXPECT_GT(server->address().port, 0);
    EXPECT_FALSE(server->has_ended());
}

TEST_F(PageServer, EndsWhenItsListenerHasEndedByItself) {
    ASSERT_EQ(shutdown(listening_socket(), SHUT_RDWR), 0); // as a failure of the network would do
    EXPECT_TRUE(wait_until([&] { return server->has_ended(); }, 60000));
}

TEST_F(PageServer, TellsThatItsListenerHasEndedWhileSomebodyFollows) {
    const auto follower = new_follower();
    ASSERT_EQ(shutdown(listening_socket(), SHUT_RDWR), 0);
    EXPECT_TRUE(wait_until([&] { return server->has_ended(); }, 10000));
}

TEST_F(PageServer, ClosesNoOthersDescriptorAfterItsListenerHasEnded) {
    const auto follower = new_follower();
    const int number = listening_socket();
    ASSERT_EQ(shutdown(number, SHUT_RDWR), 0);
    (void)wait_until([&] { return server->has_ended(); }, 10000);
    // Where the listener gave its number back, it is another's now.
    const int mine = dup(STDIN_FILENO);
    EXPECT_TRUE(ends_within(10000));
    EXPECT_GE(fcntl(mine, F_GETFD), 0);
    close(mine);
}

std::string many_ranges(unsigned count) {
    std::string text = "Range: bytes=0-";
    while (--count > 0)
        text += ",0-";
    return text + "\r\n";
}

TEST_F(PageServer, GivesAPageOnceHoweverManyRangesOfItAreAskedFor) {
    const Visitor plain(port), many(port), one(port);
    plain.ask("/");
    many.ask("/", many_ranges(500));
    one.ask("/", "Range: bytes=0-14\r\n");
    const std::string answer = many.answer(), part = one.answer();
    EXPECT_EQ(answer.size(), plain.answer().size());
    EXPECT_EQ(first_line(answer), "HTTP/1.1 200 OK");
    EXPECT_EQ(first_line(part), "HTTP/1.1 206 Partial Content");
    EXPECT_EQ(part.substr(part.size() - 19), "\r\n\r\n<!DOCTYPE html>");
}

std::string repeated(const std::string &text, size_t size) {
    std::string all;
    while (all.size() < size)
        all += text;
    return all;
}

TEST_F(PageServer, ReadsNoEndlessRequest) {
    constexpr unsigned most_blocks = 192; // 12 MB; the kernel may take some for the server
    const std::string beginning = "GET / HTTP/1.1\r\nHost: localhost\r\n";
    for (const std::string text : {"a", "a:b\r\n", "\r", "\n"}) {
        const Visitor visitor(port);
        const std::string block = repeated(text, 65536);
        bool goes_on = visitor.say(beginning + "Name: ");
        for (unsigned blocks = 0; goes_on && blocks < most_blocks; blocks++)
            goes_on = visitor.say(block);
        EXPECT_FALSE(goes_on) << "with '" << text << "'";
    }
    EXPECT_EQ(answer_to("/"), "HTTP/1.1 200 OK");
}

TEST_F(PageServer, ReadsLongRequests) {
    const Visitor visitor(port);
    visitor.ask("/", "Cookie: " + std::string(8000, 'c') + "\r\nOther: " + std::string(7000, 'o') + "\r\n");
    EXPECT_EQ(first_line(visitor.answer()), "HTTP/1.1 200 OK");
}

class HastyPageServer : public PageServer {
  protected:
    HastyPageServer() : PageServer({.head_time = std::chrono::seconds(1)}) {}
};

TEST_F(HastyPageServer, IsNotHeldByThoseWhoNeverComeToAnEnd) {
    const Dawdlers dawdlers(port, all_workers);
    EXPECT_EQ(answer_to("/"), "HTTP/1.1 200 OK");
}

TEST_F(HastyPageServer, AnswersWhoHadToWaitForLongerThanARequestMayTake) {
    const Dawdlers dawdlers(port, all_workers);
    const Dawdlers more(port, all_workers);
    EXPECT_EQ(answer_to("/"), "HTTP/1.1 200 OK");
}

TEST_F(HastyPageServer, GoesOnWithWhoeverFollowsUntilItsEnd) {
    const auto follower = new_follower();
    EXPECT_EQ(Visitor(port).hear(), "")
        << "who says nothing was waited for, and longer than a request may take";
    server.reset();
    EXPECT_EQ(follower->answer(), "0\r\n\r\n");
}

class PatientPageServer : public PageServer {
  protected:
    static constexpr unsigned most_waiting = 4;
    PatientPageServer() : PageServer({.most_waiting = most_waiting, .head_time = std::chrono::seconds(30)}) {}
};

TEST_F(PatientPageServer, EndsAtOnceWhileRequestsComeThatNeverEnd) {
    const Dawdlers dawdlers(port, all_workers);
    EXPECT_TRUE(ends_within(10000));
}

TEST_F(PatientPageServer, RefusesThoseWhoWouldWaitBehindManyOthers) {
    auto dawdlers = std::make_unique<Dawdlers>(port, 2 * all_workers + most_waiting);
    EXPECT_TRUE(wait_until([&] { return dawdlers->closed() >= all_workers; }, 10000)) << dawdlers->closed();
    dawdlers.reset();
    EXPECT_TRUE(wait_until([&] { return answer_to("/") == "HTTP/1.1 200 OK"; }, 10000));
}

// As many clients as there may be; what is told of them is more than a connection keeps.
class Clients : public QuerySegment {
  public:
    Clients() {
        SetUp();
        for (unsigned i = 0; i < HBS_MAX_CLIENTS; i++)
            (void)publish(i, i);
    }
    ~Clients() override { TearDown(); }
    void TestBody() override {}
};

class LargePageServer : public PageServer {
  protected:
    LargePageServer()
        : PageServer({.head_time = std::chrono::seconds(2),
                      .write_patience = std::chrono::seconds(20),
                      .answer_time = std::chrono::seconds(1)}) {
        source.look();
    }

    const Clients clients;
};

TEST_F(LargePageServer, GoesOnWithWhoeverFollowsForLongerThanAnAnswerMayTake) {
    const auto follower = new_follower();
    EXPECT_EQ(Visitor(port).hear(), "") << "a request may take longer than an answer here";
    server.reset();
    EXPECT_THAT(follower->answer(), testing::EndsWith("\r\n0\r\n\r\n"));
}

TEST_F(LargePageServer, EndsAtOnceWhileNobodyTakesAnAnswer) {
    const Visitor visitor(port, false);
    visitor.ask("/clients.json");
    EXPECT_THAT(visitor.hear(12), "HTTP/1.1 200");
    EXPECT_TRUE(ends_within(10000));
}

TEST_F(LargePageServer, IsNotHeldByThoseWhoTakeAnAnswerByAndBy) {
    const Visitor visitor(port, false), usual(port);
    usual.ask("/clients.json");
    const size_t whole = usual.answer().size();
    visitor.ask("/clients.json");
    size_t taken = 0;
    for (size_t more = visitor.hear(256).size(); more > 0; more = visitor.hear(256).size()) {
        taken += more;
        sleep_milliseconds(20);
    }
    EXPECT_LT(taken, whole);
}

} // namespace page_server_test
#endif
