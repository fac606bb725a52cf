// A stand-in for the daemon's command socket, and a run of hbsctl inside the test.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tools/command_tree.h"
#include "tools/requests.h"

// Is there, and answers nothing. No thread of it runs, so a test that forks takes this one: the child of a
// process with threads may wait for ever for what one of them held.
class silent_daemon {
  public:
    const std::string path = "/var/tmp/fake-daemon.sock";

    silent_daemon() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        unlink(path.c_str());
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~silent_daemon() { stop(); }
    silent_daemon(const silent_daemon &) = delete;
    silent_daemon &operator=(const silent_daemon &) = delete;

    void stop() {
        if (fd_ < 0)
            return;
        close(fd_);
        unlink(path.c_str());
        fd_ = -1;
    }

    // True when a datagram waits, at the latest in `milliseconds`.
    bool is_asked(int milliseconds) const {
        pollfd wait = {fd_, POLLIN, 0};
        return poll(&wait, 1, milliseconds) > 0;
    }

    int fd() const { return fd_; }

  private:
    int fd_;
};

// Receives datagrams on a path of its own and answers each with what `answer` gives; none: no answer. The
// questions for its mode it answers itself, and does not keep.
class fake_daemon {
  private:
    silent_daemon socket_;

  public:
    std::atomic<bool> routed = true;
    const std::string path = socket_.path;
    std::vector<datagram> received; // read only when it is stopped, or after an answer
    std::string last_sender;        // path of the last sender's socket

    explicit fake_daemon(std::function<std::optional<std::vector<uint8_t>>(const datagram &)> answer)
        : answer_(answer), thread_([this] { serve(); }) {}
    ~fake_daemon() { stop(); }

    void stop() {
        if (thread_.joinable()) {
            stop_ = true;
            thread_.join();
            socket_.stop();
        }
    }

  private:
    void serve() {
        while (socket_.is_asked(10) || !stop_) {
            if (!socket_.is_asked(0))
                continue;
            datagram message(2048);
            sockaddr_un from = {};
            socklen_t length = sizeof from;
            const ssize_t size = recvfrom(socket_.fd(), message.data(), message.size(), 0,
                                          reinterpret_cast<sockaddr *>(&from), &length);
            message.resize(static_cast<size_t>(size));
            last_sender = length > sizeof(sa_family_t) ? from.sun_path : "";
            const bool question = asks_for_mode(message);
            if (!question)
                received.push_back(message);
            if (const auto reply = question ? mode_answer(message) : answer_(message))
                sendto(socket_.fd(), reply->data(), reply->size(), 0, reinterpret_cast<sockaddr *>(&from),
                       length);
        }
    }

    static bool asks_for_mode(const datagram &message) {
        return message[0] == HBS_CMD_CLR_MACFILTER &&
               std::all_of(
                   message.begin() + 2, message.begin() + 8, [](uint8_t byte) { return byte == 0; });
    }

    // In bridge mode the answer of the command before is repeated, here always 0.
    std::optional<std::vector<uint8_t>> mode_answer(const datagram &question) const {
        const int32_t value = routed && question[1] == 0 ? -1 : 0;
        const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
        return std::vector<uint8_t>(bytes, bytes + sizeof value);
    }

    std::function<std::optional<std::vector<uint8_t>>(const datagram &)> answer_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

inline std::vector<uint8_t> answer_bytes(int32_t value) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
    return std::vector<uint8_t>(bytes, bytes + sizeof value);
}

// What one run of hbsctl printed and how it ended.
struct ctl_result {
    exit_status status;
    std::string out, err;
};

// `input`: what a person types; null: nobody is there to be asked.
inline ctl_result ctl(const std::vector<std::string> &arguments, const std::string &socket_path,
                      const char *input = nullptr, double answer_seconds = 2) {
    std::istringstream in(input == nullptr ? "" : input);
    std::ostringstream out, err;
    session run = {.in = in,
                   .out = out,
                   .err = err,
                   .can_ask = input != nullptr,
                   .answer_seconds = answer_seconds,
                   .socket_path = socket_path,
                   .how = {}};
    const exit_status status = run_command_line(run, arguments);
    return {status, out.str(), err.str()};
}
