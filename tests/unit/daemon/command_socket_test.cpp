// Datagrams over the real socket: replies, senders, short datagrams, failures to open.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "daemon/command_socket.h"
#include "daemon/reply.h"
#include "support/command_fakes.h"
#include "support/gateway.h"

using testing::ElementsAre;

namespace {

std::atomic<int> granted; // milliseconds that the daemon was ready to wait for those who do not read

} // namespace

// In front of the C library's. How long a busy machine makes of it is not the daemon's doing.
extern "C" int setsockopt(int socket, int level, int option, const void *value, socklen_t size) noexcept {
    if (option == SO_SNDTIMEO) {
        const auto *limit = static_cast<const timeval *>(value);
        granted += static_cast<int>(limit->tv_sec * 1000 + limit->tv_usec / 1000);
    }
    return static_cast<int>(syscall(SYS_setsockopt, socket, level, option, value, size));
}

namespace {

// A process that sends commands; bound to a path when it wants the answers.
class Sender {
  public:
    explicit Sender(const std::string &path) : path_(path), socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        const timeval patience = {0, 100000};
        (void)setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        if (!path.empty()) {
            const sockaddr_un address = address_of(path);
            const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
            EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr *>(&address), length), 0);
        }
    }
    ~Sender() {
        (void)close(socket_);
        (void)unlink(path_.c_str());
    }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    // Sends one command after another and reads none of the replies.
    void pile_up(hbs_command_server *server, int commands) {
        for (int i = 0; i < commands; i++) {
            ASSERT_TRUE(send({HBS_CMD_RESET_DEFAULTS}));
            hbs_command_socket_serve(server);
        }
    }

    bool send(const std::vector<uint8_t> &datagram) {
        const sockaddr_un address = address_of(HBS_SOCKET_PATH);
        return sendto(socket_, datagram.data(), datagram.size(), 0,
                      reinterpret_cast<const sockaddr *>(&address),
                      sizeof(address)) == static_cast<ssize_t>(datagram.size());
    }

    // The bytes of the reply; empty when there is none.
    std::vector<uint8_t> receive() {
        std::vector<uint8_t> reply(64);
        const ssize_t count = recv(socket_, reply.data(), reply.size(), 0);
        reply.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return reply;
    }

    void drain() {
        char reply[4];
        while (recv(socket_, reply, sizeof(reply), MSG_DONTWAIT) >= 0) {}
    }

    static sockaddr_un address_of(const std::string &path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.data(), path.size());
        return address;
    }

  private:
    std::string path_;
    int socket_;
};

std::vector<uint8_t> bytes_of(int32_t number) {
    std::vector<uint8_t> bytes(sizeof(number));
    memcpy(bytes.data(), &number, sizeof(number));
    return bytes;
}

class CommandSocket : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        fake::reset();
        server = {hbs_command_socket_open(), -1};
        ASSERT_GE(server.socket, 0);
        (void)trace::take();
    }

    void TearDown() override {
        (void)close(server.socket);
        GatewayTest::TearDown();
    }

    hbs_command_server server{};
};

TEST_F(CommandSocket, Command_IsAnsweredWithFourBytesInHostOrder) {
    fake::result = 0x01020304;
    Sender sender("/var/tmp/sender");
    ASSERT_TRUE(sender.send({HBS_CMD_SET_ROUTE_MODE, 1}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(sender.receive(), bytes_of(0x01020304));
}

TEST_F(CommandSocket, Reply_NamesTheSenderInItsLogLine) {
    Sender sender("/var/tmp/sender");
    ASSERT_TRUE(sender.send({HBS_CMD_RESET_DEFAULTS}));
    hbs_command_socket_serve(&server);
    EXPECT_THAT(trace::take(),
                ElementsAre("log HOSTBASE: HBS_CMD_RESET_DEFAULTS from len 16 : 2f 76 61 72 2f 74",
                            "locked reset",
                            "locked log HOSTBASE: Send response to 0 to len 16 : 2f 76 61 72 2f 74"));
}

TEST_F(CommandSocket, FirstCommandWithoutHandler_RepliesMinusOne) {
    Sender sender("/var/tmp/sender");
    ASSERT_TRUE(sender.send({HBS_CMD_SET_STATIC_LEASE, 0, 0, 0, 7, 7}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(sender.receive(), bytes_of(-1));
}

TEST_F(CommandSocket, Result_CarriesOverToTheNextSender) {
    fake::result = 42;
    Sender sender("/var/tmp/sender");
    Sender other("/var/tmp/other");
    ASSERT_TRUE(sender.send({HBS_CMD_SET_ROUTE_MODE, 1}));
    hbs_command_socket_serve(&server);
    ASSERT_TRUE(other.send({HBS_CMD_SET_STATIC_LEASE, 0, 0, 0, 7, 7}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(other.receive(), bytes_of(42));
    EXPECT_EQ(sender.receive(), bytes_of(42));
}

TEST_F(CommandSocket, Event_IsNotAnswered) {
    Sender sender("/var/tmp/sender");
    ASSERT_TRUE(sender.send({HBS_EVENT_XWIFI_CHANGED}));
    hbs_command_socket_serve(&server);
    EXPECT_TRUE(sender.receive().empty());
}

TEST_F(CommandSocket, UnboundSender_IsServedAllTheSame) {
    Sender sender("");
    ASSERT_TRUE(sender.send({HBS_CMD_RESET_DEFAULTS}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(trace::take().front(), "log HOSTBASE: HBS_CMD_RESET_DEFAULTS from len -2 : 00 00 00 00 00 00");
}

TEST_F(CommandSocket, EmptyDatagram_IsIgnored) {
    Sender sender("/var/tmp/sender");
    ASSERT_TRUE(sender.send({HBS_CMD_RESET_DEFAULTS}));
    hbs_command_socket_serve(&server);
    (void)trace::take();
    ASSERT_TRUE(sender.send({}));
    hbs_command_socket_serve(&server);
    EXPECT_THAT(trace::take(), ElementsAre());
}

TEST_F(CommandSocket, ShortDatagram_LeavesTheRestAsItsPredecessorLeftIt) {
    Sender sender("/var/tmp/sender");
    std::vector<uint8_t> whole(sizeof(hbs_msg_wifi_info), 0);
    whole[0] = HBS_EVENT_WIFI_ASSOC_INFO;
    whole[4] = 0x02;
    whole[9] = 0x11;
    ASSERT_TRUE(sender.send(whole));
    hbs_command_socket_serve(&server);
    (void)trace::take();
    ASSERT_TRUE(sender.send({HBS_EVENT_WIFI_ASSOC_INFO, 0, 0, 0, 0x06}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(trace::take().back(), "locked wifi info 06:00:00:00:00:11");
}

TEST_F(CommandSocket, LongDatagram_IsCut) {
    Sender sender("/var/tmp/sender");
    std::vector<uint8_t> datagram(60000, 0xff);
    datagram[0] = HBS_CMD_RESET_DEFAULTS;
    ASSERT_TRUE(sender.send(datagram));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(sender.receive(), bytes_of(0));
}

TEST_F(CommandSocket, EveryCodeWithRandomContent_LeavesTheDaemonAlive) {
    Sender sender("/var/tmp/sender");
    unsigned random = 1;
    for (unsigned i = 0; i < 1024; i++) {
        std::vector<uint8_t> datagram(1 + i * 2);
        for (uint8_t &byte : datagram) {
            random = random * 1103515245 + 12345;
            byte = static_cast<uint8_t>(random >> 16);
        }
        datagram[0] = static_cast<uint8_t>(i);
        ASSERT_TRUE(sender.send(datagram));
        hbs_command_socket_serve(&server);
        sender.drain();
    }
    (void)trace::take();
    Sender other("/var/tmp/other");
    ASSERT_TRUE(other.send({HBS_CMD_RESET_DEFAULTS}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(other.receive(), bytes_of(0));
}

TEST_F(CommandSocket, SenderThatNeverReads_DoesNotStallTheThread) {
    Sender lazy("/var/tmp/lazy");
    for (int i = 0; i < 3000 && granted == 0; i++)
        lazy.pile_up(&server, 1);
    EXPECT_EQ(granted, HBS_REPLY_PATIENCE_MS);
    Sender other("/var/tmp/other");
    ASSERT_TRUE(other.send({HBS_CMD_RESET_DEFAULTS}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(other.receive(), bytes_of(0));
}

// More than any receiver's queue holds on this machine.
int more_than_a_queue() {
    std::ifstream file("/proc/sys/net/unix/max_dgram_qlen");
    int length = 10;
    file >> length;
    return length + 10;
}

TEST_F(CommandSocket, SenderThatNeverReads_CostsTheOthersItsPatienceOnceInAll) {
    Sender lazy("/var/tmp/lazy");
    lazy.pile_up(&server, more_than_a_queue() + 30);
    EXPECT_GE(granted, HBS_REPLY_PATIENCE_MS) << "the sender's queue never filled";
    EXPECT_LT(granted, 2 * HBS_REPLY_PATIENCE_MS) << "forty replies, each waited for";
}

TEST_F(CommandSocket, ManySendersThatNeverRead_CostNoMoreThanOne) {
    constexpr int senders = 40;
    std::vector<std::unique_ptr<Sender>> lazy;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < senders; i++) {
        lazy.push_back(std::make_unique<Sender>("/var/tmp/lazy" + std::to_string(i)));
        lazy.back()->pile_up(&server, more_than_a_queue());
    }
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    const double recoveries = taken.count() / HBS_REPLY_RECOVERY_MS;
    EXPECT_GE(granted, HBS_REPLY_PATIENCE_MS) << "no sender's queue ever filled";
    EXPECT_LT(static_cast<double>(granted), 2 * HBS_REPLY_PATIENCE_MS * (1 + recoveries))
        << "each waited for";
    Sender other("/var/tmp/other");
    ASSERT_TRUE(other.send({HBS_CMD_RESET_DEFAULTS}));
    hbs_command_socket_serve(&server);
    EXPECT_EQ(other.receive(), bytes_of(0)) << "unread replies leave room for others";
}

TEST_F(CommandSocket, SenderThatIsSlow_GetsItsReplyWhenItReadsInTime) {
    const int commands = more_than_a_queue();
    int attempts = 0;
    // A machine that keeps the reader away for longer than the patience makes it another case: once more.
    EXPECT_TRUE(wait_until([&] {
        Sender slow("/var/tmp/slow" + std::to_string(attempts++));
        std::atomic<int> received{0};
        std::atomic<bool> over{false};
        std::thread reader([&] {
            sleep_milliseconds(HBS_REPLY_PATIENCE_MS / 4);
            for (bool got = false; got || !over; received += got)
                got = !slow.receive().empty();
        });
        slow.pile_up(&server, commands);
        over = true;
        reader.join();
        if (received != commands)
            return false;
        slow.pile_up(&server, 1);
        EXPECT_EQ(slow.receive(), bytes_of(0)) << "one that reads again is answered again";
        return true;
    })) << "replies were lost";
}

TEST_F(CommandSocket, SenderThatIsGone_IsNotMissed) {
    {
        Sender sender("/var/tmp/sender");
        ASSERT_TRUE(sender.send({HBS_CMD_RESET_DEFAULTS}));
    }
    hbs_command_socket_serve(&server);
    EXPECT_EQ(server.reply_result, 0);
}

TEST_F(CommandSocket, FailedReceive_IsIgnored) {
    hbs_command_server closed = {-1, 5};
    hbs_command_socket_serve(&closed);
    EXPECT_EQ(closed.reply_result, 5);
    EXPECT_THAT(trace::take(), ElementsAre());
}

// --- opening ---

TEST_F(CommandSocket, Open_ReplacesAStaleSocket) {
    (void)close(server.socket);
    ASSERT_TRUE(std::filesystem::exists(HBS_SOCKET_PATH));
    server.socket = hbs_command_socket_open();
    EXPECT_GE(server.socket, 0);
}

TEST_F(CommandSocket, Open_ReplacesAnOrdinaryFile) {
    (void)close(server.socket);
    std::filesystem::remove(HBS_SOCKET_PATH);
    write_file(HBS_SOCKET_PATH, "stale");
    server.socket = hbs_command_socket_open();
    ASSERT_GE(server.socket, 0);
    EXPECT_EQ(std::filesystem::status(HBS_SOCKET_PATH).type(), std::filesystem::file_type::socket);
}

TEST_F(CommandSocket, Open_WhenItCannotBeBound_IsLogged) {
    (void)close(server.socket);
    std::filesystem::remove(HBS_SOCKET_PATH);
    std::filesystem::create_directory(HBS_SOCKET_PATH); // not to be unlinked
    server.socket = hbs_command_socket_open();
    EXPECT_EQ(server.socket, -1);
    EXPECT_EQ(un_listen_thread(nullptr), nullptr);
    std::filesystem::remove(HBS_SOCKET_PATH);
    EXPECT_THAT(trace::take(),
                ElementsAre("log error binding datagram socket\n", "log error binding datagram socket\n"));
}

TEST_F(CommandSocket, Open_WithoutADescriptor_IsLogged) {
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    const rlimit none = {0, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = hbs_command_socket_open();
    void *const end = un_listen_thread(nullptr);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(end, nullptr);
    EXPECT_THAT(trace::take(),
                ElementsAre("log error opening datagram socket\n", "log error opening datagram socket\n"));
}

TEST_F(CommandSocket, Wait_EndsWhenSendersFindTheSocket) {
    std::filesystem::remove(HBS_SOCKET_PATH); // of the other server
    std::thread(un_listen_thread, nullptr).detach();
    hbs_command_socket_wait();
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, HBS_SOCKET_PATH, sizeof HBS_SOCKET_PATH);
    EXPECT_EQ(connect(sender, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    (void)close(sender);
}

TEST_F(CommandSocket, Wait_EndsWhenTheSocketCannotBeHad) {
    std::filesystem::remove(HBS_SOCKET_PATH);
    std::filesystem::create_directory(HBS_SOCKET_PATH); // not to be unlinked
    std::thread listener(un_listen_thread, nullptr);
    hbs_command_socket_wait();
    listener.join();
    std::filesystem::remove(HBS_SOCKET_PATH);
}

} // namespace
